// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/JackPeer.h"
#include "tests/support/Servers.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

TEST(BadInput, IsOneClearLineAndTheStatus2AndNothingIsSent) {
  JackServer server;
  server.enter();
  server.start();
  JackPeer desk("Desk");
  desk.addInput("in");
  desk.addInput("other");
  desk.addOutput("out");
  desk.activate();

  struct Case {
    std::vector<std::string> arguments;
    std::vector<std::string> told;  // what the line must hold
  };
  const Case cases[] = {
      {{"--start", "1:2"}, {"--start", "'1:2'", "HH:MM:SS:FF"}},
      {{"--start", "01:00:00:00 "}, {"--start"}},
      {{"--start", "24:00:00:00"}, {"out of range"}},
      {{"--start", "01:00:00:25"}, {"--start", "out of range", "23:59:59:24"}},
      {{"--start", "01:00\n:00:00"}, {"--start"}},
      {{"--stop-at", ""}, {"--stop-at", "''"}},
      {{"--rate-percent", ""}, {"--rate-percent"}},
      {{"--format", "29.97df", "--start", "00:01:00;01"}, {"00:01:00;01", "drop-frame"}},
      {{"--format", "26"}, {"--format", "'26'", "23.98", "29.97df", "30df"}},
      {{"--mode", "sideways"}, {"--mode", "normal", "stop", "loop", "time-of-day"}},
      {{"--mtc-out", "Desk"}, {"--mtc-out", "'Desk'", "'Desk:in'", "'Desk:other'"}},
      {{"--mtc-out", "Desk:in", "--mtc-out", "12345"}, {"'12345'", "'Desk:in'"}},
      {{"--sync-source", "Nowhere"}, {"--sync-source", "'Nowhere'", "'Desk:out'"}},
      {{"--arm"}, {"--arm", "--play"}},
      {{"--mode", "loop", "--stop-at", "00:00:01:00"}, {"--stop-at", "contradicts"}},
      {{"--stop-at", "00:00:01:00", "--loop", "00:00:00:00", "00:00:02:00"}, {"contradict"}},
      {{"--loop", "00:00:02:00", "00:00:01:00"}, {"--loop", "end after it starts"}},
      {{"--loop", "00:00:02:00"}, {"--loop"}},
      {{"--mode", "time-of-day", "--start", "01:00:00:00"}, {"--start", "time-of-day"}},
      {{"--rate-percent", "2.5"}, {"--rate-percent", "-2 to 2"}},
      {{"--rate-percent", "nan"}, {"--rate-percent"}},
      {{"--preroll", "61"}, {"--preroll", "0 to 60"}},
      {{"--offset", "nonsense"}, {"--offset"}},
      {{"--ltc-out", "Nowhere:1"}, {"--ltc-out", "'Nowhere'", "'Velor Loopback'"}},
      {{"--ltc-out", "Velor Loopback:3"}, {"--ltc-out", "no channel '3'", "2 'Velor Loopback 2'"}},
      {{"--ltc-out", "velor.loopback:0"}, {"--ltc-out", "no channel '0'"}},
      {{"--ltc-out", "Velor Loopback"}, {"--ltc-out", "DEVICE:CHANNEL"}},
      {{"--ltc-out", "velor.loopback:1", "--ltc-out", "Velor Loopback:1"}, {"twice"}},
      {{"--ltc-out", "velor.loopback:1", "--ltc-level", "nandB"}, {"--ltc-level", "'nandB'"}},
      {{"--ltc-out", "velor.loopback:1", "--ltc-user-bits", "1234567"}, {"--ltc-user-bits"}},
      {{"--ltc-level", "-20dB"}, {"--ltc-level", "--ltc-out"}},
      {{"--ltc-in", "Nowhere:1"}, {"--ltc-in", "with inputs", "'Nowhere'", "'Velor Loopback'"}},
      {{"--ltc-in", "velor.loopback:"}, {"--ltc-in", "DEVICE:CHANNEL"}},
      {{"--ltc-in", "velor.loopback:1", "--freewheel", "1.5"}, {"--freewheel", "'1.5'"}},
      {{"--ltc-in", "velor.loopback:1", "--freewheel", "-2"}, {"--freewheel", "-1 to 86400"}},
      {{"--freewheel", "1"}, {"--freewheel", "--ltc-in"}},
      {{"--no-such-option"}, {"--no-such-option"}},
      {{"stray", "too"}, {"too"}},
      {{"stray", "--recover"}, {"FILE", "--recover"}},
      {{"--recover"}, {"--recover", "no run was cut off"}},
  };
  for (const Case& c : cases) {
    std::vector<std::string> arguments = {"--headless", "--play"};
    arguments.insert(arguments.end(), c.arguments.begin(), c.arguments.end());
    VelorProcess velor(arguments, server.environment());
    std::string shown;
    for (const std::string& argument : c.arguments) {
      shown += argument + " ";
    }
    EXPECT_EQ(velor.waitForEnd(10), 2) << shown;
    const std::string errors = velor.errors();
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << shown << errors;
    EXPECT_EQ(errors.rfind("velor: ", 0), 0U) << shown << errors;
    for (const std::string& told : c.told) {
      EXPECT_NE(errors.find(told), std::string::npos) << shown << errors;
    }
    EXPECT_EQ(velor.output(), "") << shown;
  }
  EXPECT_EQ(desk.recordedCount(), 0U);
}

TEST(BadInput, WithoutAServerAPortIsRefusedWithTheReason) {
  JackServer server;  // not started
  VelorProcess velor({"--headless", "--mtc-out", "Console"}, server.environment());
  EXPECT_EQ(velor.waitForEnd(10), 2);
  EXPECT_NE(velor.errors().find("no server"), std::string::npos) << velor.errors();
}

}  // namespace
}  // namespace velor::test
