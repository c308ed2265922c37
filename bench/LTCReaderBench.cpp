// SPDX-License-Identifier: MIT
// How what a generator plays is read over two clocks that differ, as a table in
// Markdown, how late frames come from a conditioned input, and what readers cost. The argument is
// the length of the runs in hours, 24 unless told.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "Velor/devices/VLLTCReaderDevice.h"
#include "kva/MIDI/KVMIDICore.h"
#include "platform/midi/builtin/MIDIObjectTable.h"
#include "tests/support/LTCLoop.h"
#include "tests/support/LTCReading.h"

namespace velor {
namespace {

constexpr double kSettling = 10;  // s
constexpr double kStep = 60;      // s
constexpr std::uint32_t kUserBits = 0x89ABCDEF;

void report(const LTCLoop::Parameters& parameters, double seconds) {
  LTCLoop loop(parameters);
  loop.generator->setUserbits(kUserBits);
  loop.listen();
  loop.start(0);
  loop.run(kSettling);
  LTCLoop::Told before = loop.take().back();
  std::uint64_t read = 0;
  std::uint64_t wrong = 0;
  double worst = 0;     // ns
  double earliest = 0;  // ns
  double latest = 0;    // ns
  for (; seconds > 0; seconds -= kStep) {
    loop.run(std::min(seconds, kStep));
    for (const LTCLoop::Told& told : loop.take()) {
      const bool isNext = told.frame == (before.frame + 1) % loop.day();
      wrong += isNext && told.userbits == kUserBits && told.type == parameters.type ? 0 : 1;
      const double error = loop.phaseErrorOf(told);
      earliest = std::min(earliest, error);
      latest = std::max(latest, error);
      worst = std::max(worst, std::fabs(told.fps * loop.seconds() - 1));
      before = told;
      ++read;
    }
  }
  const double samples = parameters.sampleRate * 1e-9;
  std::printf("| %.0f | %+.0f | %+.0f | %llu | %llu | %+.2f | %+.2f | %.0f |\n",
              parameters.sampleRate, parameters.playedPPM, parameters.heardPPM,
              static_cast<unsigned long long>(read), static_cast<unsigned long long>(wrong),
              earliest * samples, latest * samples, worst * 1e6);
  std::fflush(stdout);
}

// How much later than plainly frames are reported, with a drop-out each second.
void reportLateness(double rate) {
  constexpr std::size_t kShortBuffer = 16;
  LTCSignalMaker maker{.frames = 1500, .speed = [rate](double) { return rate; }, .dropOut = 0.05};
  const LTCSignal signal = maker.make();
  std::map<std::pair<int, int>, double> plain;
  for (const LTCTold& frame : readByVelor(signal, kShortBuffer)) {
    plain[{frame.time.mMinutes * 60 + frame.time.mSeconds, frame.time.mFrames}] = frame.toldAt;
  }
  double sum = 0;
  double most = -1e9;
  std::size_t count = 0;
  for (const LTCTold& frame : readConditioned(signal, kShortBuffer)) {
    const auto found =
        plain.find({frame.time.mMinutes * 60 + frame.time.mSeconds, frame.time.mFrames});
    if (found != plain.end()) {
      const double later = (frame.toldAt - found->second) * rate / signal.sampleRate;
      sum += later;
      most = std::max(most, later);
      ++count;
    }
  }
  std::printf(
      "%.0f frames a second: %zu of %zu plain frames, %.3f later in the mean, %.3f at most\n", rate,
      count, plain.size(), sum / static_cast<double>(count), most);
}

double processorSeconds() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

// Of a second in which so many readers read LTC and send MTC.
double costOf(int count, double sampleRate, bool conditions) {
  constexpr double kSeconds = 120;
  LTCLoop loop({kSMPTETimeType30, sampleRate, 0, 0, 2});
  auto table = std::make_unique<midi::MIDIObjectTable>(nullptr);
  midi::setService(table.get());
  double cost = 0;
  {
    loop.reader->stop();
    std::vector<std::shared_ptr<VLLTCReaderDevice>> readers;
    KVMIDICore& core = KVMIDICore::sharedCore();
    for (int i = 0; i < count; ++i) {
      readers.push_back(VLLTCReaderDevice::initWithEndpoint(
          std::make_shared<KVMIDIEndpoint>(core.createSource(core.defaultClient(), "reader", 0))));
      readers.back()->setAudioObjectId(loop.heard->id());
      readers.back()->setConditionsInput(conditions);
    }
    loop.start(0);
    loop.run(kSettling);
    const double before = processorSeconds();
    loop.run(kSeconds);
    cost = (processorSeconds() - before) / kSeconds;
    for (const auto& reader : readers) {
      if (std::fabs(reader->getLatestSpeed() - 30) > 0.01) {
        std::puts("a reader does not read");
        std::exit(1);
      }
    }
    loop.stop();
  }
  loop.reader.reset();
  loop.generator.reset();
  KVSharedInstances::clear();
  midi::setService(nullptr);
  return cost;
}

}  // namespace
}  // namespace velor

int main(int argc, char** argv) {
  const double seconds = 3600 * (argc > 1 ? std::atof(argv[1]) : 24);
  std::printf("%.2f hours, frames at 25 a second\n\n", seconds / 3600);
  std::puts(
      "| Hz | played, ppm | heard, ppm | read | wrong | earliest, samples | latest | "
      "rate off at most, ppm |\n|--:|--:|--:|--:|--:|--:|--:|--:|");
  for (const double ppm : {100.0, -100.0}) {
    velor::LTCLoop::Parameters parameters;
    parameters.playedPPM = ppm;
    parameters.heardPPM = -ppm;
    velor::report(parameters, seconds);
  }
  std::puts("\nA conditioned input beside a plain one, in frames, 48000 Hz, buffers of 16:\n");
  for (const double rate : {23.0, 25.0, 31.0}) {
    velor::reportLateness(rate);
  }
  constexpr int kReaders = 8;
  for (const double sampleRate : {48000.0, 96000.0}) {
    const double none = velor::costOf(0, sampleRate, false);
    for (const bool conditions : {false, true}) {
      const double all = velor::costOf(kReaders, sampleRate, conditions);
      std::printf(
          "\n%d readers at %.0f Hz%s: %.2f %% of a core (with what is simulated around them "
          "%.2f %%)\n",
          kReaders, sampleRate, conditions ? ", conditioned" : "", 100 * (all - none), 100 * all);
    }
  }
  return 0;
}
