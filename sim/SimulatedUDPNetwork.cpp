// SPDX-License-Identifier: MIT
#include "sim/SimulatedUDPNetwork.h"

#include <netdb.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "platform/host/Host.h"

namespace velor {

namespace {

constexpr std::size_t kLargestPayload = 65'507;   // RFC 768 in an IPv4 packet
constexpr std::uint16_t kFirstFreePort = 49'152;  // RFC 6335

bool isWildcard(const SocketAddress& address) {
  return address == SocketAddress::wildcard(address.family(), address.port());
}

bool isBroadcast(const SocketAddress& address) {
  return address.family() == AF_INET && address.host().ends_with(".255");
}

bool isThisMachine(const SocketAddress& address) {
  return address.host().starts_with("127.") || address.host() == "::1" || isWildcard(address);
}

}  // namespace

SimulatedUDPNetwork::SimulatedUDPNetwork() {
  addHost("localhost",
          {*SocketAddress::fromText("::1", 0), *SocketAddress::fromText("127.0.0.1", 0)});
  startThread();
}

SimulatedUDPNetwork::~SimulatedUDPNetwork() {
  endThread();
}

void SimulatedUDPNetwork::addHost(const std::string& name, std::vector<SocketAddress> addresses,
                                  std::uint64_t delay) {
  mNames[name] = {std::move(addresses), delay};
}

std::vector<SimulatedUDPNetwork::Datagram> SimulatedUDPNetwork::takeSent() {
  return std::exchange(mSent, {});
}

void SimulatedUDPNetwork::failNext(Call call, int errorNumber, unsigned after) {
  mFaults[call] = {errorNumber, after};
}

void SimulatedUDPNetwork::holdSends(bool held) {
  mSendsHeld = held;
  wakeThread();
}

bool SimulatedUDPNetwork::arrive(const SocketAddress& from, const SocketAddress& to,
                                 std::span<const std::uint8_t> data) {
  bool taken = false;
  for (auto& [descriptor, socket] : mSockets) {
    const bool addressed =
        socket.local == to || (isWildcard(socket.local) && socket.local.family() == to.family() &&
                               socket.local.port() == to.port());
    const bool expected = socket.peer.family() == AF_UNSPEC || socket.peer == from;
    if (!addressed || !expected || (taken && !isBroadcast(to))) {
      continue;
    }
    taken = true;
    const std::size_t bytes = data.size() + kDatagramOverhead;
    if (socket.unreadBytes + bytes > kReceiveBuffer) {
      ++socket.dropped;
    } else {
      socket.unreadBytes += bytes;
      socket.unread.push_back({from, to, {data.begin(), data.end()}});
    }
  }
  wakeThread();
  return taken;
}

int SimulatedUDPNetwork::faultOf(Call call) {
  const auto found = mFaults.find(call);
  if (found == mFaults.end()) {
    return 0;
  }
  if (found->second.after > 0) {
    --found->second.after;
    return 0;
  }
  const int errorNumber = found->second.errorNumber;
  mFaults.erase(found);
  return -errorNumber;
}

int SimulatedUDPNetwork::socket(int family) {
  if (const int fault = faultOf(Call::socket)) {
    return fault;
  }
  mSockets[++mLastDescriptor].local = SocketAddress::wildcard(family, 0);
  return mLastDescriptor;
}

int SimulatedUDPNetwork::setNonBlocking(int descriptor) {
  static_cast<void>(descriptor);  // none ever blocks
  return faultOf(Call::setNonBlocking);
}

int SimulatedUDPNetwork::setsockopt(int descriptor, int level, int option, int value) {
  if (const int fault = faultOf(Call::setsockopt)) {
    return fault;
  }
  Socket& socket = mSockets.at(descriptor);
  if (level == SOL_SOCKET && option == SO_BROADCAST) {
    socket.broadcast = value != 0;
  }
  return 0;
}

bool SimulatedUDPNetwork::portInUse(const SocketAddress& address) const {
  return std::any_of(mSockets.begin(), mSockets.end(), [&address](const auto& entry) {
    const Socket& other = entry.second;
    return other.local.family() == address.family() && other.local.port() == address.port() &&
           (isWildcard(other.local) || isWildcard(address) || other.local == address);
  });
}

// The address with a port that nobody has.
SocketAddress SimulatedUDPNetwork::freePort(SocketAddress address) {
  do {
    mLastPort = mLastPort == 65'535 ? kFirstFreePort : static_cast<std::uint16_t>(mLastPort + 1);
    address = isWildcard(address) ? SocketAddress::wildcard(address.family(), mLastPort)
                                  : *SocketAddress::fromText(address.host(), mLastPort);
  } while (portInUse(address));
  return address;
}

int SimulatedUDPNetwork::bind(int descriptor, const SocketAddress& address) {
  if (const int fault = faultOf(Call::bind)) {
    return fault;
  }
  Socket& socket = mSockets.at(descriptor);
  if (address.port() == 0) {
    socket.local = freePort(address);
    return 0;
  }
  if (portInUse(address)) {
    return -EADDRINUSE;
  }
  socket.local = address;
  return 0;
}

int SimulatedUDPNetwork::connect(int descriptor, const SocketAddress& address) {
  if (const int fault = faultOf(Call::connect)) {
    return fault;
  }
  Socket& socket = mSockets.at(descriptor);
  if (isBroadcast(address) && !socket.broadcast) {
    return -EACCES;
  }
  const char* const own = address.family() == AF_INET6 ? "::1"
                          : isThisMachine(address)     ? "127.0.0.1"
                                                       : "192.168.1.2";
  const SocketAddress local = *SocketAddress::fromText(own, socket.local.port());
  socket.local = socket.local.port() == 0 ? freePort(local) : local;
  socket.peer = address;
  return 0;
}

int SimulatedUDPNetwork::getsockname(int descriptor, SocketAddress& address) {
  address = mSockets.at(descriptor).local;
  return 0;
}

int SimulatedUDPNetwork::send(int descriptor, std::span<const std::uint8_t> data) {
  if (const int fault = faultOf(Call::send)) {
    return fault;
  }
  Socket& socket = mSockets.at(descriptor);
  if (socket.pendingError != 0) {
    return -std::exchange(socket.pendingError, 0);
  }
  if (data.size() > kLargestPayload) {
    return -EMSGSIZE;
  }
  if (mSendsHeld) {
    return -EAGAIN;
  }
  if (isBroadcast(socket.peer) && !socket.broadcast) {
    return -EACCES;
  }
  if (!isThisMachine(socket.peer)) {
    mSent.push_back({socket.local, socket.peer, {data.begin(), data.end()}});
  } else if (!arrive(socket.local, socket.peer, data) && !isBroadcast(socket.peer)) {
    socket.pendingError = ECONNREFUSED;
  }
  return static_cast<int>(data.size());
}

int SimulatedUDPNetwork::recvmmsg(int descriptor, DatagramBatch& batch) {
  if (const int fault = faultOf(Call::recvmmsg)) {
    return fault;
  }
  Socket& socket = mSockets.at(descriptor);
  if (socket.pendingError != 0) {
    return -std::exchange(socket.pendingError, 0);
  }
  std::size_t count = 0;
  for (; count < kMostDatagramsAtOnce && !socket.unread.empty(); ++count) {
    const Datagram& datagram = socket.unread.front();
    if (!datagram.data.empty()) {
      batch.add(datagram.from,
                std::span(datagram.data).first(std::min(datagram.data.size(), kLargestDatagram)));
    }
    socket.unreadBytes -= datagram.data.size() + kDatagramOverhead;
    socket.unread.pop_front();
    batch.dropped = socket.dropped;
  }
  return count == 0 ? -EAGAIN : static_cast<int>(count);
}

void SimulatedUDPNetwork::close(int descriptor) {
  mSockets.erase(descriptor);
}

int SimulatedUDPNetwork::watch(int descriptor, std::uint32_t client, bool read, bool write) {
  if (const int fault = faultOf(Call::watch)) {
    return fault;
  }
  Socket& socket = mSockets.at(descriptor);
  socket.client = client;
  socket.watchRead = read;
  socket.watchWrite = write;
  wakeThread();
  return 0;
}

void SimulatedUDPNetwork::wakeThread() {
  queue().async([] {});
}

void SimulatedUDPNetwork::wait(host::Semaphore& wake, std::vector<Ready>& ready) {
  wake.wait();
  for (auto& [descriptor, socket] : mSockets) {
    const bool readable = !socket.unread.empty() || socket.pendingError != 0;
    if ((socket.watchRead && readable) || (socket.watchWrite && !mSendsHeld)) {
      socket.watchRead = socket.watchWrite = false;
      ready.push_back({socket.client, descriptor});
    }
  }
}

SimulatedUDPNetwork::LookUp SimulatedUDPNetwork::lookUp(const std::string& host,
                                                        std::uint16_t port) {
  const auto found = mNames.find(host);
  if (found == mNames.end()) {
    return {[] { return Answer{EAI_NONAME, {}}; }, [] {}};
  }
  Answer answer;
  for (const SocketAddress& each : found->second.addresses) {
    answer.addresses.push_back(*SocketAddress::fromText(each.host(), port));
  }
  const std::shared_ptr<host::Semaphore> cancelled = host::current().makeSemaphore();
  const std::uint64_t due = host::current().AudioGetCurrentHostTime() + found->second.delay;
  return {[answer, cancelled, due] {
            cancelled->waitUntil(due);
            return answer;
          },
          [cancelled] { cancelled->signal(); }};
}

}  // namespace velor
