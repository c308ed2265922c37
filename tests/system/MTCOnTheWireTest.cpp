// SPDX-License-Identifier: MIT
// The main job: what a client that knows nothing of this program receives from it.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

#include "tests/support/FairRun.h"
#include "tests/support/JackPeer.h"
#include "tests/support/Kind.h"
#include "tests/support/MTCStream.h"
#include "tests/support/Servers.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

// A wake-up error of the clock's timer moves a whole block. On a machine that is
// shared some come late by milliseconds; the bulk must not.
constexpr double kMedianWakeSeconds = 0.0005;
constexpr double kLatestWakeSeconds = 0.030;

void sleepSeconds(double duration) {
  std::this_thread::sleep_for(std::chrono::duration<double>(duration));
}

Label labelOf(const std::string& text) {
  Label label;
  std::sscanf(text.c_str(), "%d:%d:%d:%d", &label.hours, &label.minutes, &label.seconds,
              &label.frames);
  return label;
}

// The blocks of a run that started at `start`, label for label: a block a two
// frames, the first one when the clock is one frame on.
void expectLabels(const std::vector<Block>& blocks, const std::string& start,
                  const WireFormat& format) {
  Label label = next(labelOf(start), format);
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    ASSERT_EQ(blocks[i].label.text(), twoNumbersOn(label, format).text())
        << format.name << ", block " << i;
    ASSERT_EQ(blocks[i].rateCode, format.rateCode) << format.name;
    label = next(next(label, format), format);
  }
}

void expectGrid(const std::vector<Block>& blocks, const WireFormat& format, double sampleRate) {
  const Grid grid = gridOf(blocks, format, sampleRate);
  const double spacing = sampleRate / (format.framesPerSecond * 4);
  const bool whole = std::abs(spacing - std::round(spacing)) < 1e-9;
  EXPECT_LE(grid.worstOffIdeal, whole ? 0.0 : 1.0) << format.name;
  EXPECT_LE(grid.worstOffSpacing, whole ? 0.0 : 1.0) << format.name;
  std::vector<double> distances;
  const double median = quantile(grid.blockErrors, 0.5);
  for (const double error : grid.blockErrors) {
    distances.push_back(std::abs(error - median) / sampleRate);
  }
  EXPECT_LE(quantile(distances, 0.5), kMedianWakeSeconds) << format.name;
  EXPECT_LE(quantile(distances, 1.0), kLatestWakeSeconds) << format.name;
  std::printf(
      "%-8s %5zu blocks, pieces off the grid by at most %.2f samples, blocks off their "
      "time: median %.0f us, worst %.0f us\n",
      format.name, blocks.size(), grid.worstOffIdeal, quantile(distances, 0.5) * 1e6,
      quantile(distances, 1.0) * 1e6);
}

using ServerKind = Kind<Server>;

class MTCOnTheWire : public testing::TestWithParam<ServerKind> {};

TEST_P(MTCOnTheWire, AllFormatsAtOnceArriveWholeOnTheirGridOverMinutesAndMidnight) {
  inFairRun([] {
    const auto server = GetParam().make();
    server->start();
    // Eight ports of at most 120 quarter frames a second.
    JackPeer recorder("Recorder", static_cast<std::size_t>((soakSeconds() + 10) * 8 * 120));
    for (const WireFormat& format : wireFormats()) {
      recorder.addInput(format.name);
    }
    const int second = recorder.addInput("second");
    recorder.activate();
    const double sampleRate = recorder.sampleRate();

    // Drop-frame numbers are left out at the full minute; the others pass midnight.
    const auto startOf = [](const WireFormat& format) {
      return format.drop ? "00:00:56:00" : "23:59:56:00";
    };
    std::vector<std::unique_ptr<VelorProcess>> processes;
    for (const WireFormat& format : wireFormats()) {
      std::vector<std::string> arguments = {
          "--headless",    "--format", format.name, "--start",
          startOf(format), "--play",   "--mtc-out", recorder.fullName(format.name)};
      if (std::string(format.name) == "25") {
        arguments.insert(arguments.end(), {"--mtc-out", recorder.fullName("second")});
      }
      processes.push_back(std::make_unique<VelorProcess>(arguments, server->environment()));
    }
    sleepSeconds(soakSeconds());
    const auto events = recorder.recorded();
    for (auto& process : processes) {
      EXPECT_EQ(process->end(SIGINT), 0) << process->errors();
      EXPECT_EQ(process->output(), "");
    }
    int port = 0;
    for (const WireFormat& format : wireFormats()) {
      const Stream stream = readStream(events, port++);
      EXPECT_EQ(stream.faults, 0) << format.name << ": " << stream.fault;
      EXPECT_GE(static_cast<double>(stream.blocks.size()),
                (soakSeconds() - 2) * format.framesPerSecond / 2)
          << format.name;
      // The locate on being added stands before the run.
      ASSERT_FALSE(stream.fullFrames.empty()) << format.name;
      EXPECT_EQ(stream.fullFrames.front()[5] >> 5, format.rateCode);
      expectLabels(stream.blocks, startOf(format), format);
      expectGrid(stream.blocks, format, sampleRate);
    }
    // Two destinations of one clock get the same at the same frames.
    const Stream one = readStream(events, 2);
    const Stream other = readStream(events, second);
    const std::size_t count = std::min(one.blocks.size(), other.blocks.size());
    ASSERT_LE(std::max(one.blocks.size(), other.blocks.size()), count + 1);
    for (std::size_t i = 0; i < count; ++i) {
      EXPECT_EQ(one.blocks[i].frames, other.blocks[i].frames);
      EXPECT_EQ(one.blocks[i].label, other.blocks[i].label);
    }
  });
}

INSTANTIATE_TEST_SUITE_P(
    Servers, MTCOnTheWire,
    testing::Values(
        ServerKind{"jack128", [] { return std::unique_ptr<Server>(new JackServer(128)); }},
        ServerKind{"jack1024", [] { return std::unique_ptr<Server>(new JackServer(1024)); }},
        ServerKind::of<PipeWireServer>("pipewire")),
    kNameOfKind);

// Waits until the port has had so many blocks in all; false after 5 s.
bool awaitBlocks(const JackPeer& recorder, std::size_t count) {
  return waitFor(5, [&] { return recorder.recordedCount() >= count * 8; });
}

// A second of the stream from now on, from the next whole block.
Stream nextSecond(const JackPeer& recorder) {
  auto from = static_cast<std::ptrdiff_t>(recorder.recordedCount());
  sleepSeconds(1);
  auto events = recorder.recorded();
  events.erase(events.begin(),
               std::find_if(events.begin() + from, events.end(), [](const JackPeer::Event& event) {
                 return event.bytes.size() == 2 && event.bytes[1] >> 4 == 0;
               }));
  return readStream(events, 0);
}

// Whole blocks, each two frames after the one before, on the grid of this rate.
void expectUnbroken(const Stream& stream, const WireFormat& format, double sampleRate) {
  EXPECT_EQ(stream.faults, 0) << stream.fault;
  ASSERT_GE(stream.blocks.size(), 10U);
  for (std::size_t i = 1; i < stream.blocks.size(); ++i) {
    EXPECT_EQ(stream.blocks[i].label.text(),
              next(next(stream.blocks[i - 1].label, format), format).text());
  }
  expectGrid(stream.blocks, format, sampleRate);
}

// The program at 25 frames a second on a server that it starts, and a recorder.
struct RunAt25 {
  explicit RunAt25(Server& server) {
    server.start();
    recorder = std::make_unique<JackPeer>("Recorder");
    recorder->addInput("in");
    recorder->activate();
    velor = std::make_unique<VelorProcess>(
        std::vector<std::string>{"--headless", "--format", "25", "--play", "--mtc-out",
                                 "Recorder:in"},
        server.environment());
    EXPECT_TRUE(awaitBlocks(*recorder, 10));
  }
  std::unique_ptr<JackPeer> recorder;
  std::unique_ptr<VelorProcess> velor;
};

TEST(MTCOverChanges, AfterAPipeWireHasChangedItsRateAndPeriodNoBlockIsLostOrDoubled) {
  inFairRun([] {
    PipeWireServer server;
    const RunAt25 run(server);
    JackPeer& recorder = *run.recorder;
    for (const auto& [rate, period] : {std::pair(96000, 256), std::pair(44100, 1024)}) {
      server.force(rate, period);
      ASSERT_TRUE(waitFor(5, [&, wanted = rate] { return recorder.sampleRate() == wanted; }));
      sleepSeconds(0.3);
      expectUnbroken(nextSecond(recorder), wireFormat("25"), rate);
    }
  });
}

TEST(MTCOverChanges, AServerThatIsKilledAndStartedAgainHasTheStreamBackWithTheRightTime) {
  inFairRun([] {
    JackServer server(128);
    RunAt25 run(server);
    auto& recorder = run.recorder;
    const WireFormat& format = wireFormat("25");
    // The host time of label 0, by the first server's count.
    const auto zeroOf = [&format](const JackPeer& peer, const Block& block) {
      const double frames =
          ((block.label.hours * 60.0 + block.label.minutes) * 60 + block.label.seconds) *
              format.numbersPerSecond +
          block.label.frames;
      return static_cast<double>(peer.hostTimeAt(block.frames[0])) -
             frames * 1e9 / format.framesPerSecond;
    };
    const double zeroBefore = zeroOf(*recorder, readStream(recorder->recorded(), 0).blocks.back());

    server.kill();
    recorder.reset();
    sleepSeconds(1.5);
    server.start();
    const auto back = std::chrono::steady_clock::now();
    recorder = std::make_unique<JackPeer>("Recorder");
    recorder->addInput("in");
    recorder->activate();
    // A whole block, which itself takes 80 ms, within 2 s of the server's return.
    ASSERT_TRUE(waitFor(2, [&] { return !readStream(recorder->recorded(), 0).blocks.empty(); }));
    const double took =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - back).count();
    std::printf("back with a whole block %.2f s after the server\n", took);
    ASSERT_TRUE(awaitBlocks(*recorder, 20));
    const Stream stream = readStream(recorder->recorded(), 0);
    const double zeroAfter = zeroOf(*recorder, stream.blocks.back());
    EXPECT_NEAR(zeroAfter, zeroBefore, 10e6);  // ns; a frame lasts 40e6
    EXPECT_EQ(run.velor->end(SIGTERM), 0);
    EXPECT_NE(run.velor->log().find("lost the JACK server"), std::string::npos);
  });
}

}  // namespace
}  // namespace velor::test
