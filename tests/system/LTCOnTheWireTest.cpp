// SPDX-License-Identifier: MIT
// LTC as a client gets it that knows nothing of this program, beside the MTC of the
// same run. VELOR_SOAK_SECONDS makes the run longer than the 8 s of the suite;
// VELOR_SOAK_PERIOD gives PipeWire another period than its own of 1024 frames, which a
// machine that others use as well may not keep for long.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/FairRun.h"
#include "tests/support/JackPeer.h"
#include "tests/support/Kind.h"
#include "tests/support/LTCSignalReader.h"
#include "tests/support/MTCStream.h"
#include "tests/support/Servers.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

void expectInSequence(const std::vector<ReadLabel>& labels, const WireFormat& format) {
  for (std::size_t i = 1; i < labels.size(); ++i) {
    ASSERT_EQ(labels[i].text(), next(labels[i - 1], format).text()) << "frame " << i;
  }
}

// Whoever is kept waiting longer than this moves whole blocks by as much.
constexpr std::chrono::microseconds kStall{1000};

struct OnWire {
  const char* name;
  std::unique_ptr<Server> (*make)();
  const char* format;
  const char* start;  // the labels run over midnight, or over dropped numbers
  const char* output;
  const char* drop;
};

class LTCOnTheWire : public testing::TestWithParam<OnWire> {};

TEST_P(LTCOnTheWire, EveryFrameComesInSequenceAtTheFrameOfTheMTCThatNamesIt) {
  inFairRun(
      [] {
        const OnWire& wire = GetParam();
        const WireFormat& format = wireFormat(wire.format);
        const auto server = wire.make();
        server->start();
        const char* const period = std::getenv("VELOR_SOAK_PERIOD");
        if (auto* const pipeWire = dynamic_cast<PipeWireServer*>(server.get());
            pipeWire != nullptr && period != nullptr) {
          pipeWire->force(0, std::atoi(period));
        }
        JackPeer recorder("Recorder", static_cast<std::size_t>((soakSeconds() + 10) * 120));
        recorder.addInput("in");
        recorder.recordAudio("audio", soakSeconds() + 5);
        recorder.activate();
        VelorProcess velor({"--headless", "--format", wire.format, "--start", wire.start, "--play",
                            "--mtc-out", recorder.fullName("in"), "--ltc-out", wire.output,
                            "--ltc-user-bits", "12345678", wire.drop},
                           server->environment());
        const auto connected = [&recorder] {
          return recorder.connect("Velor:LTC Generator 1 out_1", recorder.fullName("audio")) ||
                 recorder.isConnected("Velor:LTC Generator 1 out_1", recorder.fullName("audio"));
        };
        ASSERT_TRUE(waitFor(10, connected)) << velor.errors();
        const std::size_t enough = static_cast<std::size_t>(soakSeconds() * recorder.sampleRate());
        ASSERT_TRUE(
            waitFor(soakSeconds() + 10, [&] { return recorder.recordedAudioCount() > enough; }));
        // How much earlier than its moment a sample goes to the device.
        const int latency = recorder.playbackLatency("Velor:LTC Generator 1 out_1");
        const auto samples = recorder.recordedAudio();
        const Stream mtc = readStream(recorder.recorded(), 0);
        EXPECT_EQ(velor.end(SIGINT), 0) << velor.errors();
        EXPECT_EQ(mtc.faults, 0) << mtc.fault;

        const double samplesPerFrame = recorder.sampleRate() / format.framesPerSecond;
        std::vector<double> starts;
        LTCSignalReader reader(samplesPerFrame, [&starts](const PublishedBits&, double start) {
          starts.push_back(start);
        });
        reader.read(static_cast<double>(recorder.audioStart()), samples);
        const std::vector<ReadLabel> labels = readLTC(samples, samplesPerFrame);
        ASSERT_GT(static_cast<double>(labels.size()), (soakSeconds() - 3) * format.framesPerSecond);
        // At a long period the device has asked for the beginning of the first frame before
        // its time was told.
        EXPECT_LE(reader.torn, period != nullptr ? 1 : 0);
        EXPECT_EQ(reader.silences, 0);
        ASSERT_NO_FATAL_FAILURE(expectInSequence(labels, format));

        // libltc may need a frame more to find the first; the last is the same.
        const auto extra =
            static_cast<std::ptrdiff_t>(starts.size()) - static_cast<std::ptrdiff_t>(labels.size());
        ASSERT_LE(std::abs(extra), 2);
        std::map<std::string, double> places;
        for (std::size_t i = 2; i < labels.size(); ++i) {
          const auto at = static_cast<std::size_t>(static_cast<std::ptrdiff_t>(i) + extra);
          places[labels[i].text()] = starts.at(at);
        }
        // A block begins when the clock's timer woke, and LTC follows it a block later: what
        // the blocks are off each other's grid is no fault of the LTC.
        const Grid grid = gridOf(mtc.blocks, format, recorder.sampleRate());
        double worstStep = 0;
        for (std::size_t i = 1; i < grid.blockErrors.size(); ++i) {
          worstStep = std::max(worstStep, std::abs(grid.blockErrors[i] - grid.blockErrors[i - 1]));
        }
        std::vector<double> errors;
        for (const Block& block : mtc.blocks) {
          const auto place = places.find(block.label.text());
          // The phase is found within a second of the start.
          if (place != places.end() && block.frames[0] > mtc.blocks[0].frames[0] + 48000) {
            errors.push_back(
                std::abs(place->second + latency - static_cast<double>(block.frames[0])));
          }
        }
        ASSERT_GT(static_cast<double>(errors.size()),
                  (soakSeconds() - 5) * format.framesPerSecond / 2);
        EXPECT_LE(quantile(errors, 0.5), 2.0);
        // A step also moves the measured rate, by a tenth of it.
        EXPECT_LE(quantile(errors, 1.0), 2.0 + 1.25 * worstStep);
        std::printf(
            "%s: %zu frames in sequence, off the MTC that names them by %.2f samples (median), "
            "%.2f "
            "(worst); blocks of MTC off each other by at most %.2f\n",
            wire.name, labels.size(), quantile(errors, 0.5), quantile(errors, 1.0), worstStep);
      },
      kStall);
}

INSTANTIATE_TEST_SUITE_P(
    Servers, LTCOnTheWire,
    testing::Values(OnWire{"jack256", [] { return std::unique_ptr<Server>(new JackServer(256)); },
                           "25", "23:59:56:00", "system:1", "--no-exact-drop"},
                    OnWire{"jack128", [] { return std::unique_ptr<Server>(new JackServer(128)); },
                           "29.97df", "00:00:56;00", "system:1", "--exact-drop"},
                    OnWire{"pipewire", [] { return std::unique_ptr<Server>(new PipeWireServer); },
                           "25", "23:59:56:00", "velor-null:1", "--no-exact-drop"}),
    kNameOfKind);

}  // namespace
}  // namespace velor::test
