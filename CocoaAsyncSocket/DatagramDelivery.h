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

/// The way of what a socket has read to its delegate, through its filter. Holds
/// at most two readings: what comes faster waits with the system. A part of the
/// socket, on the network's queue where nothing else is said.
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

  /// Whom the delegate is told of, and who is kept meanwhile. Any thread, once,
  /// before anything is read.
  void setSocket(std::weak_ptr<GCDAsyncUdpSocket> socket) { mSocket = std::move(socket); }

  /// Puts the filter in force, null for none, and gives back the former one,
  /// which should end elsewhere: what it has captured may wait for this queue.
  void exchangeFilter(std::shared_ptr<const Filter>& filter);

  /// False when enough is on its way; Client::readOn is called then when one of
  /// the readings ends.
  bool mayRead();

  /// Takes over one reading.
  void deliver(DatagramBatch&& batch);

  /// Nothing that has been handed over is delivered any more, but for the
  /// datagram in the delegate's hands.
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
  // How often `forget` was called, so that what was read before is known.
  std::atomic<std::uint64_t> mForgotten{0};
  std::shared_ptr<const Filter> mFilter;
};

}  // namespace velor
