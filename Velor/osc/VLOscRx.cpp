// SPDX-License-Identifier: MIT
#include "Velor/osc/VLOscRx.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <utility>

#include "Kv-Appkit/KVAssert.h"
#include "oscpkt/src/oscpkt.h"
#include "platform/host/Log.h"

namespace velor {
namespace {

using oscpkt::Message;

using Delegate = VLOScRxDelegate;
using Perform = void (*)(Delegate& delegate, const SocketAddress& from, float value);

bool isAny(float) {
  return true;
}
bool isPositive(float value) {
  return value > 0;
}
bool isNormal(float value) {
  return std::isnormal(value);
}

// A number that does not fit is truncated to its low 32 bits, like any integer.
std::int32_t markerOf(float value) {
  const float rounded = std::round(value);
  return std::abs(rounded) < 0x1p63F ? static_cast<std::int32_t>(static_cast<std::int64_t>(rounded))
                                     : 0;
}

bool beginsWith(const Message& message, std::string_view path) {
  return message.partialMatch(path).error() == oscpkt::OscOk;
}

struct Command {
  // A message that begins with these names gives only commands of this branch.
  std::string_view branch;
  std::string_view address;
  bool (*accepts)(float value);
  Perform perform;
};

constexpr std::string_view kRoot = "/velor";
constexpr std::string_view kTransport = "/velor/transport";
constexpr std::string_view kMarker = "/velor/marker";

// In the order of the tests.
constexpr std::array<Command, 7> kCommands{{
    {kTransport, "/velor/transport/play", isPositive,
     [](Delegate& delegate, const SocketAddress& from, float) {
       delegate.commandFromAddressChangePlaybackStatus(from, true);
     }},
    {kTransport, "/velor/transport/stop", isPositive,
     [](Delegate& delegate, const SocketAddress& from, float) {
       delegate.commandFromAddressChangePlaybackStatus(from, false);
     }},
    {kMarker, "/velor/marker/goto", isNormal,
     [](Delegate& delegate, const SocketAddress& from, float value) {
       delegate.commandFromAddressGotoMarker(from, markerOf(value));
     }},
    {kMarker, "/velor/marker/add", isPositive,
     [](Delegate& delegate, const SocketAddress& from, float) {
       delegate.addMarkerCommandFromAddress(from);
     }},
    {kRoot, "/velor/speed", isAny,
     [](Delegate& delegate, const SocketAddress& from, float value) {
       delegate.commandFromAddressChangePlaybackSpeed(from, value);
     }},
    {kRoot, "/velor/preroll", isAny,
     [](Delegate& delegate, const SocketAddress& from, float value) {
       delegate.commandFromAddressChangePrerollStatus(from, value > 0);
     }},
    {kRoot, "/velor/arm", isAny,
     [](Delegate& delegate, const SocketAddress& from, float value) {
       delegate.commandFromAddressChangeArmed(from, value > 0);
     }},
}};

// The command of a message, and its argument; null when it gives none.
const Command* commandOf(const Message& message, float& value) {
  if (!beginsWith(message, kRoot)) {
    return nullptr;
  }
  const std::string_view branch = beginsWith(message, kTransport) ? kTransport
                                  : beginsWith(message, kMarker)  ? kMarker
                                                                  : kRoot;
  const auto found = std::find_if(kCommands.begin(), kCommands.end(), [&](const Command& each) {
    return each.branch == branch && message.fullMatch(each.address).popFloat(value).isFullyRead() &&
           each.accepts(value);
  });
  return found != kCommands.end() ? &*found : nullptr;
}

}  // namespace

std::shared_ptr<VLOscRx> VLOscRx::initWithDelegate(
    const std::shared_ptr<VLOScRxDelegate>& delegate) {
  KV_REQUIRE_PARAMETER(delegate != nullptr, "delegate");
  std::shared_ptr<VLOscRx> rx(new VLOscRx(delegate));
  rx->mSocket = GCDAsyncUdpSocket::initWithDelegate(rx, rx->mWorkQueue.get());
  rx->mSocket->setReceiveFilter(
      [filter = rx->mDelegate](std::span<const std::uint8_t>, const SocketAddress& from) {
        const auto strong = filter.lock();
        return strong != nullptr && strong->allowFromHost(GCDAsyncUdpSocket::hostFromAddress(from));
      },
      rx->mWorkQueue.get());
  return rx;
}

VLOscRx::VLOscRx(const std::shared_ptr<VLOScRxDelegate>& delegate)
    : mDelegate(delegate),
      mMainQueue(host::current().mainQueue()),
      mRoom(host::current().makeSemaphore()),
      mWorkQueue(new host::Queue("velor.osc")) {}

VLOscRx::~VLOscRx() {
  mRunning.store(false);
  endWaiting();
  mSocket->close();
}

GCDAsyncUdpSocketResult VLOscRx::startAtPort(std::uint16_t port) {
  VELOR_LOG_INFO("trying to start osc server at port %u", static_cast<unsigned>(port));
  if (auto bound = mSocket->bindToPort(port); !bound) {
    VELOR_LOG_WARNING("failed to start osc server at port %u", static_cast<unsigned>(port));
    return bound;
  }
  // Before the first datagram can arrive.
  mRunning.store(true);
  auto begun = mSocket->beginReceiving();
  if (!begun) {
    mRunning.store(false);
  }
  return begun;
}

void VLOscRx::stop() {
  mRunning.store(false);
  endWaiting();
  mSocket->close();
  mWorkQueue->sync([] {});  // waits for the datagram that is being read
}

std::optional<std::string> VLOscRx::urlString() const {
  if (!running()) {
    return std::nullopt;
  }
  const std::string host = mSocket->localHost().value_or("");
  const bool isIPv6 = host.find(':') != std::string::npos;
  return "osc.udp://" + (isIPv6 ? "[" + host + "]" : host) + ":" + std::to_string(port()) + "/";
}

// --- datagrams ---

void VLOscRx::udpSocketDidReceiveData(const std::shared_ptr<GCDAsyncUdpSocket>&,
                                      std::span<const std::uint8_t> data,
                                      const SocketAddress& address) {
  oscpkt::OscPacketReader reader(data.data(), data.size());
  while (const Message* const message = reader.popMessage()) {
    float value = 0;
    if (const Command* const command = commandOf(*message, value)) {
      waitForMainQueue();
      if (!running()) {
        return;
      }
      ++mCommandsWaiting;
      mMainQueue.async(
          [self = shared_from_this(), from = address, value, perform = command->perform] {
            if (const auto delegate = self->mDelegate.lock()) {
              perform(*delegate, from, value);
            }
            self->commandEnded();
          });
    }
  }
}

void VLOscRx::waitForMainQueue() {
  const auto mustWait = [this] {
    return running() && mCommandsWaiting.load() >= kMostCommandsWaiting;
  };
  while (mustWait()) {
    mWaitsForMainQueue.store(true);
    if (mustWait()) {  // still, now that commandEnded would signal
      mRoom->wait();
    }
  }
}

void VLOscRx::commandEnded() {
  if (--mCommandsWaiting <= kMostCommandsWaiting / 2) {
    endWaiting();
  }
}

void VLOscRx::endWaiting() {
  if (mWaitsForMainQueue.exchange(false)) {
    mRoom->signal();
  }
}

}  // namespace velor
