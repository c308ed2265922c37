// SPDX-License-Identifier: MIT
// Faults of the system, time and other machines, on a simulated network.
#include "CocoaAsyncSocket/GCDAsyncUdpSocket.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <vector>

#include "sim/SimulatedHost.h"
#include "sim/SimulatedUDPNetwork.h"
#include "tests/cocoaasyncsocket/UDPListener.h"

namespace velor {
namespace {

using Call = SimulatedUDPNetwork::Call;
using testing::ElementsAre;

constexpr std::uint64_t kMs = 1'000'000;

class GCDAsyncUdpSocketTest : public testing::Test {
 protected:
  GCDAsyncUdpSocketTest() { setUDPNetwork(&mNetwork); }

  host::SimulatedHost mHost;
  SimulatedUDPNetwork mNetwork;
};

TEST_F(GCDAsyncUdpSocketTest, AFailedCallIsNamedAndLeavesNoDescriptor) {
  struct Case {
    Call call;
    unsigned after;
    const char* reason;
  };
  // A later call of a kind is for the IPv6 descriptor.
  for (const Case& each : {
           Case{Call::socket, 0, "Error in socket() function"},
           Case{Call::socket, 1, "Error in socket() function"},
           Case{Call::setNonBlocking, 1, "Error enabling non-blocking IO on socket (fcntl)"},
           Case{Call::setsockopt, 1, "Error in setsockopt() function"},
           Case{Call::bind, 1, "Error in bind() function"},
       }) {
    SCOPED_TRACE(each.reason);
    UDPEnd end;
    mNetwork.failNext(each.call, ENOBUFS, each.after);
    const auto error = errorOf(end.socket->bindToPort(7770));
    EXPECT_EQ(error.code, ENOBUFS);
    EXPECT_EQ(error.text, "No buffer space available");
    EXPECT_EQ(error.reason, each.reason);
    EXPECT_EQ(mNetwork.openDescriptors(), 0U);
    EXPECT_TRUE(end.socket->bindToPort(7770));
    mNetwork.failNext(Call::setsockopt, EPERM);
    EXPECT_EQ(errorOf(end.socket->enableBroadcast(true)).description(),
              "Operation not permitted (Error in setsockopt() function)");
  }
}

TEST_F(GCDAsyncUdpSocketTest, ASystemWithoutOneProtocolUsesTheOther) {
  for (const unsigned missing : {0U, 1U}) {
    UDPEnd end;
    mNetwork.failNext(Call::socket, EAFNOSUPPORT, missing);
    EXPECT_TRUE(end.socket->bindToPort(7770));
    EXPECT_EQ(end.socket->localHost(), missing == 0 ? "::" : "0.0.0.0");
  }
}

TEST_F(GCDAsyncUdpSocketTest, AFailedReadClosesTheSocketAfterEarlierDatagrams) {
  UDPEnd server;
  EXPECT_TRUE(server.socket->bindToPort(7770));
  EXPECT_TRUE(server.socket->beginReceiving());
  const auto sender = *SocketAddress::fromText("10.0.0.5", 5000);
  const auto port = SocketAddress::wildcard(AF_INET, 7770);
  mNetwork.failNext(Call::recvmmsg, ENOMEM, 1);
  EXPECT_TRUE(mNetwork.arrive(sender, port, bytesOf("before")));
  mHost.settle();
  EXPECT_EQ(server.listener->lastSender(), sender);
  EXPECT_TRUE(mNetwork.arrive(sender, port, bytesOf("lost")));
  mHost.settle();
  EXPECT_THAT(
      server.listener->events(),
      ElementsAre("data before", "closed Cannot allocate memory (Error in recvfrom() function)"));
  EXPECT_EQ(mNetwork.openDescriptors(), 0U);
  EXPECT_EQ(server.socket->localPort(), 0);
}

TEST_F(GCDAsyncUdpSocketTest, ASendWithoutRoomTimesOutAndTheNextHasItsOwnTimeout) {
  UDPEnd client;
  EXPECT_TRUE(client.socket->connectToHost("192.168.1.20", 9000));
  mHost.settle();
  mNetwork.holdSends(true);
  client.send("one", 1);
  client.send("two", 2);
  client.socket->sendData(bytesOf("three"), -1.0, 3);
  mHost.advance(999 * kMs);
  EXPECT_EQ(client.listener->count("not sent"), 0U);
  mHost.advance(1 * kMs);
  EXPECT_EQ(client.listener->count("not sent 1 Send operation timed out"), 1U);
  mHost.advance(999 * kMs);
  EXPECT_EQ(client.listener->count("not sent"), 1U);
  mHost.advance(3'600'000 * kMs);  // the third waits for ever
  EXPECT_EQ(client.listener->count("not sent"), 2U);
  mNetwork.holdSends(false);
  mHost.settle();
  const auto sent = mNetwork.takeSent();
  ASSERT_EQ(sent.size(), 1U);
  EXPECT_EQ(sent[0].data, bytesOf("three"));
  EXPECT_EQ(sent[0].to, *SocketAddress::fromText("192.168.1.20", 9000));
  EXPECT_EQ(client.listener->count("sent 3"), 1U);

  // A close reports all waiting datagrams.
  mNetwork.holdSends(true);
  client.send("four", 4);
  client.send("five", 5);
  mHost.settle();
  client.socket->close();
  mHost.advance(10'000 * kMs);
  EXPECT_EQ(client.listener->count("not sent 4 Socket closed"), 1U);
  EXPECT_EQ(client.listener->count("not sent 5 Socket closed"), 1U);
  EXPECT_EQ(client.listener->events().back(), "closed");
}

TEST_F(GCDAsyncUdpSocketTest, DatagramsForASlowNameAreBoundedAndGoOutInOrder) {
  mNetwork.addHost("desk.local", {*SocketAddress::fromText("192.168.1.20", 0)}, 30'000 * kMs);
  UDPEnd client;
  EXPECT_TRUE(client.socket->connectToHost("desk.local", 9000));
  constexpr std::size_t kBytes = 1000;
  constexpr std::size_t kFit = (1U << 20) / (kBytes + 64);
  const auto send = [&client](std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      std::vector<std::uint8_t> data(kBytes);
      data[0] = static_cast<std::uint8_t>(i);
      client.socket->sendData(std::move(data), 1.0, static_cast<std::int64_t>(i));
    }
  };
  send(kFit + 5);
  mHost.settle();
  EXPECT_EQ(client.listener->count("not sent"), 5U);
  EXPECT_FALSE(client.socket->isConnected());
  mHost.advance(30'000 * kMs);
  EXPECT_TRUE(client.socket->isConnected());
  const auto sent = mNetwork.takeSent();
  ASSERT_EQ(sent.size(), kFit);
  for (std::size_t i = 0; i < kFit; ++i) {
    EXPECT_EQ(sent[i].data[0], static_cast<std::uint8_t>(i));
  }
  send(kFit);  // there is room for as many again
  mHost.settle();
  EXPECT_EQ(client.listener->count("not sent"), 5U);
}

TEST_F(GCDAsyncUdpSocketTest, SlowNamesDelayNoAddressAndNoEnd) {
  mNetwork.addHost("slow", {*SocketAddress::fromText("10.0.0.9", 0)}, 60'000 * kMs);
  std::vector<std::unique_ptr<UDPEnd>> slow;
  for (std::size_t i = 0; i < 2 * host::LongJobs::kMostThreads; ++i) {
    slow.push_back(std::make_unique<UDPEnd>());
    EXPECT_TRUE(slow.back()->socket->connectToHost("slow", 9000));
  }
  UDPEnd quick;
  EXPECT_TRUE(quick.socket->connectToHost("10.0.0.8", 9000));
  UDPEnd unknown;
  EXPECT_TRUE(unknown.socket->connectToHost("nobody", 9000));
  mHost.settle();
  EXPECT_THAT(quick.listener->events(), ElementsAre("connected 10.0.0.8"));

  // A socket closed meanwhile gets no result, and may connect anew.
  slow[0]->socket->close();
  EXPECT_TRUE(slow[0]->socket->connectToHost("10.0.0.7", 9000));
  mHost.advance(60'000 * kMs);
  EXPECT_THAT(slow[0]->listener->events(), ElementsAre("closed", "connected 10.0.0.7"));
  EXPECT_THAT(slow[1]->listener->events(), ElementsAre("connected 10.0.0.9"));
  EXPECT_THAT(unknown.listener->events(), ElementsAre("not connected Name or service not known"));
  mHost.advance(60'000 * kMs);
  EXPECT_EQ(slow.back()->listener->count("connected 10.0.0.9"), 1U);

  // A failed connect is reported, with the datagram that waited, and may be repeated.
  UDPEnd client;
  mNetwork.failNext(Call::connect, ENETUNREACH);
  EXPECT_TRUE(client.socket->connectToHost("10.0.0.9", 9000));
  client.send("nowhere", 1);
  mHost.settle();
  EXPECT_TRUE(client.socket->connectToHost("10.0.0.9", 9000));
  mHost.settle();
  EXPECT_THAT(client.listener->events(),
              ElementsAre("not connected Network is unreachable (Error in connect() function)",
                          "not sent 1 Must connect socket before you can send data.",
                          "connected 10.0.0.9"));

  // The network ends here with this look-up under way.
  EXPECT_TRUE(unknown.socket->connectToHost("slow", 9000));
}

}  // namespace
}  // namespace velor
