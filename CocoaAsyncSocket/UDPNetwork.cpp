// SPDX-License-Identifier: MIT
#include "CocoaAsyncSocket/UDPNetwork.h"

#include <netdb.h>

#include <cstdio>
#include <cstdlib>

#include "platform/host/ThreadState.h"

namespace velor {

namespace {
UDPNetwork* gNetwork = nullptr;
}

UDPNetwork& udpNetwork() noexcept {
  return *gNetwork;
}
void setUDPNetwork(UDPNetwork* network) noexcept {
  gNetwork = network;
}

// A queue whose thread also waits for descriptors.
class UDPNetwork::Loop final : public host::Queue {
 public:
  explicit Loop(host::Host& theHost)
      : Queue(theHost, "GCDAsyncUdpSocket", theHost.makeSemaphore(host::Host::Pollable::yes),
              WithoutThread{}) {}
  ~Loop() override { host().timers().forget(*this); }

  using Queue::acknowledgeWake;
  using Queue::drain;
  using Queue::wake;
};

UDPNetwork::UDPNetwork()
    : mHost(host::current()),
      mQueue(std::make_unique<Loop>(mHost)),
      mLookUps(std::make_unique<host::LongJobs>(*mQueue)) {}

UDPNetwork::~UDPNetwork() = default;

host::Queue& UDPNetwork::queue() noexcept {
  return *mQueue;
}

void UDPNetwork::startThread() {
  mThread = mHost.startThread(mQueue->label(), [this] { run(); });
  if (mThread == nullptr) {
    std::fputs("cannot start the thread of the network\n", stderr);
    std::abort();
  }
}

void UDPNetwork::endThread() {
  mHost.timers().forget(*mQueue);
  mQueue->async([this] { mEnding.store(true); });
  mThread->join();
  mLookUps = nullptr;
  if (!mClients.empty()) {
    std::fputs("the network ends before its sockets\n", stderr);
    std::abort();
  }
}

void UDPNetwork::run() {
  host::threadState().queue = mQueue.get();
  std::vector<Ready> ready;
  while (!mEnding.load()) {
    ready.clear();
    wait(mQueue->wake(), ready);
    // First, so that a job that comes while others run signals again.
    mQueue->acknowledgeWake();
    mQueue->drain();
    for (const Ready& each : ready) {
      if (Client* const found = client(each.client)) {
        found->descriptorReady(each.descriptor);
      }
    }
  }
}

std::uint32_t UDPNetwork::addClient(Client& client) {
  mQueue->assertCurrent();
  mClients.emplace(++mLastClient, &client);
  return mLastClient;
}

void UDPNetwork::removeClient(std::uint32_t id) {
  mQueue->assertCurrent();
  mClients.erase(id);
}

UDPNetwork::Client* UDPNetwork::client(std::uint32_t id) const {
  mQueue->assertCurrent();
  const auto found = mClients.find(id);
  return found == mClients.end() ? nullptr : found->second;
}

void UDPNetwork::resolve(const std::string& host, std::uint16_t port,
                         std::function<void(Answer)> answer) {
  mQueue->assertCurrent();
  // An address needs no look-up, and must not wait for slow ones.
  if (const auto address = SocketAddress::fromText(host, port)) {
    mQueue->async([address = *address, answer = std::move(answer)] { answer({0, {address}}); });
    return;
  }
  LookUp question = lookUp(host, port);
  const auto found = std::make_shared<Answer>(Answer{EAI_MEMORY, {}});  // for a job that cannot run
  mLookUps->add({[found, run = std::move(question.run)] { *found = run(); },
                 std::move(question.cancel),
                 [found, answer = std::move(answer)] { answer(std::move(*found)); }});
}

}  // namespace velor
