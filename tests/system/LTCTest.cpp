// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/support/JackPeer.h"
#include "tests/support/Servers.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

TEST(LTC, AClockFollowsTheReaderOfItsOwnCommandLine) {
  JackServer server(256);
  server.start();
  VelorOnTerminal follower(200,
                           {"--headless", "--format", "25", "--ltc-in", "system:1", "--sync-source",
                            "LTC Reader 1", "--arm"},
                           server.environment());
  ASSERT_TRUE(follower.readUntil("25  armed  from LTC Reader 1", 10)) << follower.text();
  VelorProcess player(
      {"--headless", "--format", "25", "--start", "10:00:00:00", "--play", "--ltc-out", "system:1"},
      server.environment());
  JackPeer patch("Patch");
  patch.activate();
  ASSERT_TRUE(waitFor(10, [&patch] {
    return patch.connect("Velor-01:LTC Generator 1 out_1", "Velor:LTC Reader 1 in_1");
  })) << player.errors();
  EXPECT_TRUE(follower.readUntil("25  chasing  from LTC Reader 1", 10)) << follower.text();
  EXPECT_EQ(player.end(SIGINT), 0);
  EXPECT_EQ(follower.end(SIGINT), 0);
}

// The state has a reader of a device that is away, in whose place it listens to the very
// one that is named now.
TEST(LTC, TheReaderThatIsNamedStaysWhenTheDeviceOfAnEarlierRunReturns) {
  JackServer server(256);
  server.start();
  const TemporaryFolder folder;
  auto environment = server.environment();
  environment.push_back("XDG_DATA_HOME=" + folder.path().string());
  {
    JackPeer stage("Stage");
    stage.playAudio("out", std::vector<float>(48000));
    stage.activate();
    VelorOnTerminal velor(160, {"--headless", "--keep", "--ltc-in", "Stage:1"}, environment);
    ASSERT_TRUE(velor.readUntil("from Stage:1  ", 10)) << velor.text();
    EXPECT_EQ(velor.end(SIGINT), 0);
  }
  VelorOnTerminal velor(160, {"--headless", "--ltc-in", "system:1"}, environment);
  ASSERT_TRUE(velor.readUntil("from system:1  ", 10)) << velor.text();
  JackPeer stage("Stage");
  stage.playAudio("out", std::vector<float>(48000));
  stage.activate();
  EXPECT_FALSE(velor.readUntil("(missing)", 1.5)) << velor.text();
  EXPECT_EQ(velor.end(SIGINT), 0);
}

TEST(LTCAlone, WithoutOptionsAndDisplayALookAtTheWholeEndsWithWhatWasSeen) {
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
      EXPECT_EQ(text.substr(at + 24, 8), sent.substr(0, 8)) << "of the same second";
      ++lines;
    }
  }
  EXPECT_EQ(lines, 10U) << text;
  EXPECT_NE(text.find("\nThe times read are the times sent: 10 of 10"), std::string::npos);
  EXPECT_EQ(velor.errors(), "");
}

}  // namespace
}  // namespace velor::test
