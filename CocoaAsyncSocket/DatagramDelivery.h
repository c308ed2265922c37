// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>

#include "CocoaAsyncSocket/DatagramBatch.h"
#include "CocoaAsyncSocket/GCDAsyncUdpSocketDelegate.h"
#include "CocoaAsyncSocket/SocketAddress.h"
#include "CocoaAsyncSocket/UDPNetwork.h"
#include "platform/host/Queue.h"

namespace velor {

/// Delivers the datagrams that a socket has read to its delegate, through its filter. Holds
/// at most two readings: datagrams that come faster wait in the system's buffer. Part of the
/// socket. Queue: the network's, unless stated otherwise.
class DatagramDelivery {
 public:
  using Function =
      std::function<bool(std::span<const std::uint8_t> data, const SocketAddress& address)>;
  struct Filter {
    Function function;
    host::Queue* queue;
  };

  /// `client` is the socket for the network. Any thread.
  DatagramDelivery(UDPNetwork& network, std::uint32_t client,
                   std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate, host::Queue* delegateQueue);
  DatagramDelivery(const DatagramDelivery&) = delete;
  DatagramDelivery& operator=(const DatagramDelivery&) = delete;

  /// The socket that calls name; each call keeps it alive. Any thread, once, before the first
  /// reading.
  void setSocket(std::weak_ptr<GCDAsyncUdpSocket> socket) { mSocket = std::move(socket); }

  /// Exchanges the current filter, null for none, for the given one. The former filter must
  /// end on another queue, as the end of its captures may wait for this one.
  void exchangeFilter(std::shared_ptr<const Filter>& filter);

  /// False while two readings are being delivered; Client::readOn is called when one ends.
  bool mayRead();

  /// Takes one reading.
  void deliver(DatagramBatch&& batch);

  /// Drops all datagrams taken so far, except one that the delegate is reading.
  void forget() noexcept { ++mForgotten; }

 private:
  struct InFlight;
  struct Reading;
  using ReadingRef = std::shared_ptr<Reading>;

  void deliverFiltered(const ReadingRef& reading);
  void tellDelegate(const std::shared_ptr<GCDAsyncUdpSocket>& socket, const Reading& reading,
                    const Filter* filter);

  UDPNetwork& mNetwork;
  const std::uint32_t mClient;
  const std::weak_ptr<GCDAsyncUdpSocketDelegate> mDelegate;
  host::Queue* const mDelegateQueue;
  std::weak_ptr<GCDAsyncUdpSocket> mSocket;
  const std::shared_ptr<InFlight> mInFlight;
  // Number of `forget` calls, which marks older readings.
  std::atomic<std::uint64_t> mForgotten{0};
  std::shared_ptr<const Filter> mFilter;
};

}  // namespace velor
