// SPDX-License-Identifier: MIT
#include "platform/network/SystemHostAddresses.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace velor::network {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// The thread has a network of its own, which begins with a loopback interface that is down.
TEST(SystemHostAddresses, FollowsTheInterfacesThatAreUp) {
  bool isAlone = false;
  std::vector<std::vector<std::string>> seen;
  std::thread([&] {
    const SystemHostAddresses addresses;
    const auto look = [&](const char* command) {
      isAlone = isAlone && std::system(command) == 0;
      seen.push_back(addresses.addresses());
    };
    isAlone = unshare(CLONE_NEWNET) == 0;
    look("true");
    look("ip address add 10.0.0.2/8 dev lo && ip address add 192.168.2.7/24 dev lo");
    look("ip link set lo up");
    look("ip address delete 10.0.0.2/8 dev lo");
  }).join();
  if (!isAlone) {
    GTEST_SKIP() << "needs the right to make a network namespace";
  }
  EXPECT_THAT(seen, ElementsAre(IsEmpty(), IsEmpty(),
                                UnorderedElementsAre("10.0.0.2", "192.168.2.7", "127.0.0.1", "::1"),
                                UnorderedElementsAre("192.168.2.7", "127.0.0.1", "::1")));
}

}  // namespace
}  // namespace velor::network
