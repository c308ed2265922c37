// SPDX-License-Identifier: MIT
// Two hosts on a cable: networks of their own, which nothing leaves.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "tests/support/OSCTools.h"
#include "tests/support/Servers.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

// Processes that are started within it belong to it.
class OwnNetwork {
 public:
  OwnNetwork() {
    const Return former;
    mIsMade = unshare(CLONE_NEWNET) == 0;
    mOwn = openCurrent();
  }
  ~OwnNetwork() { close(mOwn); }
  OwnNetwork(const OwnNetwork&) = delete;
  OwnNetwork& operator=(const OwnNetwork&) = delete;

  bool isMade() const { return mIsMade; }
  void within(const std::function<void()>& body) const {
    const Return former;
    EXPECT_EQ(setns(mOwn, CLONE_NEWNET), 0);
    body();
  }
  bool run(const std::string& command) const {
    bool isDone = false;
    within([&] { isDone = std::system(command.c_str()) == 0; });
    return isDone;
  }

 private:
  static int openCurrent() { return open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC); }

  // To the network that the thread was in.
  struct Return {
    Return() = default;
    ~Return() {
      EXPECT_EQ(setns(network, CLONE_NEWNET), 0);
      close(network);
    }
    Return(const Return&) = delete;
    Return& operator=(const Return&) = delete;
    const int network = openCurrent();
  };

  int mOwn = -1;
  bool mIsMade = false;
};

// The program on one of the hosts, and a console on the other.
class OSCHosts : public testing::Test {
 protected:
  void SetUp() override {
    if (!mHere.isMade() || !mThere.isMade()) {
      GTEST_SKIP() << "needs the right to make a network namespace";
    }
    mThere.within([this] { mHolder = Process({"sleep", "infinity"}, {}, "/dev/null"); });
    ASSERT_TRUE(mHere.run("ip link add cable type veth peer name cable netns " +
                          std::to_string(mHolder.id()) +
                          " && ip address add 10.9.0.1/24 dev cable && ip link set cable up"
                          " && ip link set lo up"));
    ASSERT_TRUE(mThere.run("ip address add 10.9.0.2/24 dev cable && ip link set cable up"));
  }

  // Whether the program, started so, plays when the console says so.
  bool playsByConsole(std::vector<std::string> arguments) {
    bool plays = false;
    mHere.within([&] {
      const std::string port = freePort();
      const OSCDump dump;
      arguments.insert(arguments.begin(), {"--headless", "--osc-port", port, "--osc-target",
                                           "127.0.0.1:" + dump.port()});
      auto environment = mServer.environment();
      environment.emplace_back("DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent/bus");
      VelorProcess velor(arguments, environment);
      dump.waitForLine("/velor/transport/stop f 1.000000");
      EXPECT_TRUE(mThere.run("oscsend 10.9.0.1 " + port + " /velor/transport/play f 1"));
      plays = waitFor(2, [&dump] {
        const auto lines = dump.seen();
        return std::find(lines.begin(), lines.end(), "/velor/transport/play f 1.000000") !=
               lines.end();
      });
      EXPECT_EQ(velor.end(SIGTERM), 0) << velor.errors();
    });
    return plays;
  }

  const OwnNetwork mHere;
  const OwnNetwork mThere;
  Process mHolder;           // of the other network
  const JackServer mServer;  // not started
};

TEST_F(OSCHosts, AtTheFirstStartAllAreRefusedAndLaterAllButThoseThatAreTicked) {
  EXPECT_FALSE(playsByConsole({}));
  EXPECT_FALSE(playsByConsole({"--osc-allow", "10.9.0.3"}));
  EXPECT_TRUE(playsByConsole({"--osc-allow", "10.9.0.2"}));
}

}  // namespace
}  // namespace velor::test
