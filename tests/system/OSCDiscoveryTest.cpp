// SPDX-License-Identifier: MIT
// The program beside an Avahi daemon that knows the loopback interface alone, and Avahi's
// and liblo's tools, which know nothing of it.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/OSCTools.h"
#include "tests/support/Servers.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

constexpr double kPatience = 15;  // s

// As avahi-browse writes names: "\\035" is the character of the decimal number 35.
std::string unescaped(const std::string& text) {
  std::string plain;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isEscape = text[i] == '\\';
    plain += isEscape ? static_cast<char>(std::stoi(text.substr(i + 1, 3))) : text[i];
    i += isEscape ? 3 : 0;
  }
  return plain;
}

// A line of avahi-browse for a service whose address is known.
struct Resolved {
  std::string name;
  std::string port;
  std::string txt;
};

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

  // All services of the type that avahi-browse sees now. It does not end, and tells
  // nothing, when one goes while it asks where that is.
  std::optional<std::vector<Resolved>> browse() {
    const std::string path = mFolder.path().string() + "/browse-" + std::to_string(++mLooks);
    Process peer({"avahi-browse", "-rpt", "_osc._udp"}, mAvahi.environment(), path, "/dev/null");
    if (peer.waitForEnd(kPatience / 3) != 0) {
      return std::nullopt;
    }
    std::vector<Resolved> services;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
      // =;interface;protocol;name;type;domain;host;address;port;txt
      std::vector<std::string> fields;
      for (std::size_t at = 0; fields.size() < 9; at = line.find(';', at) + 1) {
        const auto end = line.find(';', at);
        fields.push_back(line.substr(at, end - at));
        if (end == std::string::npos) {
          break;
        }
      }
      if (fields.size() == 9 && fields[0] == "=") {
        EXPECT_EQ(fields[1], "lo");
        services.push_back({unescaped(fields[3]), fields[8], line.substr(line.rfind(';') + 1)});
      }
    }
    return services;
  }
  // Waits until peers see a service of that port under that name; its TXT record.
  std::string waitForService(const std::string& name, const std::string& port) {
    std::string txt;
    EXPECT_TRUE(waitFor(kPatience,
                        [&] {
                          for (const Resolved& service :
                               browse().value_or(std::vector<Resolved>())) {
                            if (service.name == name && service.port == port) {
                              txt = service.txt;
                              return true;
                            }
                          }
                          return false;
                        }))
        << name << " at " << port;
    return txt;
  }
  bool waitUntilNoneIsSeen() {
    return waitFor(kPatience, [this] {
      const auto seen = browse();
      return seen && seen->empty();
    });
  }

  const JackServer mJack;  // not started
  AvahiServer mAvahi;

 private:
  TemporaryFolder mFolder;
  int mLooks = 0;
};

// The TXT record as avahi-browse writes it: a UUID alone.
testing::AssertionResult isUIDRecord(const std::string& txt) {
  const std::string form = "\"uid=XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX\"";
  bool fits = txt.size() == form.size();
  for (std::size_t i = 0; fits && i < form.size(); ++i) {
    fits = form[i] == 'X' ? std::string("0123456789ABCDEF").find(txt[i]) != std::string::npos
                          : txt[i] == form[i];
  }
  return (fits ? testing::AssertionSuccess() : testing::AssertionFailure()) << txt;
}

std::size_t timesLogged(const VelorProcess& velor, const std::string& what) {
  const std::string log = velor.log();
  std::size_t count = 0;
  for (auto at = log.find(what); at != std::string::npos; at = log.find(what, at + 1)) {
    ++count;
  }
  return count;
}

// How often the program has begun to send to a port of this host, by any address.
std::size_t connectionsTo(const VelorProcess& velor, const std::string& port) {
  return timesLogged(velor, "connecting to 127.0.0.1:" + port + "\n") +
         timesLogged(velor, "connecting to ::1:" + port + "\n");
}

TEST_F(OSCDiscovery, PeersSeePortAndUIDOfEachRunAndNothingAfterItsEndHoweverItEnds) {
  std::vector<std::string> records;
  for (const int signal : {SIGTERM, SIGKILL}) {
    const std::string port = freePort();
    VelorProcess velor = velorAt(port);
    records.push_back(waitForService("Velor-OSC", port));
    EXPECT_TRUE(isUIDRecord(records.back()));
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
  EXPECT_NE(waitForService("Velor-OSC #2", ports[1]), record);
  // Each finds both, itself too, and hears where they are.
  for (const VelorProcess* each : {&first, &second}) {
    EXPECT_TRUE(waitFor(kPatience, [each] {
      return timesLogged(*each, "netServiceDidResolveAddress:] 127.0.0.1") == 2;
    })) << each->log();
  }
  EXPECT_EQ(connectionsTo(first, ports[1]), 1U) << first.log();
  EXPECT_EQ(connectionsTo(second, ports[0]), 1U) << second.log();
  // The first one's state is a command to the second, which tells its own target.
  behindSecond.waitForLine("/velor/transport/play f 1.000000");
  EXPECT_EQ(first.end(SIGTERM), 0);
  EXPECT_EQ(second.end(SIGTERM), 0);
  EXPECT_EQ(connectionsTo(first, ports[0]), 0U) << first.log();
  EXPECT_EQ(connectionsTo(second, ports[1]), 0U) << second.log();
}

// An announcement may end by the network's fault: the show goes on, and a target that is
// announced again may have begun anew, so that it is told its state.
TEST_F(OSCDiscovery, AnAnnouncedTargetIsToldAllGoesOnWithoutItsAnnouncementAndIsToldAllAgain) {
  const std::string port = freePort();
  const OSCDump desk;
  VelorProcess velor = velorAt(port);
  waitForService("Velor-OSC", port);
  const auto expectState = [&desk](bool runs, std::size_t from) {
    const std::size_t at = desk.waitForLine("/velor/speed f 0.000000", from);
    EXPECT_EQ(
        desk.waitForLine(
            runs ? "/velor/transport/play f 1.000000" : "/velor/transport/play f 0.000000", at),
        at + 1);
    return desk.waitForLine(
        runs ? "/velor/transport/stop f 0.000000" : "/velor/transport/stop f 1.000000", at);
  };
  const auto waitForTimes = [&desk](std::size_t count) {
    const std::size_t before = desk.seen().size();
    EXPECT_TRUE(waitFor(kPatience, [&] {
      const auto lines = desk.seen();
      return std::count_if(lines.begin() + static_cast<std::ptrdiff_t>(before), lines.end(),
                           [](const std::string& line) {
                             return line.starts_with("/velor/time s \"00:00:");
                           }) >= static_cast<std::ptrdiff_t>(count);
    }));
  };
  Process announced = publisher("Desk", desk);
  std::size_t at = expectState(false, 0);
  sendOSC(port, "/velor/transport/play", "1");
  at = desk.waitForLine("/velor/transport/play f 1.000000", at);
  waitForTimes(10);

  announced.end(SIGTERM);
  EXPECT_TRUE(
      waitFor(kPatience, [&] { return timesLogged(velor, "did remove service: Desk") == 1; }));
  waitForTimes(10);

  at = desk.seen().size();
  announced = publisher("Desk", desk);
  expectState(true, at);
  EXPECT_EQ(velor.end(SIGTERM), 0);
  EXPECT_EQ(connectionsTo(velor, desk.port()), 1U);
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
