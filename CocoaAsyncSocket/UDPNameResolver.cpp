// SPDX-License-Identifier: MIT
#include "CocoaAsyncSocket/UDPNameResolver.h"

#include <netdb.h>

#include <atomic>
#include <mutex>
#include <utility>

#include "platform/host/Host.h"

namespace velor {

namespace {

// Never joined: reachable for ever, and ended by the end of the process.
void leaveBehind(std::unique_ptr<host::Thread> thread) {
  static auto& threads = *new std::vector<std::unique_ptr<host::Thread>>;
  threads.push_back(std::move(thread));
}

}  // namespace

struct UDPNameResolver::Running {
  LookUp lookUp;
  std::function<void(Answer)> reply;
  Answer answer;  // the thread's, until it has posted
  std::atomic<bool> done{false};
  std::unique_ptr<host::Thread> thread;  // the queue's
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
      running->thread->join();
    } else if (running->done.load()) {
      running->thread->join();
    } else {
      leaveBehind(std::move(running->thread));
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
