// SPDX-License-Identifier: MIT
#include "CocoaAsyncSocket/UDPNameResolver.h"

#include <netdb.h>

#include <atomic>
#include <mutex>
#include <utility>

#include "platform/host/Host.h"

namespace velor {

struct UDPNameResolver::Running {
  LookUp lookUp;
  std::function<void(Answer)> reply;
  Answer answer;  // the thread's, until it has posted
  std::atomic<bool> done{false};
  std::unique_ptr<host::Thread> thread;  // the queue's
};

// Look-ups that outlived their resolver. At the end of the process those that
// have an answer by then are joined; the others end with it.
struct UDPNameResolver::LeftBehind {
  ~LeftBehind() {
    for (const auto& each : list) {
      if (each->done.load()) {
        each->thread->join();
      } else {
        static_cast<void>(each->thread.release());
      }
    }
  }
  static void add(std::shared_ptr<Running> running) {
    static std::mutex mutex;
    static LeftBehind all;
    const std::lock_guard lock(mutex);
    all.list.push_back(std::move(running));
  }

  std::vector<std::shared_ptr<Running>> list;
};

// What a thread that outlives the resolver still finds.
struct UDPNameResolver::Gate {
  std::mutex mutex;
  UDPNameResolver* resolver;  // under mutex; null after its end
};

UDPNameResolver::UDPNameResolver(host::Queue& queue)
    : mQueue(queue), mGate(std::make_shared<Gate>()) {
  mGate->resolver = this;
}

UDPNameResolver::~UDPNameResolver() {
  {
    const std::lock_guard lock(mGate->mutex);
    mGate->resolver = nullptr;
  }
  for (const auto& running : mRunning) {
    if (running->lookUp.cancel) {
      running->lookUp.cancel();
    }
    if (running->lookUp.cancel || running->done.load()) {
      running->thread->join();
    } else {
      LeftBehind::add(running);
    }
  }
}

void UDPNameResolver::add(LookUp lookUp, std::function<void(Answer)> answer) {
  mQueue.assertCurrent();
  auto running = std::make_shared<Running>();
  running->lookUp = std::move(lookUp);
  running->reply = std::move(answer);
  mWaiting.push_back(std::move(running));
  startNext();
}

void UDPNameResolver::startNext() {
  while (!mWaiting.empty() && mRunning.size() < kMostThreads) {
    const std::shared_ptr<Running> running = std::move(mWaiting.front());
    mWaiting.pop_front();
    mRunning.push_back(running);
    running->thread = host::current().startThread("velor.resolver", [gate = mGate, running] {
      running->answer = running->lookUp.run();
      running->done.store(true);
      const std::lock_guard lock(gate->mutex);
      if (UDPNameResolver* resolver = gate->resolver) {
        resolver->mQueue.async([resolver, running] {
          resolver->mQueue.assertCurrent();
          resolver->ended(running);
        });
      }
    });
    if (running->thread == nullptr) {
      std::erase(mRunning, running);
      running->reply({EAI_MEMORY, {}});
    }
  }
}

void UDPNameResolver::ended(const std::shared_ptr<Running>& running) {
  running->thread->join();  // it has nothing left to do
  std::erase(mRunning, running);
  running->reply(std::move(running->answer));
  startNext();
}

}  // namespace velor
