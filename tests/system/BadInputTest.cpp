// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/support/JackPeer.h"
#include "tests/support/Servers.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

void expectRefused(VelorProcess& velor, const char* reason) {
  EXPECT_EQ(velor.waitForEnd(10), 2);
  const std::string errors = velor.errors();
  EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
  EXPECT_EQ(errors.rfind("velor: ", 0), 0U) << errors;
  EXPECT_NE(errors.find(reason), std::string::npos) << errors;
  EXPECT_EQ(velor.output(), "");
}

TEST(BadInput, APortThatIsMissingIsRefusedWithThoseThatAreThereAndNothingIsSent) {
  JackServer server;
  server.enter();
  server.start();
  JackPeer desk("Desk");
  desk.addInput("in");
  desk.addInput("other");
  desk.activate();
  VelorProcess velor({"--headless", "--play", "--mtc-out", "Desk:in", "--mtc-out", "Desk"},
                     server.environment());
  expectRefused(velor, "'Desk:in', 'Desk:other'");
  EXPECT_EQ(desk.recordedCount(), 0U);
}

TEST(BadInput, WithoutAServerAPortAndATimeThatTheFormatDoesNotHaveAreRefusedWithTheReason) {
  const JackServer server;  // not started
  VelorProcess port({"--headless", "--mtc-out", "Console"}, server.environment());
  expectRefused(port, "no server");
  VelorProcess time({"--headless", "--play", "--start", "01:00:00:25"}, server.environment());
  expectRefused(time, "--start: '01:00:00:25' is out of range (up to 23:59:59:24 at 25)");
}

}  // namespace
}  // namespace velor::test
