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

/// A UDP socket for both IPv4 and IPv6 that never makes its owner wait for the
/// network: it runs on the queue of the network in force and tells a delegate of
/// what happens, on the delegate's queue.
///
/// Any thread may call anything, the callbacks and the filter included; it is
/// ended on any thread, and silently. Realtime-safe: no. Operations that give a
/// bool give true, or false with the error in `error` where that is not null;
/// they wait for the socket's queue, which waits for nobody.
///
/// What comes faster than the delegate takes it waits in the system's buffer and
/// is dropped there when that is full; the log tells how much with a later reading, once
/// a second at most. After `close` or its end has returned, the socket posts nothing more to
/// the queue of its delegate or its filter.
class GCDAsyncUdpSocket final : public std::enable_shared_from_this<GCDAsyncUdpSocket>,
                                private UDPNetwork::Client {
 public:
  /// Says whether a datagram may pass.
  using ReceiveFilter = DatagramDelivery::Function;

  /// No descriptor yet. The delegate is held weakly. The queue must stand until the
  /// socket is closed. Without either, every operation fails.
  static std::shared_ptr<GCDAsyncUdpSocket> initWithDelegate(
      std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate, host::Queue* delegateQueue);
  ~GCDAsyncUdpSocket();
  GCDAsyncUdpSocket(const GCDAsyncUdpSocket&) = delete;
  GCDAsyncUdpSocket& operator=(const GCDAsyncUdpSocket&) = delete;

  /// Runs the filter on `queue` for every datagram before it is delivered. An empty
  /// filter lets all pass. Ends the program when there is a filter without a queue.
  void setReceiveFilter(ReceiveFilter filter, host::Queue* queue);

  /// Binds all interfaces, by both protocols at one port; 0 has the system choose
  /// one. All descriptors are closed when it fails.
  bool bindToPort(std::uint16_t port, GCDAsyncUdpSocketError* error = nullptr);

  /// Delivers what comes from now on. Needs a bound or connected socket.
  bool beginReceiving(GCDAsyncUdpSocketError* error = nullptr);

  /// Fixes the destination, a name or an address in text. True says that the
  /// attempt has begun; the delegate hears how it ended. What is sent meanwhile
  /// waits for it.
  bool connectToHost(const std::optional<std::string>& host, std::uint16_t port,
                     GCDAsyncUdpSocketError* error = nullptr);

  /// A host with addresses of both protocols is reached by IPv4; else by its
  /// first address.
  void setPreferIPv4();
  /// Both protocols are enabled at first. Has effect on descriptors made later.
  void setIPv4Enabled(bool enabled) { setEnabled(AF_INET, enabled); }
  void setIPv6Enabled(bool enabled) { setEnabled(AF_INET6, enabled); }

  /// Lets IPv4 datagrams go to broadcast addresses, until the socket is closed.
  bool enableBroadcast(bool enabled, GCDAsyncUdpSocketError* error = nullptr);

  /// Sends a datagram to the destination after those before it. `timeout`:
  /// seconds for which it may wait for the system once its turn has come; less
  /// than 0 is for ever. Empty data is not sent. When UDPSendQueue::kMostBytes
  /// wait already it is refused: the delegate hears so, and the log once.
  void sendData(std::vector<std::uint8_t> data, double timeout, std::int64_t tag);

  bool isConnected() const { return ends().connected; }
  /// The destination's; 0 before it stands.
  std::uint16_t connectedPort() const { return ends().connectedPort; }
  /// Of the IPv4 descriptor, else of the IPv6 one; 0 and null for a closed socket.
  std::uint16_t localPort() const { return ends().localPort; }
  std::optional<std::string> localHost() const { return ends().localHost; }

  /// Nothing is received or sent any more; no datagram whose delivery has not
  /// begun is delivered. The delegate hears udpSocketDidClose if there was a
  /// descriptor. The socket is as new then.
  void close();

  /// As SocketAddress::host.
  static std::string hostFromAddress(const SocketAddress& address) { return address.host(); }
  /// False for an address of neither protocol, which leaves both alone.
  static bool getHost(std::string& host, std::uint16_t& port, const SocketAddress& address) {
    if (address.family() == AF_UNSPEC) {
      return false;
    }
    host = address.host();
    port = address.port();
    return true;
  }

 private:
  using Problem = UDPDescriptorPair::Problem;
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
  bool attempt(GCDAsyncUdpSocketError* error, Body&& body);
  template <class Body>
  void post(Body body);
  template <class Call>
  void tell(Call call);

  Problem checkDelegate() const;
  Ends ends() const;
  void setEnabled(int family, bool enabled);
  void noteEnds() KV_RUNS_ON(mQueue);
  void closeWithError(const Problem& error) KV_RUNS_ON(mQueue);

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
  // Counts the closings, for the answers to what was asked before one.
  std::uint64_t mLife KV_ON_QUEUE(mQueue) = 0;
  bool mPreferIPv4 KV_ON_QUEUE(mQueue) = false;
  bool mBound KV_ON_QUEUE(mQueue) = false;
  bool mConnecting KV_ON_QUEUE(mQueue) = false;
  bool mConnected KV_ON_QUEUE(mQueue) = false;
  bool mReceiving KV_ON_QUEUE(mQueue) = false;

  std::optional<UDPNetwork::Answer> mAnswer KV_ON_QUEUE(mQueue);  // for the connect
  std::optional<UDPSendQueue::Entry> mCurrent KV_ON_QUEUE(mQueue);
  bool mSendBlocked KV_ON_QUEUE(mQueue) = false;
  std::unique_ptr<host::Timer> mSendTimer KV_ON_QUEUE(mQueue);

  std::uint64_t mDropped KV_ON_QUEUE(mQueue) = 0;         // not yet reported
  std::uint64_t mNextDropReport KV_ON_QUEUE(mQueue) = 0;  // host time, ns

  mutable std::mutex mMutex;
  Ends mEnds;  // under mMutex
};

}  // namespace velor
