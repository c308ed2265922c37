// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "CocoaAsyncSocket/DatagramDelivery.h"
#include "CocoaAsyncSocket/GCDAsyncUdpSocketDelegate.h"
#include "CocoaAsyncSocket/GCDAsyncUdpSocketError.h"
#include "CocoaAsyncSocket/SocketAddress.h"
#include "CocoaAsyncSocket/UDPDescriptorPair.h"
#include "CocoaAsyncSocket/UDPNetwork.h"
#include "CocoaAsyncSocket/UDPSendQueue.h"
#include "platform/host/Queue.h"
#include "platform/host/Timer.h"

namespace velor {

/// A UDP socket for both IPv4 and IPv6 that never makes its owner wait for the network: it
/// runs on the queue of the current network and reports events to a delegate, on the
/// delegate's queue.
///
/// Any thread may call any operation, also from callbacks and the filter, and may end the
/// socket, which reports nothing then. Realtime-safe: no. Operations with a result wait for
/// the socket's queue, which never blocks.
///
/// Datagrams that come faster than the delegate takes them wait in the system's buffer,
/// which drops them when it is full. The log gets their number with a later reading, at most
/// once a second. After `close` or the end of the socket, it posts nothing to the queues of
/// its delegate and its filter.
class GCDAsyncUdpSocket final : public std::enable_shared_from_this<GCDAsyncUdpSocket>,
                                private UDPNetwork::Client {
 public:
  /// Returns whether a datagram may pass.
  using ReceiveFilter = DatagramDelivery::Function;
  using Result = GCDAsyncUdpSocketResult;

  /// Makes no descriptor yet. Holds the delegate weakly. The queue must live until the socket
  /// is closed. Without delegate or queue every operation fails.
  static std::shared_ptr<GCDAsyncUdpSocket> initWithDelegate(
      std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate, host::Queue* delegateQueue);
  ~GCDAsyncUdpSocket();
  GCDAsyncUdpSocket(const GCDAsyncUdpSocket&) = delete;
  GCDAsyncUdpSocket& operator=(const GCDAsyncUdpSocket&) = delete;

  /// Runs the filter on `queue` for every datagram before its delivery. An empty filter lets
  /// all pass. A filter without a queue stops the program.
  void setReceiveFilter(ReceiveFilter filter, host::Queue* queue);

  /// Binds both protocols to one port on all interfaces; 0 lets the system choose. A failure
  /// closes all descriptors.
  Result bindToPort(std::uint16_t port);

  /// Delivers all datagrams from now on. Needs a bound or connected socket.
  Result beginReceiving();

  /// Sets the destination, a name or an address as text. Success means that the attempt has
  /// begun; the delegate gets its result. Datagrams sent before that wait for it.
  Result connectToHost(const std::optional<std::string>& host, std::uint16_t port);

  /// Connects to the IPv4 address of a host that has addresses of both protocols. Default:
  /// to its first address.
  void setPreferIPv4();
  /// Default: both enabled. Takes effect on descriptors made later.
  void setIPv4Enabled(bool enabled) { setEnabled(AF_INET, enabled); }
  void setIPv6Enabled(bool enabled) { setEnabled(AF_INET6, enabled); }

  /// Allows sending to IPv4 broadcast addresses, until the socket is closed.
  Result enableBroadcast(bool enabled);

  /// Sends a datagram to the destination after all earlier ones. `timeout`: seconds that it
  /// may wait for the system once its turn has come; below 0 = for ever. Does not send empty
  /// data. Refuses when UDPSendQueue::kMostBytes are waiting: the delegate gets each refusal,
  /// the log the first.
  void sendData(std::vector<std::uint8_t> data, double timeout, std::int64_t tag);

  bool isConnected() const { return ends().connected; }
  /// Port of the destination; 0 before it is connected.
  std::uint16_t connectedPort() const { return ends().connectedPort; }
  /// The socket's own port and address: those of its IPv4 descriptor if that is open,
  /// otherwise those of its IPv6 descriptor. 0 and null for a closed socket.
  std::uint16_t localPort() const { return ends().localPort; }
  std::optional<std::string> localHost() const { return ends().localHost; }

  /// Stops receiving and sending; drops datagrams whose delivery has not begun. The delegate
  /// gets udpSocketDidClose if there was a descriptor. The socket can be bound or connected
  /// again.
  void close();

  /// As SocketAddress::host.
  static std::string hostFromAddress(const SocketAddress& address) { return address.host(); }
  /// False, and without effect, for an address of neither protocol.
  static bool getHost(std::string& host, std::uint16_t& port, const SocketAddress& address) {
    if (address.family() == AF_UNSPEC) {
      return false;
    }
    host = address.host();
    port = address.port();
    return true;
  }

 private:
  using Descriptor = UDPDescriptorPair::Descriptor;

  struct Ends {
    std::uint16_t localPort = 0;
    std::optional<std::string> localHost;
    bool connected = false;
    std::uint16_t connectedPort = 0;
  };

  GCDAsyncUdpSocket(std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate, host::Queue* delegateQueue);

  template <class Body>
  auto onQueue(Body&& body) const;
  template <class Body>
  Result attempt(Body&& body);
  template <class Body>
  void post(Body body);
  template <class Call>
  void tell(Call call);

  Result checkDelegate() const;
  Ends ends() const;
  void setEnabled(int family, bool enabled);
  void noteEnds() KV_RUNS_ON(mQueue);
  void closeWithError(const std::optional<GCDAsyncUdpSocketError>& error) KV_RUNS_ON(mQueue);

  void descriptorReady(int number) override;
  void readOn() override;
  void watch(Descriptor& descriptor) KV_RUNS_ON(mQueue);
  void receive(Descriptor& descriptor) KV_RUNS_ON(mQueue);
  void noteDropped(Descriptor& descriptor, std::uint32_t dropped) KV_RUNS_ON(mQueue);

  void finishConnect() KV_RUNS_ON(mQueue);
  const SocketAddress* chooseAddress(const std::vector<SocketAddress>& addresses)
      KV_RUNS_ON(mQueue);
  void sendWaitingLater();
  void sendWaiting() KV_RUNS_ON(mQueue);
  bool sendCurrent() KV_RUNS_ON(mQueue);
  void unblockSend() KV_RUNS_ON(mQueue);
  void tellNotSent(std::int64_t tag, GCDAsyncUdpSocketError error);

  const std::weak_ptr<GCDAsyncUdpSocketDelegate> mDelegate;
  host::Queue* const mDelegateQueue;
  const bool mOffersDidSend;
  UDPNetwork& mNetwork;
  host::Host& mHost;
  host::Queue& mQueue;
  const std::uint32_t mId;  // of the network's client
  DatagramDelivery mDelivery;
  UDPSendQueue mOutgoing;

  UDPDescriptorPair mDescriptors KV_ON_QUEUE(mQueue);
  // Counts closings, so that results of earlier look-ups are ignored.
  std::uint64_t mLife KV_ON_QUEUE(mQueue) = 0;
  bool mPreferIPv4 KV_ON_QUEUE(mQueue) = false;
  bool mBound KV_ON_QUEUE(mQueue) = false;
  bool mConnecting KV_ON_QUEUE(mQueue) = false;
  bool mConnected KV_ON_QUEUE(mQueue) = false;
  bool mReceiving KV_ON_QUEUE(mQueue) = false;

  std::optional<UDPNetwork::Answer> mAnswer KV_ON_QUEUE(mQueue);  // the look-up's
  std::optional<UDPSendQueue::Entry> mCurrent KV_ON_QUEUE(mQueue);
  bool mSendBlocked KV_ON_QUEUE(mQueue) = false;
  std::unique_ptr<host::Timer> mSendTimer KV_ON_QUEUE(mQueue);

  std::uint64_t mDropped KV_ON_QUEUE(mQueue) = 0;         // not yet reported
  std::uint64_t mNextDropReport KV_ON_QUEUE(mQueue) = 0;  // host time, ns

  mutable std::mutex mMutex;
  Ends mEnds;  // under mMutex
};

}  // namespace velor
