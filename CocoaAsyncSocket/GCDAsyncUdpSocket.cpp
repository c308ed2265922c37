// SPDX-License-Identifier: MIT
#include "CocoaAsyncSocket/GCDAsyncUdpSocket.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "platform/host/Host.h"
#include "platform/host/Log.h"

namespace velor {

namespace {

using Error = GCDAsyncUdpSocketError;

constexpr unsigned kRead = 1;
constexpr unsigned kWrite = 2;
constexpr std::uint64_t kNsPerSecond = 1'000'000'000;
// Datagrams sent in a row before the queue's other jobs run.
constexpr int kMostSendsAtOnce = 64;

}  // namespace

// --- on and off the queue

template <class Body>
auto GCDAsyncUdpSocket::onQueue(Body&& body) const {
  return mQueue.isCurrent() ? body() : mQueue.sync(body);
}

template <class Body>
GCDAsyncUdpSocketResult GCDAsyncUdpSocket::attempt(Body&& body) {
  return checkDelegate().and_then([this, &body] { return onQueue(body); });
}

// Runs the body on the queue with this socket, if it still exists.
template <class Body>
void GCDAsyncUdpSocket::post(Body body) {
  mQueue.async([&network = mNetwork, id = mId, body = std::move(body)] {
    if (UDPNetwork::Client* const client = network.client(id)) {
      body(static_cast<GCDAsyncUdpSocket&>(*client));
    }
  });
}

// Keeps the socket until the call, so that its owner can compare addresses. The last
// reference thus never ends on the socket's own queue.
template <class Call>
void GCDAsyncUdpSocket::tell(Call call) {
  if (auto self = weak_from_this().lock()) {
    mDelegateQueue->async([self = std::move(self), call = std::move(call)] {
      if (const auto delegate = self->mDelegate.lock()) {
        call(*delegate, self);
      }
    });
  }
}

std::shared_ptr<GCDAsyncUdpSocket> GCDAsyncUdpSocket::initWithDelegate(
    std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate, host::Queue* delegateQueue) {
  std::shared_ptr<GCDAsyncUdpSocket> socket(
      new GCDAsyncUdpSocket(std::move(delegate), delegateQueue));
  socket->mDelivery.setSocket(socket);
  return socket;
}

GCDAsyncUdpSocket::GCDAsyncUdpSocket(std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate,
                                     host::Queue* delegateQueue)
    : mDelegate(std::move(delegate)),
      mDelegateQueue(delegateQueue),
      mOffersDidSend([this] {
        const auto strong = mDelegate.lock();
        return strong != nullptr && strong->offersDidSend();
      }()),
      mNetwork(udpNetwork()),
      mHost(host::current()),
      mQueue(mNetwork.queue()),
      mId(onQueue([this] { return mNetwork.addClient(*this); })),
      mDelivery(mNetwork, mId, mDelegate, mDelegateQueue),
      mDescriptors(mNetwork) {}

GCDAsyncUdpSocket::~GCDAsyncUdpSocket() {
  onQueue([this] {
    mQueue.assertCurrent();
    mDescriptors.close();
    mSendTimer = nullptr;
    mNetwork.removeClient(mId);
  });
}

GCDAsyncUdpSocketResult GCDAsyncUdpSocket::checkDelegate() const {
  if (mDelegate.expired()) {
    return failure(
        Error::badConfig("Attempting to use socket without a delegate. Set a delegate first."));
  }
  if (mDelegateQueue == nullptr) {
    return failure(Error::badConfig(
        "Attempting to use socket without a delegate queue. Set a delegate queue first."));
  }
  return {};
}

void GCDAsyncUdpSocket::closeWithError(const std::optional<Error>& error) {
  const bool wasOpen = mDescriptors.isOpen();
  ++mLife;
  mBound = mConnecting = mConnected = mReceiving = false;
  mDescriptors.close();
  noteEnds();
  unblockSend();
  mAnswer.reset();
  if (!mCurrent) {
    mCurrent = mOutgoing.take();
  }
  for (; mCurrent; mCurrent = mOutgoing.take()) {
    if (!mCurrent->isConnect) {
      tellNotSent(mCurrent->tag, Error::closed());
    }
  }
  if (wasOpen && mDelegateQueue != nullptr) {
    tell([error](GCDAsyncUdpSocketDelegate& delegate, const auto& self) {
      delegate.udpSocketDidClose(self, error);
    });
  }
}

void GCDAsyncUdpSocket::noteEnds() {
  Ends ends;
  if (const auto local = mDescriptors.local()) {
    ends.localPort = local->port();
    ends.localHost = local->host();
  }
  const std::lock_guard lock(mMutex);
  mEnds = ends;
}

// --- operations

GCDAsyncUdpSocketResult GCDAsyncUdpSocket::bindToPort(std::uint16_t port) {
  return attempt([this, port]() -> Result {
    mQueue.assertCurrent();
    if (mBound && !mConnected) {
      return failure(Error::badConfig("Cannot bind a socket more than once."));
    }
    if (mConnecting || mConnected) {
      return failure(
          Error::badConfig("Cannot bind after connecting. If needed, bind first, then connect."));
    }
    Result bound = mDescriptors.checkEnabled();
    if (bound) {
      bound = mDescriptors.bind(port);
    }
    mBound = bound.has_value();
    noteEnds();
    return bound;
  });
}

GCDAsyncUdpSocketResult GCDAsyncUdpSocket::beginReceiving() {
  return attempt([this]() -> Result {
    mQueue.assertCurrent();
    if (!mBound) {
      return failure(Error::badConfig(
          "Must bind socket before you can receive data. You can do this explicitly via bind, or "
          "implicitly via connect or by sending data."));
    }
    mReceiving = true;
    readOn();
    return {};
  });
}

GCDAsyncUdpSocketResult GCDAsyncUdpSocket::connectToHost(const std::optional<std::string>& host,
                                                         std::uint16_t port) {
  return attempt([this, &host, port]() -> Result {
    mQueue.assertCurrent();
    if (mConnecting || mConnected) {
      return failure(Error::badConfig("Cannot connect a socket more than once."));
    }
    if (Result enabled = mDescriptors.checkEnabled(); !enabled) {
      return enabled;
    }
    if (!host) {
      return failure(
          Error::badParam("The host param is nil. Should be domain name or IP address string."));
    }
    if (Result made = mDescriptors.make(); !made) {
      return made;
    }
    mConnecting = true;
    noteEnds();
    mOutgoing.add({{}, 0, 0, true});
    mNetwork.resolve(*host, port,
                     [&network = mNetwork, id = mId, life = mLife](UDPNetwork::Answer answer) {
                       if (UDPNetwork::Client* const client = network.client(id)) {
                         auto& self = static_cast<GCDAsyncUdpSocket&>(*client);
                         self.mQueue.assertCurrent();
                         if (self.mLife == life) {
                           self.mAnswer = std::move(answer);
                           self.sendWaiting();
                         }
                       }
                     });
    sendWaiting();
    return {};
  });
}

GCDAsyncUdpSocketResult GCDAsyncUdpSocket::enableBroadcast(bool enabled) {
  return attempt([this, enabled]() -> Result {
    mQueue.assertCurrent();
    Result set = mDescriptors.setBroadcast(enabled);
    if (!mConnected) {
      noteEnds();
    }
    return set;
  });
}

void GCDAsyncUdpSocket::setPreferIPv4() {
  onQueue([this] {
    mQueue.assertCurrent();
    mPreferIPv4 = true;
  });
}

void GCDAsyncUdpSocket::setEnabled(int family, bool enabled) {
  onQueue([this, family, enabled] {
    mQueue.assertCurrent();
    mDescriptors.setEnabled(family, enabled);
  });
}

void GCDAsyncUdpSocket::setReceiveFilter(ReceiveFilter filter, host::Queue* queue) {
  std::shared_ptr<const DatagramDelivery::Filter> replacement;
  if (filter) {
    if (queue == nullptr) {
      constexpr const char* kText =
          "Must provide a dispatch_queue in which to run the filter block.";
      std::fprintf(stderr, "assertion failed: %s\n", kText);
      VELOR_LOG_ERROR("assertion failed: %s", kText);
      std::abort();
    }
    replacement = std::make_shared<DatagramDelivery::Filter>(
        DatagramDelivery::Filter{std::move(filter), queue});
  }
  // The former filter ends on the caller's thread, not on that of all sockets.
  onQueue([this, &replacement] { mDelivery.exchangeFilter(replacement); });
}

GCDAsyncUdpSocket::Ends GCDAsyncUdpSocket::ends() const {
  const std::lock_guard lock(mMutex);
  return mEnds;
}

void GCDAsyncUdpSocket::close() {
  onQueue([this] {
    mQueue.assertCurrent();
    mDelivery.forget();
    closeWithError(std::nullopt);
  });
}

// --- receiving

void GCDAsyncUdpSocket::descriptorReady(int number) {
  mQueue.assertCurrent();
  Descriptor& descriptor =
      mDescriptors.of(number == mDescriptors.of(AF_INET).number ? AF_INET : AF_INET6);
  if (descriptor.number != number) {
    return;
  }
  descriptor.watched = 0;
  if (mSendBlocked) {
    sendWaiting();
  }
  if (mReceiving && mDelivery.mayRead()) {
    receive(descriptor);
  }
  watch(descriptor);
}

void GCDAsyncUdpSocket::readOn() {
  mQueue.assertCurrent();
  watch(mDescriptors.of(AF_INET));
  watch(mDescriptors.of(AF_INET6));
}

// Watches only for the events needed: a descriptor with an error would report it without end.
void GCDAsyncUdpSocket::watch(Descriptor& descriptor) {
  if (!descriptor.isOpen()) {
    return;
  }
  const unsigned wanted =
      (mReceiving && mDelivery.mayRead() ? kRead : 0U) | (mSendBlocked ? kWrite : 0U);
  if (wanted == 0 || wanted == descriptor.watched) {
    return;
  }
  descriptor.watched = wanted;
  const int result =
      mNetwork.watch(descriptor.number, mId, (wanted & kRead) != 0, (wanted & kWrite) != 0);
  if (result < 0) {
    closeWithError(Error::posix(-result, "Error in epoll_ctl() function"));
  }
}

void GCDAsyncUdpSocket::receive(Descriptor& descriptor) {
  DatagramBatch batch;
  const int result = mNetwork.recvmmsg(descriptor.number, batch);
  if (result == -EAGAIN || result == -EWOULDBLOCK || result == -EINTR) {
    return;
  }
  if (result < 0) {
    closeWithError(Error::posix(-result, "Error in recvfrom() function"));
    return;
  }
  if (batch.dropped != 0) {
    noteDropped(descriptor, batch.dropped);
  }
  if (batch.count() > 0) {
    mDelivery.deliver(std::move(batch));
  }
}

void GCDAsyncUdpSocket::noteDropped(Descriptor& descriptor, std::uint32_t dropped) {
  const std::uint32_t more = dropped - descriptor.dropped;  // both wrap
  descriptor.dropped = dropped;
  mDropped += more;
  const std::uint64_t now = mHost.AudioGetCurrentHostTime();
  if (mDropped == 0 || now < mNextDropReport) {
    return;
  }
  VELOR_LOG_WARNING("udp socket at port %u: %" PRIu64
                    " datagrams dropped: they came faster than they were read",
                    unsigned{localPort()}, mDropped);
  mDropped = 0;
  mNextDropReport = now + kNsPerSecond;
}

// --- connecting and sending

void GCDAsyncUdpSocket::sendData(std::vector<std::uint8_t> data, double timeout, std::int64_t tag) {
  if (data.empty()) {
    return;
  }
  const auto added = mOutgoing.add({std::move(data), timeout, tag});
  if (added == UDPSendQueue::Added::andWake) {
    sendWaitingLater();
    return;
  }
  if (added == UDPSendQueue::Added::firstRefused) {
    VELOR_LOG_WARNING("udp socket: too much data waiting; refusing new datagrams");
  }
  if (added != UDPSendQueue::Added::yes) {
    post([tag](GCDAsyncUdpSocket& self) {
      self.tellNotSent(tag, Error::other("Too much data waiting to be sent."));
    });
  }
}

void GCDAsyncUdpSocket::sendWaitingLater() {
  post([](GCDAsyncUdpSocket& self) {
    self.mQueue.assertCurrent();
    self.sendWaiting();
  });
}

void GCDAsyncUdpSocket::sendWaiting() {
  for (int sent = 0; sent < kMostSendsAtOnce; ++sent) {
    if (!mCurrent) {
      mCurrent = mOutgoing.take();
    }
    if (!mCurrent) {
      return;
    }
    if (mCurrent->isConnect) {
      if (!mAnswer) {
        return;
      }
      finishConnect();
    } else if (!sendCurrent()) {
      return;
    }
    mCurrent.reset();
  }
  sendWaitingLater();
}

void GCDAsyncUdpSocket::finishConnect() {
  const UDPNetwork::Answer answer = std::move(*mAnswer);
  mAnswer.reset();
  mConnecting = false;

  const SocketAddress* const chosen = chooseAddress(answer.addresses);
  Result connected;
  if (answer.code != 0) {
    connected = failure(Error::netDB(answer.code));
  } else if (chosen == nullptr) {
    connected = failure(Error::other("The host has no address of a protocol that is enabled."));
  } else {
    connected = mDescriptors.connect(*chosen);
  }
  if (!connected) {
    tell([error = std::move(connected.error())](GCDAsyncUdpSocketDelegate& delegate,
                                                const auto& self) {
      delegate.udpSocketDidNotConnect(self, error);
    });
    return;
  }
  mBound = mConnected = true;
  noteEnds();
  {
    const std::lock_guard lock(mMutex);
    mEnds.connected = true;
    mEnds.connectedPort = chosen->port();
  }
  tell([address = *chosen](GCDAsyncUdpSocketDelegate& delegate, const auto& self) {
    delegate.udpSocketDidConnectToAddress(self, address);
  });
}

// Null when no address has the family of an open descriptor.
const SocketAddress* GCDAsyncUdpSocket::chooseAddress(const std::vector<SocketAddress>& addresses) {
  const SocketAddress* chosen = nullptr;
  for (const SocketAddress& each : addresses) {
    const bool better = chosen == nullptr ||
                        (mPreferIPv4 && chosen->family() == AF_INET6 && each.family() == AF_INET);
    if (better && mDescriptors.of(each.family()).isOpen()) {
      chosen = &each;
    }
  }
  return chosen;
}

// False when the system has no room yet; the datagram waits.
bool GCDAsyncUdpSocket::sendCurrent() {
  Descriptor& descriptor = mDescriptors.first();
  const std::int64_t tag = mCurrent->tag;
  if (!mConnected) {
    tellNotSent(tag, Error::badConfig("Must connect socket before you can send data."));
    return true;
  }
  int result = mNetwork.send(descriptor.number, mCurrent->data);
  if (result == -ECONNREFUSED || result == -EINTR) {
    // The error is that of an earlier datagram; this one has not been sent.
    result = mNetwork.send(descriptor.number, mCurrent->data);
  }
  if (result == -EAGAIN || result == -EWOULDBLOCK) {
    if (!mSendBlocked && mCurrent->timeout >= 0) {
      mSendTimer = std::make_unique<host::Timer>(mQueue, [this] {
        mQueue.assertCurrent();
        tellNotSent(mCurrent->tag, Error::sendTimeout());
        unblockSend();
        mCurrent.reset();
        sendWaiting();
      });
      mSendTimer->setDeadline(
          mHost.AudioGetCurrentHostTime() +
          static_cast<std::uint64_t>(mCurrent->timeout * static_cast<double>(kNsPerSecond)));
      mSendTimer->resume();
    }
    mSendBlocked = true;
    watch(descriptor);
    return false;
  }
  unblockSend();
  if (result < 0) {
    tellNotSent(tag, Error::posix(-result, "Error in send() function."));
  } else if (mOffersDidSend) {
    tell([tag](GCDAsyncUdpSocketDelegate& delegate, const auto& self) {
      delegate.udpSocketDidSendDataWithTag(self, tag);
    });
  }
  return true;
}

void GCDAsyncUdpSocket::unblockSend() {
  mSendBlocked = false;
  mSendTimer = nullptr;  // its handler runs on this queue, so not after this
}

void GCDAsyncUdpSocket::tellNotSent(std::int64_t tag, Error error) {
  if (mDelegateQueue != nullptr) {
    tell([tag, error = std::move(error)](GCDAsyncUdpSocketDelegate& delegate, const auto& self) {
      delegate.udpSocketDidNotSendDataWithTag(self, tag, error);
    });
  }
}

}  // namespace velor
