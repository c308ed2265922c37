// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "CocoaAsyncSocket/GCDAsyncUdpSocket.h"
#include "CocoaAsyncSocket/GCDAsyncUdpSocketDelegate.h"
#include "platform/host/Host.h"

namespace velor {

inline std::vector<std::uint8_t> bytesOf(const std::string& text) {
  return {text.begin(), text.end()};
}

/// Why an operation failed; empty for success.
inline GCDAsyncUdpSocketError errorOf(const GCDAsyncUdpSocketResult& result) {
  return result ? GCDAsyncUdpSocketError() : result.error();
}

/// Records what a socket reports, one line each: "data TEXT", "connected HOST",
/// "not connected TEXT", "closed", "closed TEXT", "sent TAG", "not sent TAG TEXT".
class UDPListener final : public GCDAsyncUdpSocketDelegate {
 public:
  bool offersDidSend() const override { return true; }

  std::vector<std::string> events() const {
    const std::lock_guard lock(mMutex);
    return mEvents;
  }

  std::size_t count(const std::string& prefix) const {
    const std::lock_guard lock(mMutex);
    std::size_t found = 0;
    for (const std::string& each : mEvents) {
      found += each.starts_with(prefix) ? 1 : 0;
    }
    return found;
  }

  /// Waits until so many events begin with this; false after 20 s of host time.
  bool waitFor(const std::string& prefix, std::size_t times = 1) {
    const std::uint64_t deadline =
        host::current().AudioGetCurrentHostTime() + 20ULL * 1'000'000'000;
    while (count(prefix) < times) {
      if (!mHeard->waitUntil(deadline)) {
        return false;
      }
    }
    return true;
  }

  SocketAddress lastSender() const {
    const std::lock_guard lock(mMutex);
    return mLastSender;
  }
  std::size_t lastSize() const {
    const std::lock_guard lock(mMutex);
    return mLastSize;
  }

  /// Called at every datagram, on the delegate's queue.
  std::function<void(const std::string& data)> onData;

  void udpSocketDidReceiveData(const std::shared_ptr<GCDAsyncUdpSocket>&,
                               std::span<const std::uint8_t> data,
                               const SocketAddress& address) override {
    const std::string text(data.begin(), data.end());
    {
      const std::lock_guard lock(mMutex);
      mLastSender = address;
      mLastSize = data.size();
    }
    if (onData) {
      onData(text);
    }
    note("data " + text.substr(0, 40));
  }
  void udpSocketDidConnectToAddress(const std::shared_ptr<GCDAsyncUdpSocket>&,
                                    const SocketAddress& address) override {
    note("connected " + address.host());
  }
  void udpSocketDidNotConnect(const std::shared_ptr<GCDAsyncUdpSocket>&,
                              const GCDAsyncUdpSocketError& error) override {
    note("not connected " + error.description());
  }
  void udpSocketDidClose(const std::shared_ptr<GCDAsyncUdpSocket>&,
                         const std::optional<GCDAsyncUdpSocketError>& error) override {
    note(!error ? "closed" : "closed " + error->description());
  }
  void udpSocketDidSendDataWithTag(const std::shared_ptr<GCDAsyncUdpSocket>&,
                                   std::int64_t tag) override {
    note("sent " + std::to_string(tag));
  }
  void udpSocketDidNotSendDataWithTag(const std::shared_ptr<GCDAsyncUdpSocket>&, std::int64_t tag,
                                      const GCDAsyncUdpSocketError& error) override {
    note("not sent " + std::to_string(tag) + " " + error.description());
  }

 private:
  void note(std::string event) {
    const std::lock_guard lock(mMutex);
    mEvents.push_back(std::move(event));
    mHeard->signal();
  }

  mutable std::mutex mMutex;
  std::vector<std::string> mEvents;
  SocketAddress mLastSender;
  std::size_t mLastSize = 0;
  const std::unique_ptr<host::Semaphore> mHeard = host::current().makeSemaphore();
};

/// A socket with its listener and its queue, closed at the end.
struct UDPEnd {
  explicit UDPEnd(const std::string& label = "delegate") : queue(label) {}
  ~UDPEnd() {
    if (socket != nullptr) {
      socket->close();
    }
  }
  UDPEnd(const UDPEnd&) = delete;
  UDPEnd& operator=(const UDPEnd&) = delete;

  void send(const std::string& text, std::int64_t tag = 0) {
    socket->sendData(bytesOf(text), 1.0, tag);
  }

  host::Queue queue;
  std::shared_ptr<UDPListener> listener = std::make_shared<UDPListener>();
  std::shared_ptr<GCDAsyncUdpSocket> socket = GCDAsyncUdpSocket::initWithDelegate(listener, &queue);
};

}  // namespace velor
