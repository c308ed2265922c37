// SPDX-License-Identifier: MIT
// The clock as a follower: a client that knows nothing of it sends MTC, and a
// recorder gets both that and the relay.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/FairRun.h"
#include "tests/support/VelorProcess.h"
#include "tests/system/ClockOnJack.h"
#include "tests/system/MTCStream.h"

namespace velor::test {
namespace {

class Reports final : public VLClockDelegate {
 public:
  void clockDidStartPlaying(VLClock&) override { ++starts; }
  void clockDidStopPlaying(VLClock&) override { ++stops; }
  void clockReceivesWrongFormat(VLClock&, std::uint32_t format) override {
    wrongFormats.push_back(format);
  }
  bool clockShouldCheckForMTCLoop(VLClock&) override { return checksLoops; }
  void clockDetectedMTCLoop(VLClock&, const std::shared_ptr<KVMIDIEndpoint>& source,
                            const std::shared_ptr<KVMIDIEndpoint>& destination) override {
    loops.emplace_back(source != nullptr ? VLPortName(*source) : "", VLPortName(*destination));
    loopAt = host::current().AudioGetCurrentHostTime();
  }
  bool checksLoops = false;
  int starts = 0;
  int stops = 0;
  std::vector<std::uint32_t> wrongFormats;
  std::vector<std::pair<std::string, std::string>> loops;
  std::uint64_t loopAt = 0;
};

class Chase : public ClockOnJack {
 protected:
  Chase() {
    clock().setDelegate(mReports);
    makeSender();
  }

  void makeSender() {
    mSender = std::make_unique<JackPeer>("Sender");
    mSender->addOutput("out");
    mSender->activate();
    EXPECT_TRUE(mSender->connect("Sender:out", "Recorder:second"));
  }

  std::shared_ptr<KVMIDIEndpoint> source(const std::string& name) {
    std::shared_ptr<KVMIDIEndpoint> found;
    until(3, [&] {
      std::string error;
      found = VLEndpointNamed(name, KVMIDICore::sharedCore().sources(), "source", error);
      return found != nullptr;
    });
    return found;
  }

  void follow(const WireFormat& format, std::uint32_t code) {
    enable("Recorder:in");
    clock().setSmpteFormat(code);
    ASSERT_EQ(format.numbersPerSecond, ltc_frames_per_second(code));
    clock().setMIDISyncSource(source("Sender:out"));
    midi::service().waitUntilSettled();
    clock().arm();
  }

  std::uint64_t soon() const { return mSender->frameNow() + 4800; }

  const std::shared_ptr<Reports> mReports = std::make_shared<Reports>();
  std::unique_ptr<JackPeer> mSender;
};

// Each relayed block stands where the sender's own block of that label stands, and
// its label is the sender's plus the offset.
void expectRelay(const std::vector<Block>& relayed, const std::vector<Block>& sent,
                 const WireFormat& format, int offsetSeconds) {
  ASSERT_GE(relayed.size(), 20U);
  double worst = 0;
  for (const Block& block : relayed) {
    const auto own = std::find_if(sent.begin(), sent.end(), [&](const Block& candidate) {
      Label moved = candidate.label;
      moved.seconds += offsetSeconds;
      return moved == block.label;
    });
    if (own == sent.end()) {
      continue;  // the end of the stream: the relay names what the sender never sent
    }
    for (std::size_t piece = 0; piece < 8; ++piece) {
      worst = std::max(worst, std::abs(static_cast<double>(block.frames[piece]) -
                                       static_cast<double>(own->frames[piece])));
    }
  }
  EXPECT_LE(worst, 2.0) << format.name;
  EXPECT_LE(gridOf(relayed, format, 48000).worstOffSpacing, 1.0) << format.name;
  std::printf(
      "%-8s relayed pieces stand within %.0f samples of the sender's, spacing within %.2f\n",
      format.name, worst, gridOf(relayed, format, 48000).worstOffSpacing);
}

class ChaseOfFormat : public testing::TestWithParam<std::pair<const char*, std::uint32_t>> {};

// The setting of one run, of which there may have to be several.
class ChaseRun final : public Chase {
 public:
  void chasesAndRelays(const WireFormat& format, std::uint32_t code);

 private:
  void TestBody() override {}
};

void ChaseRun::chasesAndRelays(const WireFormat& format, std::uint32_t code) {
  follow(format, code);
  clock().setSmpteOffset(timeOf(0, 0, 10, 0));
  const std::uint64_t start = soon();
  const double blockFrames = 2 * 48000 / format.framesPerSecond;
  sendStream(*mSender, 0, format, {10, 20, 30, 0}, start, 60);
  ASSERT_TRUE(until(3, [this] { return clock().status() == VLClockChasing; }));
  // The second block ends 15 quarter frames after the start; a cycle, and the way
  // through the queues, come on top.
  EXPECT_LT(static_cast<double>(mSender->frameNow() - start), 2 * blockFrames + 2 * 480);
  EXPECT_GT(static_cast<double>(mSender->frameNow() - start), 1.8 * blockFrames);
  run(60 * 2 / format.framesPerSecond);
  ASSERT_TRUE(until(2, [this] { return clock().status() == VLClockArmed; }));
  EXPECT_EQ(mReports->starts, 1);
  EXPECT_EQ(mReports->stops, 1);
  const Stream relayed = stream(0);
  EXPECT_EQ(relayed.faults, 0) << relayed.fault;
  EXPECT_EQ(relayed.blocks.size(), 59U);
  expectRelay(relayed.blocks, stream(1).blocks, format, 10);
}

TEST_P(ChaseOfFormat, ChasesFromTheSecondBlockOnAndRelaysAtTheSendersTimesWithTheOffset) {
  // A cycle that comes late moves the server's idea of time, by which pieces are placed.
  constexpr std::chrono::microseconds kStall{1000};
  inFairRun([] { ChaseRun().chasesAndRelays(wireFormat(GetParam().first), GetParam().second); },
            kStall);
}

INSTANTIATE_TEST_SUITE_P(RateCodes, ChaseOfFormat,
                         testing::Values(std::pair("24", kSMPTETimeType24),
                                         std::pair("25", kSMPTETimeType25),
                                         std::pair("29.97df", kSMPTETimeType2997Drop),
                                         std::pair("30", kSMPTETimeType30)),
                         [](const auto& format) {
                           return "code" + std::to_string(wireFormat(format.param.first).rateCode);
                         });

TEST_F(Chase, AWrongFormatIsToldOnceAndChasedWhenTheClockTakesItOver) {
  follow(wireFormat("25"), kSMPTETimeType25);
  sendStream(*mSender, 0, wireFormat("30"), {1, 0, 0, 0}, soon(), 60);
  ASSERT_TRUE(until(3, [this] { return clock().status() == VLClockArmedWrongFormat; }));
  run(1);
  EXPECT_EQ(mReports->wrongFormats, std::vector<std::uint32_t>{kSMPTETimeType30});
  EXPECT_TRUE(stream(0).blocks.empty());
  clock().setSmpteFormat(kSMPTETimeType30);
  ASSERT_TRUE(until(1, [this] { return clock().status() == VLClockChasing; }));
}

TEST_F(Chase, ASenderThatIsPluggedInAgainAndAServerThatIsStartedAgainAreFollowedAgain) {
  follow(wireFormat("25"), kSMPTETimeType25);
  const auto expectChase = [this] {
    sendStream(*mSender, 0, wireFormat("25"), {1, 0, 0, 0}, soon(), 1000);
    ASSERT_TRUE(until(5, [this] { return clock().status() == VLClockChasing; }));
  };
  expectChase();
  mSender.reset();
  ASSERT_TRUE(until(3, [this] { return clock().status() == VLClockArmed; }));
  makeSender();
  ASSERT_NE(source("Sender:out"), nullptr);
  expectChase();

  mServer.kill();
  ASSERT_TRUE(until(
      5, [this] { return clock().status() == VLClockArmed && !midi::service().isConnected(); }));
  mSender.reset();
  mRecorder.reset();
  mServer.start();
  mRecorder = std::make_unique<JackPeer>("Recorder");
  mRecorder->addInput("in");
  mRecorder->addInput("second");
  mRecorder->activate();
  makeSender();
  ASSERT_NE(source("Sender:out"), nullptr);
  expectChase();
  EXPECT_NE(clock().MIDISyncSource(), nullptr);
}

TEST_F(Chase, ALoopThroughACableIsFoundInATenthOfASecondAndForeignTokensAreNone) {
  mReports->checksLoops = true;
  // A destination whose other end comes back as a source.
  JackPeer cable("Cable");
  cable.addInput("in");
  cable.addOutput("out");
  cable.forward(0, 0);
  cable.activate();
  ASSERT_NE(source("Cable:out"), nullptr);
  enable("Recorder:in");
  enable("Cable:in");
  midi::service().waitUntilSettled();
  run(0.3);  // the checks of the two destinations end, with no source
  EXPECT_TRUE(mReports->loops.empty());

  // Another instance's token, of the right form and unknown here, is not ours.
  clock().setMIDISyncSource(source("Sender:out"));
  midi::service().waitUntilSettled();
  mSender->sendAt(soon(), 0,
                  {0xF0, 0x7F, 0x7F, 0x04, 0x05, 0x03, 0x04, 0x00, 0x39, 0x38, 0x22, 0x71, 0x11,
                   0x61, 0x01, 0x02, 0x03, 0x04, 0xF7});
  run(0.5);
  EXPECT_TRUE(mReports->loops.empty());

  // Already the check that the choice of the source begins, with its way to be opened.
  clock().setMIDISyncSource(source("Cable:out"));
  ASSERT_TRUE(until(1, [this] { return !mReports->loops.empty(); }));
  run(0.3);
  EXPECT_EQ(mReports->loops.size(), 1U);

  mReports->loops.clear();
  const std::uint64_t asked = mHost->AudioGetCurrentHostTime();
  clock().doLoopDetection();
  clock().doLoopDetection();  // one under way swallows the next
  ASSERT_TRUE(until(1, [this] { return !mReports->loops.empty(); }));
  run(0.3);
  ASSERT_EQ(mReports->loops.size(), 1U);
  EXPECT_EQ(mReports->loops[0], std::pair(std::string("Cable:out"), std::string("Cable:in")));
  const double took = static_cast<double>(mReports->loopAt - asked) / 1e6;
  EXPECT_LT(took, 100.0);
  std::printf("loop found after %.1f ms\n", took);
}

TEST(HeadlessChase, ALoopThatReturnsWithItsServerIsFoundAgain) {
  JackServer server;
  server.enter();
  server.start();
  const auto makeConsole = [] {
    auto console = std::make_unique<JackPeer>("Console");
    console->addInput("in");
    console->addOutput("out");
    console->forward(0, 0);
    console->activate();
    return console;
  };
  auto console = makeConsole();
  VelorProcess velor(
      {"--headless", "--sync-source", "Console:out", "--mtc-out", "Console:in", "--ignore-loops"},
      server.environment());
  const auto loopsTold = [&velor] {
    const std::string errors = velor.errors();
    return std::count(errors.begin(), errors.end(), '\n');
  };
  ASSERT_TRUE(waitFor(5, [&] { return loopsTold() == 1; })) << velor.errors();

  server.kill();
  console.reset();
  server.start();
  console = makeConsole();
  EXPECT_TRUE(waitFor(5, [&] { return loopsTold() == 2; })) << velor.errors();
  EXPECT_EQ(velor.end(SIGTERM), 0);
}

TEST(HeadlessChase, TheStatusLineTellsArmedChasingTheWrongFormatAndALoop) {
  JackServer server;
  server.enter();
  server.start();
  JackPeer sender("Sender");
  sender.addOutput("out");
  sender.activate();
  JackPeer console("Console");
  console.addInput("in");
  console.addOutput("out");
  console.forward(0, 0);
  console.activate();

  {
    VelorOnTerminal velor(150,
                          {"--headless", "--format", "25", "--sync-source", "Sender:out", "--arm",
                           "--mtc-out", "Console:in"},
                          server.environment());
    ASSERT_TRUE(velor.readUntil("25  armed  from Sender:out  to Console:in", 5)) << velor.text();
    const std::uint64_t end =
        sendStream(sender, 0, wireFormat("25"), {1, 0, 0, 0}, sender.frameNow() + 9600, 15);
    ASSERT_TRUE(velor.readUntil("01:00:00:10", 5)) << velor.text();
    ASSERT_TRUE(velor.readUntil("25  chasing", 5)) << velor.text();
    sendStream(sender, 0, wireFormat("30"), {1, 0, 0, 0}, end + 48000, 20);
    ASSERT_TRUE(
        velor.readUntil("velor: The clock receives MTC on Sender:out at 30 fps, which does "
                        "not match the currently set format of 25 fps: Cancel",
                        5))
        << velor.text();
    ASSERT_TRUE(velor.readUntil("25  stopped", 5)) << velor.text();
    EXPECT_EQ(velor.end(SIGINT), 0);
    // What it relayed came to the console and out of it, but nobody listened there.
    EXPECT_EQ(velor.text().find("Loop"), std::string::npos);
  }
  {
    VelorOnTerminal velor(
        150, {"--headless", "--sync-source", "Console:out", "--arm", "--mtc-out", "Console:in"},
        server.environment());
    EXPECT_TRUE(
        velor.readUntil("MIDI/MTC Loop detected! Console:out > Console:in: Disable Console:in", 5))
        << velor.text();
    EXPECT_TRUE(velor.readUntil("from Console:out  to nobody", 5)) << velor.text();
    EXPECT_EQ(velor.end(SIGINT), 0);
  }
  {
    VelorOnTerminal velor(
        150,
        {"--headless", "--format", "25", "--sync-source", "Sender:out", "--arm", "--auto-format"},
        server.environment());
    ASSERT_TRUE(velor.readUntil("25  armed", 5)) << velor.text();
    sendStream(sender, 0, wireFormat("30"), {1, 0, 0, 0}, sender.frameNow() + 9600, 30);
    EXPECT_TRUE(velor.readUntil("30  chasing", 5)) << velor.text();
    EXPECT_EQ(velor.end(SIGINT), 0);
  }
  VelorProcess velor(
      {"--headless", "--sync-source", "Console:out", "--mtc-out", "Console:in", "--ignore-loops"},
      server.environment());
  ASSERT_TRUE(waitFor(5, [&] { return !velor.errors().empty(); }));
  EXPECT_EQ(
      velor.errors(),
      "velor: There appears to be a MIDI loop between \"Console:out\" and \"Console:in\". For "
      "correct operation \"Console:in\" should not be a MTC Destination: Proceed anyway\n");
  EXPECT_EQ(velor.end(SIGTERM), 0);
}

}  // namespace
}  // namespace velor::test
