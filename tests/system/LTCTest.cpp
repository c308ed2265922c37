// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/support/JackPeer.h"
#include "tests/support/Servers.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/VelorProcess.h"
#include "tests/system/MTCStream.h"

namespace velor::test {
namespace {

// One program plays, another reads, and what lies between is a connection of JACK's
// that can be cut.
TEST(LTC, TheMTCOfAReaderGoesOnForItsFreewheelAndFollowsAgainWithoutAStepBack) {
  JackServer server(256);
  server.enter();
  server.start();
  JackPeer desk("Desk");
  desk.addInput("in");
  desk.recordClock(60);
  desk.activate();
  VelorProcess reader({"--headless", "--ltc-in", "system:1", "--freewheel", "1"},
                      server.environment());
  const auto portOf = [&desk](const std::string& pattern) {
    const auto found = desk.ports(pattern, JACK_DEFAULT_AUDIO_TYPE);
    return found.size() == 1 ? found[0] : std::string();
  };
  std::string in;
  ASSERT_TRUE(waitFor(10, [&] { return !(in = portOf("^Velor:LTC Reader 1 in_1$")).empty(); }));
  ASSERT_TRUE(desk.connect("Velor:LTC Reader 1", desk.fullName("in")));
  VelorProcess player({"--headless", "--format", "24", "--start", "10:00:00:00", "--play",
                       "--rate-percent", "1", "--ltc-out", "system:1"},
                      server.environment());
  std::string out;
  ASSERT_TRUE(waitFor(10, [&] {
    return !(out = portOf("^Velor-01:LTC Generator 1 out_1$")).empty() && desk.connect(out, in);
  }));
  const auto blocks = [&desk] { return readStream(desk.recorded(), 0).blocks; };
  ASSERT_TRUE(waitFor(10, [&] { return blocks().size() > 20; }));

  const std::size_t before = blocks().size();
  ASSERT_TRUE(desk.disconnect(out, in));
  ASSERT_TRUE(waitFor(2, [&] { return blocks().size() >= before + 8; }));  // about 0.67 s
  ASSERT_TRUE(desk.connect(out, in));
  ASSERT_TRUE(waitFor(5, [&] { return blocks().size() > before + 25; }));
  ASSERT_TRUE(desk.disconnect(out, in));
  const std::uint64_t cut = desk.frameNow();
  ASSERT_TRUE(waitFor(5, [&] { return desk.frameNow() > cut + std::uint64_t{2} * 48000; }));
  EXPECT_EQ(player.end(SIGINT), 0);
  EXPECT_EQ(reader.end(SIGINT), 0);

  const Stream stream = readStream(desk.recorded(), 0);
  EXPECT_EQ(stream.faults, 0) << stream.fault;
  std::vector<double> spacings;
  std::size_t left = 0;
  for (std::size_t i = 1; i < stream.blocks.size(); ++i) {
    const Block& block = stream.blocks[i];
    // A server that was held up runs fast afterwards, and the LTC with it: its 24.24 frames per
    // second may read as 25. Numbers run on as in the format that the block names.
    const double drift =
        desk.clockDrift(block.frames[0]) - desk.clockDrift(block.frames[0] - 48000);
    if (std::abs(drift) < 48000 * 0.001) {
      spacings.push_back(static_cast<double>(block.frames[7] - block.frames[0]) / 7);
    }
    const WireFormat& format = wireFormat(block.rateCode == 1 ? "25" : "24");
    // When the LTC is back some frames are left out: those by which the freewheel was
    // late, and the first that are read.
    Label expected = twoNumbersOn(stream.blocks[i - 1].label, format);
    for (int most = 8; most > 0 && block.label != expected; --most) {
      expected = next(expected, format);
      ++left;
    }
    EXPECT_EQ(block.label.text(), expected.text())
        << "after " << stream.blocks[i - 1].label.text() << ", block " << i << ", rate code "
        << block.rateCode;
  }
  // The pace is that of the LTC, to the 1 % that it may be off before it is set again.
  // Freewheeling pieces may be due before they are sent, but most blocks are read.
  if (!spacings.empty()) {
    const double spacing = 48000 / (24 * 1.01) / 4;
    EXPECT_NEAR(quantile(spacings, 0.5), spacing, spacing * 0.012);
  }
  EXPECT_LE(left, 16U);  // frames, at the return and where the rate was found
  // Four frames of silence, a second of freewheel, and a block that was on its way.
  const double tail = static_cast<double>(stream.blocks.back().frames[7] - cut) / 48000;
  EXPECT_GT(tail, 1.0);
  EXPECT_LT(tail, 1.0 + 4 / 24.0 + 3 * 2 / 24.0);
  std::printf(
      "%zu blocks, %zu at a steady server, %zu frames left out, the last piece %.2f s after the "
      "cut\n",
      stream.blocks.size(), spacings.size(), left, tail);
}

TEST(LTC, AClockFollowsTheReaderOfItsOwnCommandLine) {
  JackServer server(256);
  server.enter();
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
  server.enter();
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
