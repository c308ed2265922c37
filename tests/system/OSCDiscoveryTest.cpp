// SPDX-License-Identifier: MIT
// The program beside an Avahi daemon that knows the loopback interface alone, and Avahi's
// and liblo's tools, which know nothing of it.
#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <fstream>
#include <iterator>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/OSCTools.h"
#include "tests/support/Servers.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

constexpr double kPatience = 15;  // s

class OSCDiscovery : public testing::Test {
 protected:
  OSCDiscovery() { mAvahi.start(); }

  std::vector<std::string> environment() const {
    auto all = mJack.environment();
    const auto bus = mAvahi.environment();
    all.insert(all.end(), bus.begin(), bus.end());
    return all;
  }
  VelorProcess velorAt(const std::string& port,
                       const std::vector<std::string>& more = {"--osc-allow", "127.0.0.1"}) const {
    std::vector<std::string> arguments = {"--headless", "--osc-port", port};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return VelorProcess(arguments, environment());
  }
  Process publisher(const std::string& name, const OSCDump& target) const {
    return Process({"avahi-publish", "-s", name, "_osc._udp", target.port()}, mAvahi.environment(),
                   "/dev/null");
  }

  // What avahi-browse sees of the type now, a line a service. It does not end, and tells
  // nothing, when one goes while it asks where that is.
  std::optional<std::string> browse() {
    const std::string path = mFolder.path().string() + "/browse-" + std::to_string(++mLooks);
    Process peer({"avahi-browse", "-rpt", "_osc._udp"}, mAvahi.environment(), path, "/dev/null");
    if (peer.waitForEnd(kPatience / 3) != 0) {
      return std::nullopt;
    }
    std::ifstream file(path);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }
  // Waits until peers see a service of that port under that name, which is a regular
  // expression for what avahi-browse writes; its TXT record.
  std::string waitForService(const std::string& name, const std::string& port) {
    // =;interface;protocol;name;type;domain;host;address;port;txt
    const std::regex line("=;lo;[^;]*;" + name + ";[^;]*;[^;]*;[^;]*;[^;]*;" + port + ";(.*)");
    std::smatch found;
    std::string text;
    EXPECT_TRUE(waitFor(kPatience,
                        [&] {
                          text = browse().value_or("");
                          return std::regex_search(text, found, line);
                        }))
        << name << " at " << port;
    return found.str(1);
  }
  bool waitUntilNoneIsSeen() {
    return waitFor(kPatience, [this] {
      const auto seen = browse();
      return seen && seen->find("=;") == std::string::npos;
    });
  }

  const JackServer mJack;  // not started
  AvahiServer mAvahi;

 private:
  TemporaryFolder mFolder;
  int mLooks = 0;
};

std::size_t timesLogged(const VelorProcess& velor, const std::string& what) {
  const std::string log = velor.log();
  std::size_t count = 0;
  for (auto at = log.find(what); at != std::string::npos; at = log.find(what, at + 1)) {
    ++count;
  }
  return count;
}

// How often the program has begun to send to a port of this host.
std::size_t connectionsTo(const VelorProcess& velor, const std::string& port) {
  return timesLogged(velor, "connecting to 127.0.0.1:" + port + "\n");
}

TEST_F(OSCDiscovery, PeersSeePortAndUIDOfEachRunAndNothingAfterItsEndHoweverItEnds) {
  std::vector<std::string> records;
  for (const int signal : {SIGTERM, SIGKILL}) {
    const std::string port = freePort();
    VelorProcess velor = velorAt(port);
    records.push_back(waitForService("Velor-OSC", port));
    // A UUID alone.
    EXPECT_TRUE(std::regex_match(records.back(),
                                 std::regex("\"uid=[0-9A-F]{8}-([0-9A-F]{4}-){3}[0-9A-F]{12}\"")))
        << records.back();
    EXPECT_EQ(velor.end(signal), signal == SIGTERM ? 0 : 128 + SIGKILL) << velor.errors();
    EXPECT_TRUE(waitUntilNoneIsSeen());
  }
  EXPECT_NE(records[0], records[1]);
}

TEST_F(OSCDiscovery, ASecondProgramIsToldOfTheFirstAndNoneTellsItself) {
  const std::string ports[2] = {freePort(), freePort()};
  const OSCDump behindSecond;
  // It obeys nobody: the state of the second would stop it.
  VelorProcess first = velorAt(ports[0], {"--play"});
  const std::string record = waitForService("Velor-OSC", ports[0]);
  VelorProcess second = velorAt(
      ports[1], {"--osc-allow", "127.0.0.1", "--osc-target", "127.0.0.1:" + behindSecond.port()});
  EXPECT_NE(waitForService(R"(Velor-OSC\\032\\0352)", ports[1]), record);
  // Each finds both, itself too, and hears where they are.
  for (const VelorProcess* each : {&first, &second}) {
    EXPECT_TRUE(waitFor(kPatience, [each] {
      return timesLogged(*each, "netServiceDidResolveAddress:] 127.0.0.1") == 2;
    })) << each->log();
  }
  const auto connects = [](const VelorProcess& velor, const std::string& port) {
    return waitFor(kPatience, [&] { return connectionsTo(velor, port) == 1; });
  };
  EXPECT_TRUE(connects(first, ports[1])) << first.log();
  EXPECT_TRUE(connects(second, ports[0])) << second.log();
  // The first one's state is a command to the second, which tells its own target.
  behindSecond.waitForLine("/velor/transport/play f 1.000000");
  EXPECT_EQ(first.end(SIGTERM), 0);
  EXPECT_EQ(second.end(SIGTERM), 0);
  EXPECT_EQ(connectionsTo(first, ports[0]), 0U) << first.log();
  EXPECT_EQ(connectionsTo(second, ports[1]), 0U) << second.log();
}

TEST_F(OSCDiscovery, ADaemonThatDiesAndReturnsFindsTheProgramThereAndTheProgramItsTargets) {
  const std::string port = freePort();
  const OSCDump desk;
  const OSCDump console;
  VelorProcess velor = velorAt(port);
  const std::string record = waitForService("Velor-OSC", port);
  {
    const Process announced = publisher("Desk", desk);
    desk.waitForLine("/velor/transport/stop f 1.000000");
    mAvahi.kill();
  }
  EXPECT_TRUE(
      waitFor(kPatience, [&] { return timesLogged(velor, "did remove service: Desk") == 1; }));
  // It goes on with what it knows.
  std::size_t at = desk.seen().size();
  sendOSC(port, "/velor/transport/play", "1");
  at = desk.waitForLine("/velor/transport/play f 1.000000", at);

  mAvahi.start();
  EXPECT_EQ(waitForService("Velor-OSC", port), record);
  const Process again = publisher("Desk", desk);
  const Process announced = publisher("Console", console);
  desk.waitForLine("/velor/speed f 0.000000", at);
  console.waitForLine("/velor/transport/play f 1.000000");
  EXPECT_EQ(velor.end(SIGTERM), 0);
  EXPECT_EQ(connectionsTo(velor, desk.port()), 1U);
  EXPECT_EQ(connectionsTo(velor, port), 0U) << velor.log();
}

}  // namespace
}  // namespace velor::test
