// SPDX-License-Identifier: MIT
// LTC by an encoder that knows nothing of this program, and the MTC and the status line
// that the program makes of it. VELOR_SOAK_SECONDS makes the run longer than the 8 s of
// the suite.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "tests/support/FairRun.h"
#include "tests/support/JackPeer.h"
#include "tests/support/LTCSignal.h"
#include "tests/support/MTCStream.h"
#include "tests/support/Servers.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

constexpr int kSampleRate = 48000;
// Of LTC, by SMPTE ST 12-1.
constexpr double kBitsPerFrame = 80;
constexpr double kMostSamplesOff = 2;
// Whoever is kept waiting longer than this moves the server's idea of time.
constexpr std::chrono::microseconds kStall{1000};

struct Tape {
  // The numbers are walked here, from the one on with which libltc's signals begin.
  Tape(std::uint32_t type, const WireFormat& format)
      : signal(signalByLibltc(kSampleRate, type,
                              static_cast<std::size_t>(soakSeconds() * format.framesPerSecond),
                              false)),
        samplesPerFrame(kSampleRate / frameRateOf(type)) {
    const SMPTETime& first = signal.frames.front().time;
    Label label{first.mHours, first.mMinutes, first.mSeconds, first.mFrames};
    // The last frame that is read lets the one two frames behind it be sent.
    for (std::size_t i = 0; i < signal.frames.size() + 2; ++i) {
      places.emplace(label.text(), i);
      labels.push_back(label);
      label = next(label, format);
    }
  }

  const LTCSignal signal;
  const double samplesPerFrame;
  std::vector<Label> labels;
  std::map<std::string, std::size_t> places;  // of the labels
};

struct Wire {
  const char* format;
  std::uint32_t type;
  int period;
};

class LTCReaderOnTheWire : public testing::TestWithParam<Wire> {};

// What is sent from a second on behind the tape's start, in which the rate is found: frame
// numbers, rate code, order and place. The first bit of the frame that a block names
// would be its place, were it not for
// - the latency of the capture port, by which a sample is older than the cycle that
//   brings it; this tape is fed in behind that port, and counts as that much earlier;
// - half a bit, since a frame counts from the middle of the bit before it;
// - the server's idea of time, by which a frame has its host time when it is read, and the
//   block its place two frames later. Between the two it wanders when a cycle is late.
void expectMTC(const JackPeer& recorder, std::uint64_t start, const Tape& tape,
               const WireFormat& format, int captureLatency) {
  auto events = recorder.recorded();
  events.erase(events.begin(),
               std::find_if(events.begin(), events.end(), [start](const JackPeer::Event& event) {
                 return event.frame >= start + kSampleRate && event.bytes.size() == 2 &&
                        event.bytes[1] < 0x10;
               }));
  const Stream mtc = readStream(events, 0);
  EXPECT_EQ(mtc.faults, 0) << mtc.fault;
  ASSERT_GT(static_cast<double>(mtc.blocks.size()),
            (soakSeconds() - 2) * format.framesPerSecond / 2);
  const auto first = tape.places.find(mtc.blocks.front().label.text());
  ASSERT_NE(first, tape.places.end());
  std::size_t frame = first->second;
  ASSERT_GE(frame, 2U);
  std::vector<double> offsets;
  std::vector<double> steady;  // without that wander
  const double expected = -captureLatency - tape.samplesPerFrame / kBitsPerFrame / 2;
  for (const Block& block : mtc.blocks) {
    ASSERT_LT(frame, tape.labels.size());
    // Two frames behind the one that was read.
    ASSERT_EQ(block.label.text(), twoNumbersOn(tape.labels[frame - 2], format).text()) << frame;
    ASSERT_EQ(block.rateCode, format.rateCode) << frame;
    offsets.push_back(static_cast<double>(block.frames[0] - start) -
                      static_cast<double>(frame) * tape.samplesPerFrame);
    const auto read =
        static_cast<std::uint64_t>(static_cast<double>(frame - 2) * tape.samplesPerFrame);
    const double wander = recorder.clockDrift(start + read) - recorder.clockDrift(block.frames[0]);
    steady.push_back(offsets.back() - wander);
    frame += 2;
  }
  const double median = quantile(steady, 0.5);
  EXPECT_NEAR(median, expected, kMostSamplesOff);
  EXPECT_NEAR(quantile(steady, 0.0), median, kMostSamplesOff);
  EXPECT_NEAR(quantile(steady, 1.0), median, kMostSamplesOff);
  EXPECT_NEAR(quantile(offsets, 0.5), median, kMostSamplesOff);
  std::printf(
      "%s: %zu blocks in sequence, %.2f samples from the first bit of the frame that they name, "
      "%.2f of which are due; %.2f to %.2f with the server's wander, %.2f to %.2f without\n",
      format.name, mtc.blocks.size(), median, expected, quantile(offsets, 0.0),
      quantile(offsets, 1.0), quantile(steady, 0.0), quantile(steady, 1.0));
}

TEST_P(LTCReaderOnTheWire, EachFrameIsSentAsMTCAtItsMomentAndShownWithItsUserBits) {
  inFairRun(
      [] {
        const Wire& wire = GetParam();
        const WireFormat& format = wireFormat(wire.format);
        JackServer server(wire.period, kSampleRate);
        server.start();
        const Tape tape(wire.type, format);
        JackPeer recorder("Recorder");
        recorder.addInput("in");
        recorder.recordClock(soakSeconds() + 20);
        recorder.activate();
        JackPeer player("Player");
        player.playAudio("out", tape.signal.samples);
        player.activate();
        VelorOnTerminal velor(160, {"--headless", "--ltc-in", "system:1", "--freewheel", "0"},
                              server.environment());
        ASSERT_TRUE(waitFor(10, [&] {
          return recorder.ports("^Velor:LTC Reader 1$").size() == 1 &&
                 player.ports("^Velor:LTC Reader 1 in_1$", JACK_DEFAULT_AUDIO_TYPE).size() == 1;
        }));
        ASSERT_TRUE(recorder.connect("Velor:LTC Reader 1", "Recorder:in"));
        ASSERT_TRUE(player.connect("Player:out", "Velor:LTC Reader 1 in_1"));
        ASSERT_TRUE(velor.readUntil("no LTC", 5)) << velor.text();
        // A period, on this driver; the program leaves it to the other clients.
        const int captureLatency = player.captureLatency("system:capture_1");
        EXPECT_EQ(captureLatency, wire.period);
        const std::uint64_t start = player.frameNow() + kSampleRate / 2;
        player.playFrom(start);
        const std::uint64_t end = start + tape.signal.samples.size();
        ASSERT_TRUE(waitFor(soakSeconds() + 10, [&] {
          velor.readUntil("\r", 0.001);
          return player.frameNow() > end + kSampleRate / 4;
        }));
        EXPECT_EQ(velor.end(SIGINT), 0) << velor.text();
        expectMTC(recorder, start, tape, format, captureLatency);
        EXPECT_NE(velor.text().find("user bits "), std::string::npos);
      },
      kStall);
}

INSTANTIATE_TEST_SUITE_P(Servers, LTCReaderOnTheWire,
                         testing::Values(Wire{"25", kSMPTETimeType25, 128},
                                         Wire{"29.97df", kSMPTETimeType2997Drop, 256}),
                         [](const auto& wire) {
                           return "jack" + std::to_string(wire.param.period);
                         });

}  // namespace
}  // namespace velor::test
