// SPDX-License-Identifier: MIT
// The program with an Avahi daemon that knows only the loopback interface, and independent
// tools of Avahi and liblo.
#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/OSCTools.h"
#include "tests/support/Servers.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

constexpr double kPatience = 15;  // s

// The TXT record of a service, once avahi-browse sees it. `name` is a regular expression for
// the text that avahi-browse writes.
std::string recordOf(const AvahiServer& avahi, const std::string& name, const std::string& port) {
  const TemporaryFolder folder;
  const std::string path = folder.path().string() + "/browse";
  // =;interface;protocol;name;type;domain;host;address;port;txt
  const std::regex line("=;lo;[^;]*;" + name + ";[^;]*;[^;]*;[^;]*;[^;]*;" + port + ";(.*)");
  std::smatch found;
  std::string text;
  EXPECT_TRUE(waitFor(
      kPatience,
      [&] {
        Process peer({"avahi-browse", "-rpt", "_osc._udp"}, avahi.environment(), path, "/dev/null");
        // It hangs when a service goes while it resolves that service.
        peer.waitForEnd(kPatience / 3);
        text = fileContents(path);
        return std::regex_search(text, found, line);
      }))
      << name << " at " << port;
  return found.str(1);
}

TEST(OSCDiscovery, TwoProgramsFindEachOtherNotThemselvesAndReturnWithTheDaemon) {
  const JackServer jack;  // not started
  AvahiServer avahi;
  avahi.start();
  std::vector<std::string> environment = jack.environment();
  const auto bus = avahi.environment();
  environment.insert(environment.end(), bus.begin(), bus.end());
  const std::string ports[2] = {freePort(), freePort()};
  const OSCDump target;

  // The first obeys no host, so the state of the second does not stop it.
  VelorProcess first({"--headless", "--osc-port", ports[0], "--play"}, environment);
  const std::string record = recordOf(avahi, "Velor-OSC", ports[0]);
  EXPECT_TRUE(
      std::regex_match(record, std::regex("\"uid=[0-9A-F]{8}-([0-9A-F]{4}-){3}[0-9A-F]{12}\"")))
      << record;
  VelorProcess second({"--headless", "--osc-port", ports[1], "--osc-allow", "127.0.0.1",
                       "--osc-target", "127.0.0.1:" + target.port()},
                      environment);
  EXPECT_NE(recordOf(avahi, R"(Velor-OSC\\032\\0352)", ports[1]), record);
  const auto connections = [&ports](const VelorProcess& velor, int to) {
    return countOf(velor.log(), "connecting to 127.0.0.1:" + ports[to] + "\n");
  };
  EXPECT_TRUE(
      waitFor(kPatience,
              [&] {
                return connections(first, 1) == 1 && connections(second, 0) == 1 &&
                       countOf(first.log(), "netServiceDidResolveAddress:] 127.0.0.1") == 2 &&
                       countOf(second.log(), "netServiceDidResolveAddress:] 127.0.0.1") == 2;
              }))
      << first.log() << second.log();
  // The state of the first is a command to the second, which reports it to its own target.
  target.waitForLine("/velor/transport/play f 1.000000");

  avahi.kill();
  EXPECT_TRUE(waitFor(kPatience, [&] {
    return countOf(second.log(), "did remove service: Velor-OSC\n") == 1;
  })) << second.log();
  avahi.start();
  EXPECT_EQ(recordOf(avahi, "Velor-OSC", ports[0]), record);
  EXPECT_EQ(first.end(SIGTERM), 0);
  EXPECT_EQ(second.end(SIGTERM), 0);
  EXPECT_EQ(connections(first, 0) + connections(second, 1), 0U) << first.log() << second.log();
}

}  // namespace
}  // namespace velor::test
