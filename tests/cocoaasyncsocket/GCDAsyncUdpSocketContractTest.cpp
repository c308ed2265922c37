// SPDX-License-Identifier: MIT
// The contract of a socket, on the simulated network and on the loopback interface.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "CocoaAsyncSocket/GCDAsyncUdpSocket.h"
#include "CocoaAsyncSocket/SystemUDPNetwork.h"
#include "platform/host/SystemHost.h"
#include "sim/SimulatedHost.h"
#include "sim/SimulatedUDPNetwork.h"
#include "tests/cocoaasyncsocket/UDPListener.h"
#include "tests/support/Kind.h"
#include "tests/support/LogRecord.h"

namespace velor {
namespace {

using testing::ElementsAre;

constexpr std::uint64_t kMs = 1'000'000;

SocketAddress loopback(int family, std::uint16_t port) {
  return *SocketAddress::fromText(family == AF_INET ? "127.0.0.1" : "::1", port);
}

// A host, a network, and a sender independent of the class under test.
class World {
 public:
  virtual ~World() = default;
  virtual void sendTo(std::uint16_t port, const std::string& data) = 0;
  virtual std::size_t openDescriptors() = 0;
  /// Whether a program that allows the reuse of addresses can take the port over.
  virtual bool strangerTakes(std::uint16_t port) = 0;
};

class SimulatedWorld final : public World {
 public:
  SimulatedWorld() { setUDPNetwork(&mNetwork); }
  void sendTo(std::uint16_t port, const std::string& data) override {
    mNetwork.arrive(loopback(AF_INET, 40'000), loopback(AF_INET, port), bytesOf(data));
  }
  std::size_t openDescriptors() override { return mNetwork.openDescriptors(); }
  bool strangerTakes(std::uint16_t) override { return false; }  // has no such option

 private:
  host::SimulatedHost mHost;
  SimulatedUDPNetwork mNetwork;
};

class LoopbackWorld final : public World {
 public:
  LoopbackWorld() { setUDPNetwork(&mNetwork); }
  ~LoopbackWorld() override { ::close(mSender); }
  void sendTo(std::uint16_t port, const std::string& data) override {
    const SocketAddress to = loopback(AF_INET, port);
    ASSERT_EQ(::sendto(mSender, data.data(), data.size(), 0, to.data(), to.size()),
              static_cast<ssize_t>(data.size()));
  }
  bool strangerTakes(std::uint16_t port) override {
    const int stranger = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    EXPECT_EQ(::setsockopt(stranger, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on), 0);
    const SocketAddress own = loopback(AF_INET, port);
    const bool taken = ::bind(stranger, own.data(), own.size()) == 0;
    ::close(stranger);
    return taken;
  }
  std::size_t openDescriptors() override {
    const std::filesystem::directory_iterator entries("/proc/self/fd");
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
  }

 private:
  host::SystemHost mHost;
  SystemUDPNetwork mNetwork{SystemUDPNetwork::Reach::loopback};
  const int mSender = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

using WorldKind = test::Kind<World>;

class GCDAsyncUdpSocketContract : public testing::TestWithParam<WorldKind> {
 protected:
  static std::uint16_t listen(UDPEnd& end, std::uint16_t port = 0) {
    EXPECT_EQ(errorOf(end.socket->bindToPort(port)).description(), "");
    EXPECT_EQ(errorOf(end.socket->beginReceiving()).description(), "");
    return end.socket->localPort();
  }
  static void connect(UDPEnd& end, const std::string& host, std::uint16_t port) {
    EXPECT_TRUE(end.socket->connectToHost(host, port));
    EXPECT_TRUE(end.listener->waitFor("connected"));
  }

  const std::unique_ptr<World> mWorld = GetParam().make();
};

TEST_P(GCDAsyncUdpSocketContract, BothProtocolsArriveAtOnePortWithTheirSenders) {
  UDPEnd server;
  const std::uint16_t port = listen(server);
  ASSERT_NE(port, 0);
  ASSERT_TRUE(server.socket->localHost().has_value());
  for (const std::string host : {"127.0.0.1", "::1"}) {
    UDPEnd client;
    // Sent before the socket is connected: they wait, in order.
    EXPECT_TRUE(client.socket->connectToHost(host, port));
    client.send("a" + host, 1);
    client.send("b" + host, 2);
    ASSERT_TRUE(server.listener->waitFor("data b" + host));
    ASSERT_TRUE(client.listener->waitFor("sent", 2));
    EXPECT_THAT(client.listener->events(), ElementsAre("connected " + host, "sent 1", "sent 2"));
    EXPECT_TRUE(client.socket->isConnected());
    EXPECT_EQ(client.socket->connectedPort(), port);

    std::string sender;
    std::uint16_t senderPort = 0;
    ASSERT_TRUE(GCDAsyncUdpSocket::getHost(sender, senderPort, server.listener->lastSender()));
    EXPECT_EQ(sender, host);
    EXPECT_EQ(senderPort, client.socket->localPort());
  }
  EXPECT_THAT(server.listener->events(),
              ElementsAre("data a127.0.0.1", "data b127.0.0.1", "data a::1", "data b::1"));
}

TEST_P(GCDAsyncUdpSocketContract, EmptyDatagramsAreDroppedAndLongOnesCut) {
  UDPEnd server;
  const std::uint16_t port = listen(server);
  mWorld->sendTo(port, "");
  mWorld->sendTo(port, std::string(UDPNetwork::kLargestDatagram + 1000, 'x'));
  ASSERT_TRUE(server.listener->waitFor("data"));
  EXPECT_EQ(server.listener->lastSize(), 9216U);
  EXPECT_EQ(server.listener->events().size(), 1U);
}

TEST_P(GCDAsyncUdpSocketContract, ATakenPortIsRefusedAndFreeAgainAfterAClose) {
  UDPEnd first;
  UDPEnd second;
  const std::uint16_t port = listen(first);
  const auto error = errorOf(second.socket->bindToPort(port));
  EXPECT_EQ(error.domain, "NSPOSIXErrorDomain");
  EXPECT_EQ(error.code, EADDRINUSE);
  EXPECT_EQ(error.reason, "Error in bind() function");
  EXPECT_EQ(second.socket->localPort(), 0);
  EXPECT_EQ(second.socket->localHost(), std::nullopt);
  EXPECT_FALSE(mWorld->strangerTakes(port));

  first.socket->close();
  EXPECT_EQ(listen(second, port), port);
  mWorld->sendTo(port, "to the second");
  EXPECT_TRUE(second.listener->waitFor("data to the second"));
  EXPECT_TRUE(first.listener->waitFor("closed"));
  EXPECT_THAT(first.listener->events(), ElementsAre("closed"));
}

TEST_P(GCDAsyncUdpSocketContract, TheFilterRunsBeforeDeliveryOnItsQueueAndHoldsNoOtherSocket) {
  for (const bool ownQueue : {false, true}) {
    SCOPED_TRACE(ownQueue);
    host::Queue filterQueue("filter");
    UDPEnd server;
    host::Queue& queue = ownQueue ? filterQueue : server.queue;
    const auto gate = host::current().makeSemaphore();
    std::atomic<int> wrong{0};
    server.socket->setReceiveFilter(
        [&](std::span<const std::uint8_t> data, const SocketAddress& from) {
          if (data.front() == 'a') {
            gate->wait();
          }
          wrong +=
              queue.isCurrent() && GCDAsyncUdpSocket::hostFromAddress(from) == "127.0.0.1" ? 0 : 1;
          return data.back() % 2 == 0;
        },
        &queue);
    server.listener->onData = [&](const std::string&) {
      wrong += server.queue.isCurrent() ? 0 : 1;
    };
    const std::uint16_t port = listen(server);
    UDPEnd other;
    const std::uint16_t otherPort = listen(other);
    std::vector<std::string> expected;
    for (char c = 'a'; c <= 'z'; ++c) {
      mWorld->sendTo(port, std::string(1, c));
      if (c % 2 == 0) {
        expected.push_back(std::string("data ") + c);
      }
    }
    mWorld->sendTo(otherPort, "other");
    EXPECT_TRUE(other.listener->waitFor("data other"));
    EXPECT_EQ(server.listener->count("data"), 0U);
    gate->signal();
    ASSERT_TRUE(server.listener->waitFor("data z"));
    EXPECT_EQ(server.listener->events(), expected);
    EXPECT_EQ(wrong, 0);
    server.socket->close();
  }
}

TEST_P(GCDAsyncUdpSocketContract, AfterACloseNothingIsDeliveredAndTheSocketIsAsNew) {
  const std::size_t before = mWorld->openDescriptors();
  UDPEnd server;
  server.listener->onData = [&server](const std::string& data) {
    if (data == "close") {
      server.socket->close();
    }
  };
  std::uint16_t port = listen(server);
  const auto gate = host::current().makeSemaphore();
  server.queue.async([&gate] { gate->wait(); });
  mWorld->sendTo(port, "close");
  mWorld->sendTo(port, "too late");
  gate->signal();
  ASSERT_TRUE(server.listener->waitFor("closed"));
  server.socket->close();  // reports nothing
  port = listen(server);
  mWorld->sendTo(port, "again");
  ASSERT_TRUE(server.listener->waitFor("data again"));
  EXPECT_THAT(server.listener->events(), ElementsAre("data close", "closed", "data again"));

  // The owner may release it in a callback.
  server.listener->onData = [&server](const std::string&) { server.socket = nullptr; };
  mWorld->sendTo(port, "let go");
  ASSERT_TRUE(server.listener->waitFor("data let go"));
  server.queue.sync([] {});
  EXPECT_LE(mWorld->openDescriptors(), before);
}

TEST_P(GCDAsyncUdpSocketContract, ATargetThatReturnsMissesNothing) {
  UDPEnd server;
  const std::uint16_t port = listen(server);
  UDPEnd client;
  connect(client, "127.0.0.1", port);
  server.socket->close();
  client.send("refused", 1);
  ASSERT_TRUE(client.listener->waitFor("sent 1"));
  listen(server, port);
  client.send("first", 2);
  EXPECT_TRUE(server.listener->waitFor("data first"));
  client.socket->sendData(std::vector<std::uint8_t>(70'000), 1.0, 3);
  client.send("last", 4);
  EXPECT_TRUE(server.listener->waitFor("data last"));
  EXPECT_TRUE(client.listener->waitFor("sent 4"));
  EXPECT_THAT(client.listener->events(),
              ElementsAre("connected 127.0.0.1", "sent 1", "sent 2",
                          "not sent 3 Message too long (Error in send() function.)", "sent 4"));
}

TEST_P(GCDAsyncUdpSocketContract, BroadcastMayBeEnabledAfterTheConnect) {
  UDPEnd client;
  connect(client, "127.255.255.255", 9);
  EXPECT_TRUE(client.socket->enableBroadcast(true));
  client.send("to all", 1);
  EXPECT_TRUE(client.listener->waitFor("sent 1"));
}

TEST_P(GCDAsyncUdpSocketContract, ANameIsResolvedAndTheTwoProtocolsChosenBetween) {
  UDPEnd server;
  const std::uint16_t port = listen(server);
  UDPEnd client;
  client.socket->setPreferIPv4();
  connect(client, "localhost", port);
  EXPECT_THAT(client.listener->events(), ElementsAre("connected 127.0.0.1"));
  UDPEnd six;
  six.socket->setIPv4Enabled(false);
  EXPECT_TRUE(six.socket->connectToHost("127.0.0.1", port));
  EXPECT_TRUE(six.listener->waitFor(
      "not connected The host has no address of a protocol that is enabled."));
  EXPECT_FALSE(six.socket->isConnected());
  EXPECT_EQ(six.socket->connectedPort(), 0);
}

TEST_P(GCDAsyncUdpSocketContract, WhatAFloodLosesIsCountedAndMemoryIsBounded) {
  const LogRecord log;
  const auto told = [&log] {
    std::size_t sum = 0;
    for (const std::string& line : log.matching("udp socket at port")) {
      unsigned port = 0;
      std::size_t count = 0;
      EXPECT_EQ(std::sscanf(line.c_str(), "udp socket at port %u: %zu datagrams", &port, &count), 2)
          << line;
      sum += count;
    }
    return sum;
  };
  host::Host& host = host::current();
  const std::uint64_t start = host.AudioGetCurrentHostTime();
  constexpr std::size_t kFlood = 20'000;
  std::size_t sent = 0;
  {
    UDPEnd server;
    const std::uint16_t port = listen(server);
    const auto gate = host.makeSemaphore();
    server.queue.async([&gate] { gate->wait(); });  // a delegate that is busy
    for (; sent < kFlood; ++sent) {
      mWorld->sendTo(port, "flood");
      if (sent % 1000 == 0) {
        host.mach_wait_until(host.AudioGetCurrentHostTime() + kMs);
      }
    }
    gate->signal();
    // Later readings bring the count; reports may wait for their second.
    for (int i = 0; server.listener->count("data") + told() < kFlood && i < 1000; ++i) {
      mWorld->sendTo(port, "later");
      ++sent;
      host.mach_wait_until(host.AudioGetCurrentHostTime() + 20 * kMs);
    }
    // Two readings of 64, and the contents of the system's buffer of 212992 bytes.
    EXPECT_LT(server.listener->count("data flood"), 2000U);
    EXPECT_GE(server.listener->count("data") + told(), kFlood);
    EXPECT_LE(server.listener->count("data") + told(), sent);
  }
  const std::uint64_t seconds = (host.AudioGetCurrentHostTime() - start) / (1000 * kMs);
  EXPECT_LE(log.matching("udp socket at port").size(), seconds + 1);
}

TEST_P(GCDAsyncUdpSocketContract, AnyThreadMayCloseAndEndASocketThatSendsAndReceives) {
  const std::size_t before = mWorld->openDescriptors();
  for (int round = 0; round < 50; ++round) {
    UDPEnd server;
    UDPEnd client;
    // Each callback acts on the sockets that the other threads close meanwhile.
    server.listener->onData = [&client](const std::string&) { client.send("from a callback"); };
    const std::uint16_t port = listen(server);
    EXPECT_TRUE(client.socket->connectToHost("127.0.0.1", port));
    const auto started = host::current().makeSemaphore();
    const auto flooder = host::current().startThread("flooder", [&] {
      for (int i = 0; i < 100; ++i) {
        client.send("x");
        if (i == round) {
          started->signal();
          started->signal();
        }
      }
    });
    const auto closer = host::current().startThread("closer", [&] {
      started->wait();
      client.socket->close();
    });
    started->wait();
    server.socket->close();
    flooder->join();
    closer->join();
    server.queue.sync([] {});
    EXPECT_EQ(server.listener->events().back(), "closed");
    server.socket = nullptr;
  }
  EXPECT_EQ(mWorld->openDescriptors(), before);
}

INSTANTIATE_TEST_SUITE_P(, GCDAsyncUdpSocketContract,
                         testing::Values(WorldKind::of<SimulatedWorld>("simulated"),
                                         WorldKind::of<LoopbackWorld>("loopback")),
                         test::kNameOfKind);

}  // namespace
}  // namespace velor
