// SPDX-License-Identifier: MIT
#include "CocoaAsyncSocket/SystemUDPNetwork.h"

#include <fcntl.h>
#include <netdb.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace velor {

namespace {

// No client has this number.
constexpr std::uint64_t kWake = ~std::uint64_t{0};

int resultOf(long result) noexcept {
  return result < 0 ? -errno : static_cast<int>(result);
}

UDPNetwork::Answer addressesOf(const std::string& host, const std::string& port) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* first = nullptr;
  UDPNetwork::Answer answer;
  answer.code = ::getaddrinfo(host.c_str(), port.c_str(), &hints, &first);
  if (answer.code == 0) {
    for (const addrinfo* each = first; each != nullptr; each = each->ai_next) {
      answer.addresses.emplace_back(each->ai_addr, each->ai_addrlen);
    }
    ::freeaddrinfo(first);
  }
  return answer;
}

}  // namespace

// Buffers for datagrams of any size, before they are packed into a batch. One set serves
// all sockets, since one thread reads them all.
struct SystemUDPNetwork::ReadingRoom {
  struct Slot {
    std::array<std::uint8_t, kLargestDatagram> bytes;
    sockaddr_storage from;
    // The only message requested: the number of datagrams that the system has dropped.
    alignas(cmsghdr) std::array<char, CMSG_SPACE(sizeof(std::uint32_t))> control;
    iovec vector;
  };

  ReadingRoom() {
    for (std::size_t i = 0; i < kMostDatagramsAtOnce; ++i) {
      slots[i].vector = {slots[i].bytes.data(), slots[i].bytes.size()};
      messages[i] = {};
      messages[i].msg_hdr.msg_iov = &slots[i].vector;
      messages[i].msg_hdr.msg_iovlen = 1;
      messages[i].msg_hdr.msg_name = &slots[i].from;
      messages[i].msg_hdr.msg_control = slots[i].control.data();
      reset(i);
    }
  }

  // The system overwrites the sizes of the buffers with those of its data.
  void reset(std::size_t i) noexcept {
    messages[i].msg_hdr.msg_namelen = sizeof slots[i].from;
    messages[i].msg_hdr.msg_controllen = slots[i].control.size();
  }

  std::array<mmsghdr, kMostDatagramsAtOnce> messages;
  std::array<Slot, kMostDatagramsAtOnce> slots;
};

SystemUDPNetwork::SystemUDPNetwork(Reach reach)
    : mReach(reach), mEpoll(epoll_create1(EPOLL_CLOEXEC)) {
  if (mEpoll < 0) {
    std::perror("epoll_create1");
    std::abort();
  }
  startThread();
}

SystemUDPNetwork::~SystemUDPNetwork() {
  endThread();
  ::close(mEpoll);
}

int SystemUDPNetwork::socket(int family) {
  return resultOf(::socket(family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

int SystemUDPNetwork::setNonBlocking(int descriptor) {
  const int flags = ::fcntl(descriptor, F_GETFL);
  return flags < 0 ? -errno : resultOf(::fcntl(descriptor, F_SETFL, flags | O_NONBLOCK));
}

int SystemUDPNetwork::setsockopt(int descriptor, int level, int option, int value) {
  return resultOf(::setsockopt(descriptor, level, option, &value, sizeof value));
}

int SystemUDPNetwork::bind(int descriptor, const SocketAddress& address) {
  SocketAddress bound = address;
  if (mReach == Reach::loopback &&
      address == SocketAddress::wildcard(address.family(), address.port())) {
    bound =
        *SocketAddress::fromText(address.family() == AF_INET ? "127.0.0.1" : "::1", address.port());
  }
  return resultOf(::bind(descriptor, bound.data(), bound.size()));
}

int SystemUDPNetwork::connect(int descriptor, const SocketAddress& address) {
  return resultOf(::connect(descriptor, address.data(), address.size()));
}

int SystemUDPNetwork::getsockname(int descriptor, SocketAddress& address) {
  sockaddr_storage raw{};
  socklen_t size = sizeof raw;
  const int result = resultOf(::getsockname(descriptor, reinterpret_cast<sockaddr*>(&raw), &size));
  address = SocketAddress(reinterpret_cast<const sockaddr*>(&raw), size);
  return result;
}

int SystemUDPNetwork::send(int descriptor, std::span<const std::uint8_t> data) {
  return resultOf(::send(descriptor, data.data(), data.size(), MSG_NOSIGNAL));
}

int SystemUDPNetwork::recvmmsg(int descriptor, DatagramBatch& batch) {
  if (mReadingRoom == nullptr) {
    mReadingRoom = std::make_unique<ReadingRoom>();
  }
  ReadingRoom& room = *mReadingRoom;
  const int count = resultOf(
      ::recvmmsg(descriptor, room.messages.data(), kMostDatagramsAtOnce, MSG_DONTWAIT, nullptr));
  for (int n = 0; n < count; ++n) {
    const auto i = static_cast<std::size_t>(n);
    mmsghdr& message = room.messages[i];
    const ReadingRoom::Slot& slot = room.slots[i];
    for (cmsghdr* each = CMSG_FIRSTHDR(&message.msg_hdr); each != nullptr;
         each = CMSG_NXTHDR(&message.msg_hdr, each)) {
      if (each->cmsg_level == SOL_SOCKET && each->cmsg_type == SO_RXQ_OVFL) {
        std::memcpy(&batch.dropped, CMSG_DATA(each), sizeof batch.dropped);
      }
    }
    if (message.msg_len > 0) {
      batch.add(
          SocketAddress(reinterpret_cast<const sockaddr*>(&slot.from), message.msg_hdr.msg_namelen),
          std::span(slot.bytes).first(message.msg_len));
    }
    room.reset(i);
  }
  return count;
}

void SystemUDPNetwork::close(int descriptor) {
  ::close(descriptor);  // also ends its watch
}

int SystemUDPNetwork::watch(int descriptor, std::uint32_t client, bool read, bool write) {
  epoll_event event{};
  event.events = EPOLLONESHOT | (read ? EPOLLIN : 0U) | (write ? EPOLLOUT : 0U);
  event.data.u64 = std::uint64_t{client} << 32 | static_cast<std::uint32_t>(descriptor);
  if (epoll_ctl(mEpoll, EPOLL_CTL_MOD, descriptor, &event) == 0) {
    return 0;
  }
  return errno == ENOENT ? resultOf(epoll_ctl(mEpoll, EPOLL_CTL_ADD, descriptor, &event)) : -errno;
}

void SystemUDPNetwork::wait(host::Semaphore& wake, std::vector<Ready>& ready) {
  if (mWakeDescriptor < 0) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = kWake;
    if (epoll_ctl(mEpoll, EPOLL_CTL_ADD, wake.descriptor(), &event) != 0) {
      std::perror("epoll_ctl");
      std::abort();
    }
    mWakeDescriptor = wake.descriptor();
  }
  std::array<epoll_event, 64> events;
  const int count = epoll_wait(mEpoll, events.data(), events.size(), -1);
  for (int i = 0; i < count; ++i) {
    const std::uint64_t data = events[static_cast<std::size_t>(i)].data.u64;
    if (data == kWake) {
      while (wake.waitUntil(0)) {
      }
    } else {
      ready.push_back({static_cast<std::uint32_t>(data >> 32), static_cast<int>(data)});
    }
  }
}

SystemUDPNetwork::LookUp SystemUDPNetwork::lookUp(const std::string& host, std::uint16_t port) {
  return {[host, text = std::to_string(port)] { return addressesOf(host, text); }, {}};
}

}  // namespace velor
