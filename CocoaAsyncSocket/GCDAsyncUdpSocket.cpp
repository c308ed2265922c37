// SPDX-License-Identifier: MIT
#include "CocoaAsyncSocket/GCDAsyncUdpSocket.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "CocoaAsyncSocket/GCDAsyncUdpSocketSendDelegate.h"
#include "platform/host/Host.h"
#include "platform/host/Log.h"

namespace velor {

namespace {

using Error = GCDAsyncUdpSocketError;

constexpr unsigned kRead = 1;
constexpr unsigned kWrite = 2;
constexpr std::uint64_t kNsPerSecond = 1'000'000'000;
// Readings that may be on their way to the delegate: one in its hands, and one
// that it finds when it is done. The rest waits in the system's bounded buffer.
constexpr int kReadingsAhead = 2;
// Datagrams sent before the queue's other jobs have their turn.
constexpr int kMostSendsAtOnce = 64;
// Ports of the system's choice that are tried before one is free for both protocols.
constexpr int kMostPortsTried = 16;

}  // namespace

// Readings that are not done with; shared with them, since they may end anywhere.
struct GCDAsyncUdpSocket::InFlight {
  UDPNetwork& network;
  std::uint32_t client;
  std::atomic<int> count{0};
  std::atomic<bool> paused{false};  // reading waits for the count to fall
};

// One reading, until every datagram in it is done with.
struct GCDAsyncUdpSocket::Received : DatagramBatch {
  Received() = default;
  Received(const Received&) = delete;
  Received& operator=(const Received&) = delete;
  ~Received() {
    if (inFlight == nullptr) {
      return;
    }
    --inFlight->count;
    if (inFlight->paused.exchange(false)) {
      inFlight->network.queue().async([&network = inFlight->network, id = inFlight->client] {
        if (UDPNetwork::Client* const client = network.client(id)) {
          auto& socket = static_cast<GCDAsyncUdpSocket&>(*client);
          socket.mQueue.assertCurrent();
          socket.watch(socket.mSocket4);
          socket.watch(socket.mSocket6);
        }
      });
    }
  }

  std::uint64_t closes = 0;
  std::shared_ptr<InFlight> inFlight;
  std::vector<std::any> contexts;  // for a filter on a queue of its own
};

// --- on and off the queue

template <class Body>
auto GCDAsyncUdpSocket::onQueue(Body&& body) const {
  return mQueue.isCurrent() ? body() : mQueue.sync(body);
}

// Body: gives a problem or none.
template <class Body>
bool GCDAsyncUdpSocket::attempt(Error* error, Body&& body) {
  Problem problem = checkDelegate();
  if (!problem) {
    problem = onQueue(body);
  }
  if (problem && error != nullptr) {
    *error = std::move(*problem);
  }
  return !problem;
}

// Runs the body on the queue, with this socket if it is still there.
template <class Body>
void GCDAsyncUdpSocket::post(Body body, std::uint64_t delay) {
  auto job = [&network = mNetwork, id = mId, body = std::move(body)] {
    if (UDPNetwork::Client* const client = network.client(id)) {
      body(static_cast<GCDAsyncUdpSocket&>(*client));
    }
  };
  if (delay == 0) {
    mQueue.async(std::move(job));
  } else {
    mQueue.after(delay, std::move(job));
  }
}

// The socket is kept until the call, so that its owner knows it by its address.
// On its own queue it is only ever lent, so that it never ends there.
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
  return std::shared_ptr<GCDAsyncUdpSocket>(
      new GCDAsyncUdpSocket(std::move(delegate), delegateQueue));
}

GCDAsyncUdpSocket::GCDAsyncUdpSocket(std::weak_ptr<GCDAsyncUdpSocketDelegate> delegate,
                                     host::Queue* delegateQueue)
    : mDelegate(std::move(delegate)),
      mDelegateQueue(delegateQueue),
      mTellsOfSends(dynamic_cast<GCDAsyncUdpSocketSendDelegate*>(mDelegate.lock().get()) !=
                    nullptr),
      mNetwork(udpNetwork()),
      mHost(host::current()),
      mQueue(mNetwork.queue()),
      mId(onQueue([this] { return mNetwork.addClient(*this); })),
      mInFlight(new InFlight{mNetwork, mId}) {}

GCDAsyncUdpSocket::~GCDAsyncUdpSocket() {
  onQueue([this] {
    mQueue.assertCurrent();
    closeDescriptors();
    mSendTimer = nullptr;
    mNetwork.removeClient(mId);
  });
}

GCDAsyncUdpSocket::Problem GCDAsyncUdpSocket::checkDelegate() const {
  if (mDelegate.expired()) {
    return Error::badConfig("Attempting to use socket without a delegate. Set a delegate first.");
  }
  if (mDelegateQueue == nullptr) {
    return Error::badConfig(
        "Attempting to use socket without a delegate queue. Set a delegate queue first.");
  }
  return {};
}

// --- descriptors

GCDAsyncUdpSocket::Problem GCDAsyncUdpSocket::checkEnabled() const {
  if (!mIPv4Enabled && !mIPv6Enabled) {
    return Error::badConfig(
        "Both IPv4 and IPv6 have been disabled. Must enable at least one protocol first.");
  }
  return {};
}

GCDAsyncUdpSocket::Problem GCDAsyncUdpSocket::makeDescriptors() {
  if (mSocket4.number >= 0 || mSocket6.number >= 0) {
    return {};
  }
  Problem problem;
  if (mIPv4Enabled) {
    problem = prepare(mSocket4);
  }
  if (!problem && mIPv6Enabled) {
    problem = prepare(mSocket6);
  }
  if (problem) {
    closeDescriptors();
  }
  noteEnds();
  return problem;
}

GCDAsyncUdpSocket::Problem GCDAsyncUdpSocket::prepare(Descriptor& descriptor) {
  const int number = mNetwork.socket(descriptor.family);
  if (number < 0) {
    return Error::posix(-number, "Error in socket() function");
  }
  descriptor = {descriptor.family, number};
  if (const int result = mNetwork.setNonBlocking(number); result < 0) {
    return Error::posix(-result, "Error enabling non-blocking IO on socket (fcntl)");
  }
  int result = 0;
  if (descriptor.family == AF_INET6) {
    // The IPv4 descriptor takes what comes by IPv4, at the same port.
    result = mNetwork.setsockopt(number, IPPROTO_IPV6, IPV6_V6ONLY, 1);
  } else if (mBroadcast) {
    result = mNetwork.setsockopt(number, SOL_SOCKET, SO_BROADCAST, 1);
  }
  if (result < 0) {
    return Error::posix(-result, "Error in setsockopt() function");
  }
  // A system that does not count what it drops is no reason to fail.
  mNetwork.setsockopt(number, SOL_SOCKET, SO_RXQ_OVFL, 1);
  return {};
}

// Only after the descriptor has its port: two that both allow reuse beforehand
// share a port here, and one takes all datagrams of the other without a word.
GCDAsyncUdpSocket::Problem GCDAsyncUdpSocket::allowReuse(const Descriptor& descriptor) {
  const int result = mNetwork.setsockopt(descriptor.number, SOL_SOCKET, SO_REUSEADDR, 1);
  if (result < 0) {
    return Error::posix(-result, "Error enabling address reuse (setsockopt)");
  }
  return {};
}

GCDAsyncUdpSocket::Problem GCDAsyncUdpSocket::bindDescriptors(std::uint16_t port) {
  for (Descriptor* const descriptor : {&mSocket4, &mSocket6}) {
    if (descriptor->number < 0) {
      continue;
    }
    const auto address = SocketAddress::wildcard(descriptor->family, port);
    if (const int result = mNetwork.bind(descriptor->number, address); result < 0) {
      return Error::posix(-result, "Error in bind() function");
    }
    if (Problem problem = allowReuse(*descriptor)) {
      return problem;
    }
    SocketAddress bound;
    if (mNetwork.getsockname(descriptor->number, bound) >= 0) {
      port = bound.port();  // which the system may have chosen, for both then
    }
  }
  return {};
}

void GCDAsyncUdpSocket::closeDescriptor(Descriptor& descriptor) {
  if (descriptor.number >= 0) {
    mNetwork.close(descriptor.number);
    descriptor = {descriptor.family};
  }
}

void GCDAsyncUdpSocket::closeDescriptors() {
  closeDescriptor(mSocket4);
  closeDescriptor(mSocket6);
  noteEnds();
}

void GCDAsyncUdpSocket::closeWithError(const Problem& error) {
  const bool wasOpen = mSocket4.number >= 0 || mSocket6.number >= 0;
  ++mLife;
  mBound = mConnecting = mConnected = mReceiving = mBroadcast = false;
  closeDescriptors();
  unblockSend();
  mAnswer.reset();

  std::deque<Outgoing> unsent;
  {
    const std::lock_guard lock(mMutex);
    unsent.swap(mOutgoing);
    mOutgoingBytes = 0;
    mSendPosted = false;
  }
  if (mCurrent) {
    unsent.push_front(std::move(*mCurrent));
    mCurrent.reset();
  }
  for (const Outgoing& each : unsent) {
    if (!each.isConnect) {
      tellNotSent(each.tag, Error::closed());
    }
  }
  if (wasOpen && mDelegateQueue != nullptr) {
    tell([error](GCDAsyncUdpSocketDelegate& delegate, const auto& self) {
      delegate.udpSocketDidClose(self, error ? &*error : nullptr);
    });
  }
}

void GCDAsyncUdpSocket::noteEnds() {
  Ends ends;
  const Descriptor& descriptor = mSocket4.number >= 0 ? mSocket4 : mSocket6;
  if (SocketAddress local;
      descriptor.number >= 0 && mNetwork.getsockname(descriptor.number, local) >= 0) {
    ends.localPort = local.port();
    ends.localHost = local.host();
  }
  const std::lock_guard lock(mMutex);
  mEnds = ends;
}

// --- operations

bool GCDAsyncUdpSocket::bindToPort(std::uint16_t port, Error* error) {
  return attempt(error, [this, port]() -> Problem {
    mQueue.assertCurrent();
    if (mBound && !mConnected) {
      return Error::badConfig("Cannot bind a socket more than once.");
    }
    if (mConnecting || mConnected) {
      return Error::badConfig("Cannot bind after connecting. If needed, bind first, then connect.");
    }
    Problem problem = checkEnabled();
    for (int tried = 0; !problem; ++tried) {
      problem = makeDescriptors();
      if (!problem) {
        problem = bindDescriptors(port);
      }
      if (!problem) {
        break;
      }
      closeDescriptors();
      if (port == 0 && problem->code == EADDRINUSE && tried < kMostPortsTried) {
        problem.reset();
      }
    }
    if (!problem) {
      mBound = true;
      noteEnds();
    }
    return problem;
  });
}

bool GCDAsyncUdpSocket::beginReceiving(Error* error) {
  return attempt(error, [this]() -> Problem {
    mQueue.assertCurrent();
    if (!mBound) {
      return Error::badConfig(
          "Must bind socket before you can receive data. You can do this explicitly via bind, or "
          "implicitly via connect or by sending data.");
    }
    mReceiving = true;
    watch(mSocket4);
    watch(mSocket6);
    return {};
  });
}

bool GCDAsyncUdpSocket::connectToHost(const std::optional<std::string>& host, std::uint16_t port,
                                      Error* error) {
  return attempt(error, [this, &host, port]() -> Problem {
    mQueue.assertCurrent();
    if (mConnecting || mConnected) {
      return Error::badConfig("Cannot connect a socket more than once.");
    }
    Problem problem = checkEnabled();
    if (!problem && !host) {
      problem =
          Error::badParam("The host param is nil. Should be domain name or IP address string.");
    }
    if (!problem) {
      problem = makeDescriptors();
    }
    if (problem) {
      return problem;
    }
    mConnecting = true;
    {
      const std::lock_guard lock(mMutex);
      mOutgoing.push_back({{}, 0, 0, true});
      mSendPosted = true;
    }
    mNetwork.resolve(*host, port,
                     [&network = mNetwork, id = mId, life = mLife](UDPNameResolver::Answer answer) {
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

bool GCDAsyncUdpSocket::enableBroadcast(bool enabled, Error* error) {
  return attempt(error, [this, enabled]() -> Problem {
    mQueue.assertCurrent();
    Problem problem = makeDescriptors();
    if (!problem && mSocket4.number >= 0) {
      const int result =
          mNetwork.setsockopt(mSocket4.number, SOL_SOCKET, SO_BROADCAST, enabled ? 1 : 0);
      if (result < 0) {
        problem = Error::posix(-result, "Error in setsockopt() function");
      }
    }
    if (!problem) {
      mBroadcast = enabled;
    }
    return problem;
  });
}

void GCDAsyncUdpSocket::setPreferIPv4() {
  onQueue([this] {
    mQueue.assertCurrent();
    mPreferIPv4 = true;
  });
}

void GCDAsyncUdpSocket::setIPv4Enabled(bool enabled) {
  onQueue([this, enabled] {
    mQueue.assertCurrent();
    mIPv4Enabled = enabled;
  });
}

void GCDAsyncUdpSocket::setIPv6Enabled(bool enabled) {
  onQueue([this, enabled] {
    mQueue.assertCurrent();
    mIPv6Enabled = enabled;
  });
}

void GCDAsyncUdpSocket::setReceiveFilter(ReceiveFilter filter, host::Queue* queue,
                                         bool isAsynchronous) {
  std::shared_ptr<const Filter> replacement;
  if (filter) {
    if (queue == nullptr) {
      constexpr const char* kText =
          "Must provide a dispatch_queue in which to run the filter block.";
      std::fprintf(stderr, "assertion failed: %s\n", kText);
      VELOR_LOG_ERROR("assertion failed: %s", kText);
      std::abort();
    }
    replacement = std::make_shared<Filter>(Filter{std::move(filter), queue, isAsynchronous});
  }
  // What was in force ends on the caller's thread, not on the one of all sockets.
  onQueue([this, &replacement] {
    mQueue.assertCurrent();
    mFilter.swap(replacement);
  });
}

bool GCDAsyncUdpSocket::isConnected() const {
  const std::lock_guard lock(mMutex);
  return mEnds.connected;
}

std::uint16_t GCDAsyncUdpSocket::connectedPort() const {
  const std::lock_guard lock(mMutex);
  return mEnds.connectedPort;
}

std::uint16_t GCDAsyncUdpSocket::localPort() const {
  const std::lock_guard lock(mMutex);
  return mEnds.localPort;
}

std::optional<std::string> GCDAsyncUdpSocket::localHost() const {
  const std::lock_guard lock(mMutex);
  return mEnds.localHost;
}

void GCDAsyncUdpSocket::close() {
  ++mCloses;
  onQueue([this] {
    mQueue.assertCurrent();
    closeWithError({});
  });
}

bool GCDAsyncUdpSocket::getHost(std::string& host, std::uint16_t& port,
                                const SocketAddress& address) {
  if (address.family() == AF_UNSPEC) {
    return false;
  }
  host = address.host();
  port = address.port();
  return true;
}

// --- receiving

void GCDAsyncUdpSocket::descriptorReady(int number) {
  mQueue.assertCurrent();
  Descriptor& descriptor = number == mSocket4.number ? mSocket4 : mSocket6;
  if (descriptor.number != number) {
    return;
  }
  descriptor.watched = 0;
  if (mSendBlocked) {
    sendWaiting();
  }
  if (mReceiving && mayRead()) {
    receive(descriptor);
  }
  watch(descriptor);
}

// A descriptor is watched only for what is wanted of it: one with an error would
// report that without end.
void GCDAsyncUdpSocket::watch(Descriptor& descriptor) {
  if (descriptor.number < 0) {
    return;
  }
  const unsigned wanted = (mReceiving && mayRead() ? kRead : 0U) | (mSendBlocked ? kWrite : 0U);
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

// False when enough is on its way to the delegate; the end of a reading calls
// `watch` then.
bool GCDAsyncUdpSocket::mayRead() {
  const bool oneByOne =
      mFilter != nullptr && !mFilter->asynchronous && mFilter->queue != mDelegateQueue;
  const int limit = oneByOne ? 1 : kReadingsAhead;
  if (mInFlight->count.load() < limit) {
    return true;
  }
  mInFlight->paused.store(true);
  return mInFlight->count.load() < limit;  // one that ended before it saw the word
}

void GCDAsyncUdpSocket::receive(Descriptor& descriptor) {
  auto received = std::make_shared<Received>();
  const int result = mNetwork.recvmmsg(descriptor.number, *received);
  if (result == -EAGAIN || result == -EWOULDBLOCK || result == -EINTR) {
    return;
  }
  if (result < 0) {
    closeWithError(Error::posix(-result, "Error in recvfrom() function"));
    return;
  }
  if (received->dropped != 0) {
    noteDropped(descriptor, received->dropped);
  }
  if (received->count() > 0) {
    received->closes = mCloses.load();
    received->inFlight = mInFlight;
    ++mInFlight->count;
    handOver(std::move(received));
  }
}

void GCDAsyncUdpSocket::handOver(std::shared_ptr<Received> received) {
  if (mFilter == nullptr || mFilter->queue == mDelegateQueue) {
    // Filter and delegate share a queue, which would take turns between them.
    if (auto self = weak_from_this().lock()) {
      mDelegateQueue->async(
          [self = std::move(self), received = std::move(received), filter = mFilter] {
            self->deliver(*received, 0, received->count(), filter.get());
          });
    }
    return;
  }
  received->contexts.resize(received->count());
  const std::size_t atOnce = mFilter->asynchronous ? received->count() : 1;
  for (std::size_t i = 0; i < atOnce; ++i) {
    filterNext(received, i);
  }
}

// On the delegate's queue.
void GCDAsyncUdpSocket::deliver(const Received& received, std::size_t first, std::size_t last,
                                const Filter* filter) {
  const auto delegate = mDelegate.lock();
  if (delegate == nullptr) {
    return;
  }
  const auto self = shared_from_this();
  for (std::size_t i = first; i < last && received.closes == mCloses.load(); ++i) {
    std::any context;
    if (filter != nullptr) {
      if (!filter->function(received.data(i), received.from(i), context) ||
          received.closes != mCloses.load()) {
        continue;
      }
    } else if (!received.contexts.empty()) {
      context = received.contexts[i];
    }
    delegate->udpSocketDidReceiveData(self, received.data(i), received.from(i), context);
  }
}

void GCDAsyncUdpSocket::filterNext(const std::shared_ptr<Received>& received, std::size_t index) {
  if (mFilter == nullptr) {  // taken away meanwhile
    filterEnded(received, index, true, false);
  } else if (auto self = weak_from_this().lock()) {
    mFilter->queue->async([self = std::move(self), received, index, filter = mFilter] {
      const bool passed =
          received->closes == self->mCloses.load() &&
          filter->function(received->data(index), received->from(index), received->contexts[index]);
      self->post([received, index, passed,
                  asynchronous = filter->asynchronous](GCDAsyncUdpSocket& socket) {
        socket.mQueue.assertCurrent();
        socket.filterEnded(received, index, passed, asynchronous);
      });
    });
  }
}

void GCDAsyncUdpSocket::filterEnded(const std::shared_ptr<Received>& received, std::size_t index,
                                    bool passed, bool asynchronous) {
  if (received->closes != mCloses.load()) {
    return;
  }
  if (passed) {
    if (auto self = weak_from_this().lock()) {
      mDelegateQueue->async([self = std::move(self), received, index] {
        self->deliver(*received, index, index + 1, nullptr);
      });
    }
  }
  if (!asynchronous && index + 1 < received->count()) {
    filterNext(received, index + 1);
  }
}

void GCDAsyncUdpSocket::noteDropped(Descriptor& descriptor, std::uint32_t dropped) {
  const std::uint32_t more = dropped - descriptor.dropped;  // both wrap
  descriptor.dropped = dropped;
  mDropped += more;
  if (more == 0 || mDropReportDue) {
    return;
  }
  const std::uint64_t now = mHost.AudioGetCurrentHostTime();
  if (now >= mNextDropReport) {
    reportDropped();
  } else {
    mDropReportDue = true;
    post(
        [](GCDAsyncUdpSocket& self) {
          self.mQueue.assertCurrent();
          self.reportDropped();
        },
        mNextDropReport - now);
  }
}

void GCDAsyncUdpSocket::reportDropped() {
  VELOR_LOG_WARNING("udp socket at port %u: %" PRIu64
                    " datagrams came faster than they were taken and were dropped",
                    unsigned{localPort()}, mDropped);
  mDropped = 0;
  mDropReportDue = false;
  mNextDropReport = mHost.AudioGetCurrentHostTime() + kNsPerSecond;
}

// --- connecting and sending

void GCDAsyncUdpSocket::sendData(std::vector<std::uint8_t> data, double timeout, std::int64_t tag) {
  if (data.empty()) {
    return;
  }
  bool refused = false;
  bool firstRefused = false;
  bool wake = false;
  {
    const std::lock_guard lock(mMutex);
    const std::size_t bytes = data.size() + kSendOverhead;
    refused = mOutgoingBytes + bytes > kMostBytesWaiting;
    if (!refused) {
      mOutgoingBytes += bytes;
      mOutgoing.push_back({std::move(data), timeout, tag});
      wake = !std::exchange(mSendPosted, true);
    }
    firstRefused = refused && !mRefusing;
    mRefusing = refused;
  }
  if (firstRefused) {
    VELOR_LOG_WARNING("udp socket: too much waits to be sent, new datagrams are not taken");
  }
  if (refused && mTellsOfSends) {
    post([tag](GCDAsyncUdpSocket& self) {
      self.tellNotSent(tag, Error::other("Too much data waits to be sent."));
    });
  }
  if (wake) {
    post([](GCDAsyncUdpSocket& self) {
      self.mQueue.assertCurrent();
      self.sendWaiting();
    });
  }
}

void GCDAsyncUdpSocket::sendWaiting() {
  for (int sent = 0; sent < kMostSendsAtOnce; ++sent) {
    if (!mCurrent) {
      const std::lock_guard lock(mMutex);
      if (mOutgoing.empty()) {
        mSendPosted = false;
        return;
      }
      mCurrent = std::move(mOutgoing.front());
      mOutgoing.pop_front();
      mOutgoingBytes -= mCurrent->isConnect ? 0 : mCurrent->data.size() + kSendOverhead;
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
  post([](GCDAsyncUdpSocket& self) {
    self.mQueue.assertCurrent();
    self.sendWaiting();
  });
}

void GCDAsyncUdpSocket::finishConnect() {
  const UDPNameResolver::Answer answer = std::move(*mAnswer);
  mAnswer.reset();
  mConnecting = false;

  const SocketAddress* chosen = nullptr;
  for (const SocketAddress& each : answer.addresses) {
    const Descriptor& descriptor = each.family() == AF_INET ? mSocket4 : mSocket6;
    const bool better = chosen == nullptr ||
                        (mPreferIPv4 && chosen->family() == AF_INET6 && each.family() == AF_INET);
    if (descriptor.number >= 0 && better) {
      chosen = &each;
    }
  }
  Problem problem;
  if (answer.code != 0) {
    problem = Error::netDB(answer.code);
  } else if (chosen == nullptr) {
    problem = Error::other("The host has no address of a protocol that is enabled.");
  } else {
    problem = connectTo(chosen->family() == AF_INET ? mSocket4 : mSocket6, *chosen);
  }
  if (problem) {
    tell([error = std::move(*problem)](GCDAsyncUdpSocketDelegate& delegate, const auto& self) {
      delegate.udpSocketDidNotConnect(self, error);
    });
    return;
  }
  closeDescriptor(chosen->family() == AF_INET ? mSocket6 : mSocket4);
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

GCDAsyncUdpSocket::Problem GCDAsyncUdpSocket::connectTo(Descriptor& descriptor,
                                                        const SocketAddress& address) {
  int result = mNetwork.connect(descriptor.number, address);
  if (result == -EACCES && descriptor.family == AF_INET && !mBroadcast) {
    // A broadcast address. Whether it may be sent to is asked at the send, since
    // broadcast is enabled after the connect has begun.
    mNetwork.setsockopt(descriptor.number, SOL_SOCKET, SO_BROADCAST, 1);
    result = mNetwork.connect(descriptor.number, address);
    mNetwork.setsockopt(descriptor.number, SOL_SOCKET, SO_BROADCAST, 0);
  }
  if (result < 0) {
    return Error::posix(-result, "Error in connect() function");
  }
  return allowReuse(descriptor);
}

// False when the system has no room yet.
bool GCDAsyncUdpSocket::sendCurrent() {
  Descriptor& descriptor = mSocket4.number >= 0 ? mSocket4 : mSocket6;
  const std::int64_t tag = mCurrent->tag;
  if (!mConnected) {
    tellNotSent(tag, Error::badConfig("Must connect socket before you can send data."));
    return true;
  }
  int result = mNetwork.send(descriptor.number, mCurrent->data);
  if (result == -ECONNREFUSED || result == -EINTR) {
    // Refused was the datagram before; this one has not been sent at all.
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
  } else if (mTellsOfSends) {
    tell([tag](GCDAsyncUdpSocketDelegate& delegate, const auto& self) {
      dynamic_cast<GCDAsyncUdpSocketSendDelegate&>(delegate).udpSocketDidSendDataWithTag(self, tag);
    });
  }
  return true;
}

void GCDAsyncUdpSocket::unblockSend() {
  mSendBlocked = false;
  mSendTimer = nullptr;  // one that is about to run does not, since it runs here
}

void GCDAsyncUdpSocket::tellNotSent(std::int64_t tag, Error error) {
  if (mTellsOfSends && mDelegateQueue != nullptr) {
    tell([tag, error = std::move(error)](GCDAsyncUdpSocketDelegate& delegate, const auto& self) {
      dynamic_cast<GCDAsyncUdpSocketSendDelegate&>(delegate).udpSocketDidNotSendDataWithTag(
          self, tag, error);
    });
  }
}

}  // namespace velor
