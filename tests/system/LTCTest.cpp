// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/support/JackPeer.h"
#include "tests/support/Servers.h"
#include "tests/support/VelorProcess.h"
#include "tests/system/MTCStream.h"

namespace velor::test {
namespace {

TEST(LTC, WhatIsPlayedIsReadAndOthersGetItAsMTC) {
  JackServer server;
  server.enter();
  server.start();
  JackPeer desk("Desk");
  desk.addInput("in");
  desk.activate();
  VelorOnTerminal velor(
      240,
      {"--headless", "--play", "--start", "10:00:00:00", "--ltc-out", "Velor Loopback:2",
       "--ltc-user-bits", "89ABCDEF", "--ltc-in", "Velor Loopback:2", "--freewheel", "1"},
      server.environment());
  ASSERT_TRUE(velor.readUntil("25  reading  ", 10)) << velor.text();
  ASSERT_TRUE(velor.readUntil("user bits 89ABCDEF  from Velor Loopback:2", 5)) << velor.text();
  const auto ports = desk.ports("LTC Reader 1");
  ASSERT_EQ(ports.size(), 1U);
  ASSERT_TRUE(desk.connect(ports[0], desk.fullName("in")));
  ASSERT_TRUE(waitFor(10, [&desk] { return desk.recordedCount() > 8 * 30; }));
  EXPECT_EQ(velor.end(SIGINT), 0);
  auto events = desk.recorded();
  // The port was connected somewhere in a block.
  while (!events.empty() && events.front().bytes.at(1) >= 0x10) {
    events.erase(events.begin());
  }
  const Stream stream = readStream(events, 0);
  EXPECT_EQ(stream.faults, 0) << stream.fault;
  ASSERT_GE(stream.blocks.size(), 25U);
  const WireFormat& format = wireFormat("25");
  for (std::size_t i = 1; i < stream.blocks.size(); ++i) {
    EXPECT_EQ(stream.blocks[i].label, twoNumbersOn(stream.blocks[i - 1].label, format));
  }
  EXPECT_EQ(stream.blocks.front().label.hours, 10);
}

TEST(LTC, WithoutOptionsAndDisplayALookAtTheWholeEndsWithWhatWasSeen) {
  const JackServer server;  // not started
  auto environment = server.environment();
  environment.insert(environment.end(), {"DISPLAY=", "WAYLAND_DISPLAY="});
  VelorProcess velor({}, environment);
  EXPECT_EQ(velor.waitForEnd(20), 0) << velor.output() << velor.errors();
  const std::string text = velor.output();
  std::size_t lines = 0;
  for (auto at = text.find("sent "); at != std::string::npos; at = text.find("sent ", at + 1)) {
    const std::string sent = text.substr(at + 5, 11);
    if (text.compare(at + 16, 8, "   read ") == 0) {
      EXPECT_EQ(text.substr(at + 24, 11), sent);
      ++lines;
    }
  }
  EXPECT_EQ(lines, 10U) << text;
  EXPECT_NE(text.find("\nWhat was read is what was sent"), std::string::npos);
  EXPECT_EQ(velor.errors(), "");
}

}  // namespace
}  // namespace velor::test
