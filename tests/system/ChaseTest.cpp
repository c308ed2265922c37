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
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVShared.h"
#include "Velor/clock/VLClock.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/program/VLCurrentServices.h"
#include "Velor/program/VLPortNames.h"
#include "kva/MIDI/KVMIDICore.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/SystemHost.h"
#include "tests/support/FairRun.h"
#include "tests/support/JackPeer.h"
#include "tests/support/MTCStream.h"
#include "tests/support/Servers.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

class Reports final : public VLClockDelegate {
 public:
  void clockDidStartPlaying(VLClock&) override { ++starts; }
  void clockDidStopPlaying(VLClock&) override { ++stops; }
  bool clockShouldCheckForMTCLoop(VLClock&) override { return checksLoops; }
  void clockDetectedMTCLoop(VLClock&, const std::shared_ptr<KVMIDIEndpoint>& source,
                            const std::shared_ptr<KVMIDIEndpoint>& destination) override {
    loops.emplace_back(source != nullptr ? VLPortName(*source) : "", VLPortName(*destination));
    loopAt = host::current().AudioGetCurrentHostTime();
  }
  bool checksLoops = false;
  int starts = 0;
  int stops = 0;
  std::vector<std::pair<std::string, std::string>> loops;
  std::uint64_t loopAt = 0;
};

// A destination whose other end comes back as a source.
std::unique_ptr<JackPeer> makeConsole() {
  auto console = std::make_unique<JackPeer>("Console");
  console->addInput("in");
  console->addOutput("out");
  console->forward(0, 0);
  console->activate();
  return console;
}

// The clock in this process on a JACK server of its own; sender and recorder are clients
// of their own.
class Chase : public testing::Test {
 protected:
  explicit Chase(int period = 128) : mServer(period) {
    makeClients();
    mHost = std::make_unique<host::SystemHost>();
    mService = std::make_unique<VLCurrentServices>();
    VLDeviceManager::sharedManager();
    clock().setDelegate(mReports);
  }
  ~Chase() override {
    clock().stop();
    KVSharedInstances::clear();
    mService.reset();
    mHost.reset();
  }

  static VLClock& clock() { return VLClock::sharedClock(); }

  // On a server that is started for them.
  void makeClients() {
    mServer.start();
    mRecorder = std::make_unique<JackPeer>("Recorder");
    mRecorder->addInput("in");
    mRecorder->addInput("second");
    mRecorder->recordClock(30);
    mRecorder->activate();
    makeSender();
  }
  void makeSender() {
    mSender = std::make_unique<JackPeer>("Sender");
    mSender->addOutput("out");
    mSender->activate();
    EXPECT_TRUE(mSender->connect("Sender:out", "Recorder:second"));
  }

  // Runs the main loop until the condition holds; its last answer.
  static bool until(double seconds, const std::function<bool()>& condition) {
    return waitFor(seconds, [&condition] {
      host::current().mainQueue().drainPending();
      return condition();
    });
  }
  static bool untilStatus(double seconds, VLClockStatus status) {
    return until(seconds, [status] { return clock().status() == status; });
  }

  std::shared_ptr<KVMIDIEndpoint> source(const std::string& name) {
    std::shared_ptr<KVMIDIEndpoint> found;
    until(3, [&] {
      found = VLEndpointNamed(name, KVMIDICore::sharedCore().sources(), "source").value_or(nullptr);
      return found != nullptr;
    });
    return found;
  }

  // Runs the main loop for so long.
  void run(double seconds) {
    until(seconds, [] { return false; });
  }

  static void enable(const std::string& port, bool enabled = true) {
    const auto endpoint =
        VLEndpointNamed(port, KVMIDICore::sharedCore().destinations(), "destination");
    ASSERT_TRUE(endpoint) << endpoint.error().text;
    VLDeviceManager::sharedManager().destinationWithEndpoint(*endpoint)->setEnable(enabled);
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

  JackServer mServer;
  std::unique_ptr<JackPeer> mRecorder;
  std::unique_ptr<JackPeer> mSender;
  std::unique_ptr<host::SystemHost> mHost;
  std::unique_ptr<VLCurrentServices> mService;
  const std::shared_ptr<Reports> mReports = std::make_shared<Reports>();
};

// Each relayed block stands where the sender's own block of that label stands, and
// its label is the sender's plus the offset. A late cycle moves the server's idea of time,
// by which both are placed: where that wandered meanwhile, the pieces may be as far apart.
void expectRelay(const JackPeer& recorder, const WireFormat& format, int offsetSeconds) {
  constexpr std::uint64_t kMemory = 24000;  // samples from receipt to relay, several blocks
  const std::vector<Block> relayed = readStream(recorder.recorded(), 0).blocks;
  const std::vector<Block> sent = readStream(recorder.recorded(), 1).blocks;
  ASSERT_GE(relayed.size(), 20U);
  double worst = 0;
  double unexplained = 0;
  for (const Block& block : relayed) {
    const auto own = std::find_if(sent.begin(), sent.end(), [&](const Block& candidate) {
      Label moved = candidate.label;
      moved.seconds += offsetSeconds;
      return moved == block.label;
    });
    if (own == sent.end()) {
      continue;  // the end of the stream: the relay names what the sender never sent
    }
    const double wander = recorder.clockWander(own->frames.front() - kMemory, own->frames.back());
    for (std::size_t piece = 0; piece < 8; ++piece) {
      const double apart = std::abs(static_cast<double>(block.frames[piece]) -
                                    static_cast<double>(own->frames[piece]));
      worst = std::max(worst, apart);
      unexplained = std::max(unexplained, apart - wander);
    }
  }
  const double spacing = gridOf(relayed, format, 48000).worstOffSpacing;
  EXPECT_LE(unexplained, 2.0) << format.name;
  EXPECT_LE(spacing, 1.0) << format.name;
  std::printf(
      "%-8s relayed pieces stand within %.0f samples of the sender's, %.1f beyond what the "
      "server's time wandered; spacing within %.2f\n",
      format.name, worst, unexplained, spacing);
}

// One run, of which there may have to be several.
class ChaseRun final : public Chase {
 public:
  ChaseRun(const WireFormat& format, std::uint32_t code) { chasesAndRelays(format, code); }

 private:
  void TestBody() override {}
  void chasesAndRelays(const WireFormat& format, std::uint32_t code);
};

void ChaseRun::chasesAndRelays(const WireFormat& format, std::uint32_t code) {
  follow(format, code);
  SMPTETime offset{};
  offset.mType = code;
  ltc_set_time(offset, 0, 0, 10, 0);
  clock().setSmpteOffset(offset);
  const std::uint64_t start = soon();
  const double blockFrames = 2 * 48000 / format.framesPerSecond;
  sendStream(*mSender, 0, format, {10, 20, 30, 0}, start, 60);
  ASSERT_TRUE(untilStatus(3, VLClockChasing));
  // The second block ends 15 quarter frames after the start; a cycle, and the way
  // through the queues, come on top.
  EXPECT_LT(static_cast<double>(mSender->frameNow() - start), 2 * blockFrames + 2 * 480);
  EXPECT_GT(static_cast<double>(mSender->frameNow() - start), 1.8 * blockFrames);
  ASSERT_TRUE(untilStatus(60 * 2 / format.framesPerSecond + 2, VLClockArmed));
  EXPECT_EQ(mReports->starts, 1);
  EXPECT_EQ(mReports->stops, 1);
  const Stream relayed = readStream(mRecorder->recorded(), 0);
  EXPECT_EQ(relayed.faults, 0) << relayed.fault;
  EXPECT_EQ(relayed.blocks.size(), 59U);
  expectRelay(*mRecorder, format, 10);
}

class ChaseOfFormat : public testing::TestWithParam<std::pair<const char*, std::uint32_t>> {};

TEST_P(ChaseOfFormat, ChasesFromTheSecondBlockOnAndRelaysAtTheSendersTimesWithTheOffset) {
  // A cycle that comes late moves the server's idea of time, by which pieces are placed.
  constexpr std::chrono::microseconds kStall{1000};
  inFairRun([] { ChaseRun(wireFormat(GetParam().first), GetParam().second); }, kStall);
}

INSTANTIATE_TEST_SUITE_P(RateCodes, ChaseOfFormat,
                         testing::Values(std::pair("24", kSMPTETimeType24),
                                         std::pair("25", kSMPTETimeType25),
                                         std::pair("29.97df", kSMPTETimeType2997Drop),
                                         std::pair("30", kSMPTETimeType30)),
                         [](const auto& format) {
                           return "code" + std::to_string(wireFormat(format.param.first).rateCode);
                         });

TEST_F(Chase, ASenderThatIsPluggedInAgainAndAServerThatIsStartedAgainAreFollowedAgain) {
  follow(wireFormat("25"), kSMPTETimeType25);
  const auto expectChase = [this] {
    ASSERT_NE(source("Sender:out"), nullptr);
    sendStream(*mSender, 0, wireFormat("25"), {1, 0, 0, 0}, soon(), 1000);
    ASSERT_TRUE(untilStatus(5, VLClockChasing));
  };
  expectChase();
  mSender.reset();
  ASSERT_TRUE(untilStatus(3, VLClockArmed));
  makeSender();
  expectChase();

  mServer.kill();
  ASSERT_TRUE(
      until(5, [] { return clock().status() == VLClockArmed && !midi::service().isConnected(); }));
  mSender.reset();
  mRecorder.reset();
  makeClients();
  expectChase();
  EXPECT_NE(clock().MIDISyncSource(), nullptr);
}

TEST_F(Chase, ALoopThroughACableIsFoundInATenthOfASecondAndByTheChoiceOfItsSource) {
  mReports->checksLoops = true;
  const auto console = makeConsole();
  ASSERT_NE(source("Console:out"), nullptr);
  enable("Recorder:in");
  enable("Console:in");
  midi::service().waitUntilSettled();
  run(0.3);  // the checks of the two destinations end, with no source
  EXPECT_TRUE(mReports->loops.empty());

  // Already the check that the choice of the source begins, with its way to be opened.
  clock().setMIDISyncSource(source("Console:out"));
  ASSERT_TRUE(until(1, [this] { return !mReports->loops.empty(); }));
  run(0.3);
  const std::vector<std::pair<std::string, std::string>> one = {{"Console:out", "Console:in"}};
  EXPECT_EQ(mReports->loops, one);

  mReports->loops.clear();
  const std::uint64_t asked = mHost->AudioGetCurrentHostTime();
  clock().doLoopDetection();
  clock().doLoopDetection();  // one under way swallows the next
  run(0.4);
  EXPECT_EQ(mReports->loops, one);
  EXPECT_LT(static_cast<double>(mReports->loopAt - asked) / 1e6, 100.0);
}

class ChaseAtALargePeriod : public Chase {
 protected:
  ChaseAtALargePeriod() : Chase(2048) {}
};

TEST_F(ChaseAtALargePeriod, ALoopIsFoundWhenItsDestinationIsAddedToARollingClock) {
  mReports->checksLoops = true;
  const auto console = makeConsole();
  clock().setMIDISyncSource(source("Console:out"));
  clock().start();
  for (int round = 0; round < 6; ++round) {
    midi::service().waitUntilSettled();
    run(0.3);  // the check before has ended
    enable("Console:in");
    EXPECT_TRUE(until(1, [this] { return !std::exchange(mReports->loops, {}).empty(); })) << round;
    enable("Console:in", false);
  }
}

TEST(HeadlessChase, ALoopThatReturnsWithItsServerIsFoundAgain) {
  // Under load a server skips programs in short cycles, and with them the one token.
  JackServer server(512);
  server.start();
  auto console = makeConsole();
  VelorProcess velor(
      {"--headless", "--sync-source", "Console:out", "--mtc-out", "Console:in", "--ignore-loops"},
      server.environment());
  const auto untilTold = [&velor](std::size_t loops) {
    return waitFor(5, [&] { return countOf(velor.errors(), "\n") == loops; });
  };
  ASSERT_TRUE(untilTold(1)) << velor.errors();
  EXPECT_EQ(velor.errors(), "velor: MTC loop Console:out > Console:in: still sending\n");

  server.kill();
  console.reset();
  server.start();
  console = makeConsole();
  EXPECT_TRUE(untilTold(2)) << velor.log();
  EXPECT_EQ(velor.end(SIGTERM), 0);
}

TEST(HeadlessChase, TheStatusLineShowsArmedChasingTheWrongFormatAndALoop) {
  JackServer server;
  server.start();
  JackPeer sender("Sender");
  sender.addOutput("out");
  sender.activate();
  const auto console = makeConsole();

  const auto expectTold = [&](const std::vector<std::string>& arguments,
                              const std::vector<std::string>& texts,
                              const std::function<void(std::size_t)>& after) {
    std::vector<std::string> all = {"--headless"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    VelorOnTerminal velor(150, all, server.environment());
    for (std::size_t i = 0; i < texts.size() && !HasFailure(); ++i) {
      EXPECT_TRUE(velor.readUntil(texts[i], 5)) << velor.text();
      after(i);
    }
    EXPECT_EQ(velor.end(SIGINT), 0);
    return velor.text();
  };
  std::uint64_t end = 0;
  // What is relayed comes to the console and out of it, but nobody listens there.
  const std::string relaying = expectTold(
      {"--format", "25", "--sync-source", "Sender:out", "--arm", "--mtc-out", "Console:in"},
      {"25  armed  from Sender:out  to Console:in", "01:00:00:10", "25  chasing",
       "velor: MTC at 30 fps on Sender:out: disarmed the clock; --auto-format", "25  stopped"},
      [&](std::size_t told) {
        if (told == 0) {
          end = sendStream(sender, 0, wireFormat("25"), {1, 0, 0, 0}, sender.frameNow() + 9600, 15);
        } else if (told == 2) {
          sendStream(sender, 0, wireFormat("30"), {1, 0, 0, 0}, end + 48000, 20);
        }
      });
  EXPECT_EQ(relaying.find("loop"), std::string::npos);
  expectTold({"--sync-source", "Console:out", "--arm", "--mtc-out", "Console:in"},
             {"MTC loop Console:out > Console:in: switched the destination off",
              "from Console:out  to no destination"},
             [](std::size_t) {});
}

}  // namespace
}  // namespace velor::test
