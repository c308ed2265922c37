// SPDX-License-Identifier: MIT
// What ltc_decoder, the conditioned decoders and libltc's read of the same samples, as tables in
// Markdown: the measurements of docs/performance.md.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/LTCReading.h"
#include "tests/support/LTCSignal.h"

namespace velor {
namespace {

constexpr std::size_t kBuffer = 512;
constexpr std::size_t kFrames = 1500;  // a minute of 25 frames per second

// A row has at least this many times kFrames frames, in signals of different seeds.
std::size_t signalsOfARow = 1;

struct Sum {
  std::size_t right = 0;
  std::size_t wrong = 0;
  std::size_t falseTimes = 0;

  void add(const LTCSignal& signal, const std::vector<LTCTold>& told) {
    const LTCScore score = scoreOf(signal, told);
    right += score.right;
    wrong += score.wrong;
    falseTimes += score.falseTimes;
  }
};

class Row {
 public:
  void add(const LTCSignal& signal) {
    mFrames += signal.frames.size();
    mWhole += static_cast<std::size_t>(
        std::count_if(signal.frames.begin(), signal.frames.end(),
                      [](const LTCSignal::Frame& frame) { return frame.whole; }));
    mPlain.add(signal, readByVelor(signal, kBuffer));
    const auto conditioned = readConditioned(signal, kBuffer);
    mConditioned.add(signal, conditioned);
    // Where samples are lost a file has what is left.
    const auto varispeed = readVarispeed(signal);
    if (signal.losses.empty()) {
      mVarispeed.add(signal, varispeed);
      addStarts(signal, varispeed);
    } else {
      mHasLosses = true;
      addStarts(signal, conditioned);
    }
    mLibltc.add(signal, readByLibltc(signal, kBuffer));
  }

  std::size_t frames() const { return mFrames; }

  void print(const std::string& name) const {
    const double mean = mStarts == 0 ? 0 : mSum / static_cast<double>(mStarts);
    const double deviation =
        mStarts == 0
            ? 0
            : std::sqrt(std::max(0.0, mSquares / static_cast<double>(mStarts) - mean * mean));
    std::printf("| %s | %zu | %.1f | %s | %s | %s | %.2f | %s |\n", name.c_str(), mFrames,
                share(mWhole), text(mPlain).c_str(), text(mConditioned).c_str(),
                mHasLosses ? "- | -" : text(mVarispeed).c_str(), deviation, text(mLibltc).c_str());
    std::fflush(stdout);
  }

 private:
  void addStarts(const LTCSignal& signal, const std::vector<LTCTold>& told) {
    for (const LTCTold& frame : told) {
      const LTCSignal::Frame& is = signal.frames[frameOf(signal, frame)];
      if (is.whole) {
        const double error = frame.place - is.begin;
        mSum += error;
        mSquares += error * error;
        ++mStarts;
      }
    }
  }

  double share(std::size_t count) const {
    return 100.0 * static_cast<double>(count) / static_cast<double>(mFrames);
  }
  // Shares are rounded down, so that 100.0 is all.
  std::string text(const Sum& sum) const {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.2f | %zu (%zu)",
                  std::floor(share(sum.right) * 100) / 100, sum.wrong, sum.falseTimes);
    return text.data();
  }

  std::size_t mFrames = 0;
  std::size_t mWhole = 0;
  Sum mPlain, mConditioned, mVarispeed, mLibltc;
  bool mHasLosses = false;
  std::size_t mStarts = 0;
  double mSum = 0;
  double mSquares = 0;
};

void printRow(const std::string& name, const std::function<void(LTCSignalMaker&)>& change,
              bool isReverse = false) {
  Row row;
  for (std::uint32_t seed = 1; row.frames() < signalsOfARow * kFrames; seed += 10) {
    LTCSignalMaker maker;
    maker.frames = kFrames;
    maker.seed = seed;
    change(maker);
    row.add(isReverse ? reversed(maker.make()) : maker.make());
  }
  row.print(name);
}

std::string number(double value) {
  std::string text = std::to_string(value);
  text.erase(text.find_last_not_of('0') + 1);
  return text.back() == '.' ? text.substr(0, text.size() - 1) : text;
}

struct Format {
  std::uint32_t type;
  const char* name;
};
constexpr Format kFormats[] = {{kSMPTETimeType2398, "23.98"},
                               {kSMPTETimeType24, "24"},
                               {kSMPTETimeType25, "25"},
                               {kSMPTETimeType2997, "29.97"},
                               {kSMPTETimeType2997Drop, "29.97 drop"},
                               {kSMPTETimeType30, "30"},
                               {kSMPTETimeType30Drop, "30 drop"}};
constexpr double kSampleRates[] = {44100, 48000, 88200, 96000, 192000};

double wowAndFlutter(double time, double wow, double flutter) {
  constexpr double kTurn = 2 * std::numbers::pi;
  return 25 * (1 + wow * std::sin(kTurn * 0.7 * time) + flutter * std::sin(kTurn * 9 * time));
}

void printCleanRows() {
  for (const Format& format : kFormats) {
    printRow(std::string("clean, ") + format.name + " fps",
             [&](LTCSignalMaker& maker) { maker.type = format.type; });
    Row row;
    row.add(signalByLibltc(48000, format.type, signalsOfARow * kFrames, false));
    row.print(std::string("by libltc's encoder, ") + format.name + " fps");
  }
  for (const double sampleRate : kSampleRates) {
    printRow("clean, " + number(sampleRate) + " Hz, inverted", [&](LTCSignalMaker& maker) {
      maker.sampleRate = sampleRate;
      maker.inverted = true;
    });
  }
}

void printShapeRows() {
  for (const double rise : {0.0, 25e-6, 50e-6}) {
    printRow("edges of " + number(rise * 1e6) + " us",
             [&](LTCSignalMaker& maker) { maker.riseTime = rise; });
  }
  for (const double frequency : {10000.0, 5000.0, 3000.0}) {
    printRow("band of 100 Hz to " + number(frequency) + " Hz", [&](LTCSignalMaker& maker) {
      maker.lowPass = frequency;
      maker.highPass = 100;
    });
  }
  for (const double offset : {0.1, 0.3, 0.6}) {
    printRow("edges of 50 us, DC of " + number(offset * 100) + " % of the level",
             [&](LTCSignalMaker& maker) {
               maker.riseTime = 50e-6;
               maker.offset = offset;
             });
  }
  printRow("8 bits, -30 dBFS", [](LTCSignalMaker& maker) {
    maker.level = 0.03;
    maker.bits = 8;
  });
  printRow("clipped at a third, band of 100 Hz to 5000 Hz", [](LTCSignalMaker& maker) {
    maker.lowPass = 5000;
    maker.highPass = 100;
    maker.clip = 0.17;
  });
  for (const double level : {-20.0, -40.0, -60.0}) {
    printRow(number(level) + " dBFS, 16 bits", [&](LTCSignalMaker& maker) {
      maker.level = std::pow(10, level / 20);
      maker.bits = 16;
    });
  }
}

void printNoiseRows() {
  for (const double ratio : {30.0, 24.0, 18.0, 15.0, 12.0, 9.0, 7.0, 5.0, 3.0}) {
    printRow("noise, " + number(ratio) + " dB below",
             [&](LTCSignalMaker& maker) { maker.signalToNoise = ratio; });
  }
  for (const double ratio : {9.0, 5.0}) {
    printRow("noise, " + number(ratio) + " dB below, 30 fps", [&](LTCSignalMaker& maker) {
      maker.signalToNoise = ratio;
      maker.type = kSMPTETimeType30;
    });
  }
  printRow("low-pass of 3000 Hz, then noise, 12 dB below", [](LTCSignalMaker& maker) {
    maker.lowPass = 3000;
    maker.signalToNoise = 12;
  });
  printRow("hum of 50 Hz as loud as the signal, noise, 12 dB below", [](LTCSignalMaker& maker) {
    maker.hum = 1;
    maker.signalToNoise = 12;
  });
  for (const double ratio : {30.0, 18.0, 9.0}) {
    printRow("noise, " + number(ratio) + " dB below, 192000 Hz", [&](LTCSignalMaker& maker) {
      maker.signalToNoise = ratio;
      maker.sampleRate = 192000;
    });
  }
}

void printSpeedRows() {
  for (int rate = 23; rate <= 31; ++rate) {
    printRow("25 fps played at " + number(rate) + " fps",
             [&](LTCSignalMaker& maker) { maker.speed = [rate](double) { return rate; }; });
  }
  using Step = std::pair<double, double>;
  for (const auto& [from, to] : {Step{24, 25}, {25, 30}, {30, 24}, {23, 31}}) {
    printRow("steps between " + number(from) + " and " + number(to) + " fps, each 2 s",
             [from = from, to = to](LTCSignalMaker& maker) {
               maker.speed = [from, to](double time) {
                 return static_cast<int>(time / 2) % 2 == 0 ? from : to;
               };
             });
  }
  printRow("wow of 1 % at 0.7 Hz, flutter of 0.5 % at 9 Hz", [](LTCSignalMaker& maker) {
    maker.speed = [](double time) { return wowAndFlutter(time, 0.01, 0.005); };
  });
  printRow("wow of 4 %, flutter of 3 %", [](LTCSignalMaker& maker) {
    maker.speed = [](double time) { return wowAndFlutter(time, 0.04, 0.03); };
  });
}

void printVarispeedRows() {
  for (const double flutter : {0.02, 0.1}) {
    printRow("flutter of " + number(100 * flutter) + " % at 9 Hz", [=](LTCSignalMaker& maker) {
      maker.speed = [flutter](double time) { return wowAndFlutter(time, 0, flutter); };
    });
  }
  for (const bool isReverse : {false, true}) {
    for (const double speed : {0.1, 0.25, 0.5, 0.9, 1.0, 2.0, 4.0, 8.0}) {
      printRow(
          number(speed) + " times the speed" + (isReverse ? ", reverse" : ""),
          [=](LTCSignalMaker& maker) {
            maker.riseTime = 40e-6 / speed;
            maker.speed = [speed](double) { return 25 * speed; };
            maker.frames = speed < 0.5 ? kFrames / 5 : kFrames;
          },
          isReverse);
    }
  }
  printRow("ramps between half and twice the speed", [](LTCSignalMaker& maker) {
    maker.riseTime = 20e-6;
    maker.speed = [](double time) { return 25 * std::exp2(std::sin(0.7 * time)); };
  });
  printRow("a ramp from a tenth to ten times the speed", [](LTCSignalMaker& maker) {
    maker.riseTime = 4e-6;
    maker.sampleRate = 96000;
    maker.speed = [](double time) { return 2.5 * std::exp2(std::min(time, 20.0) / 20 * 6.64); };
  });
  for (const double noise : {9.0, 5.0}) {
    printRow(
        "reverse, noise, " + number(noise) + " dB below",
        [=](LTCSignalMaker& maker) { maker.signalToNoise = noise; }, true);
  }
}

void printDamageRows() {
  for (const double length : {0.02, 0.2}) {
    printRow("drop-outs of " + number(length * 1000) + " ms each second",
             [&](LTCSignalMaker& maker) { maker.dropOut = length; });
  }
  for (const double length : {0.05, 0.333}) {
    printRow("splices each second, " + number(length * 1000) + " ms cut out",
             [&](LTCSignalMaker& maker) { maker.splice = length; });
  }
  for (const double length : {0.0107, 0.0853}) {
    printRow("xruns each second, " + number(length * 1000) + " ms skipped",
             [&](LTCSignalMaker& maker) { maker.xrun = length; });
  }
  printRow(
      "a worn tape: 100 Hz to 8000 Hz, -30 dBFS, noise 26 dB below, wow and flutter, drop-outs",
      [](LTCSignalMaker& maker) {
        maker.highPass = 100;
        maker.lowPass = 8000;
        maker.level = 0.03;
        maker.bits = 16;
        maker.signalToNoise = 26;
        maker.dropOut = 0.02;
        maker.speed = [](double time) { return wowAndFlutter(time, 0.005, 0.002); };
      });
}

void printHostTimeRow(double sampleRate, std::size_t bufferLength) {
  LTCSignalMaker maker;
  maker.sampleRate = sampleRate;
  maker.type = kSMPTETimeType2997;  // falls between the samples, anywhere
  maker.frames = kFrames;
  const LTCSignal signal = maker.make();
  double least = 1e9;
  double most = -1e9;
  // Of a clean signal all frames are told but the first ones, in their order.
  const std::vector<LTCTold> told = readByVelor(signal, bufferLength);
  const std::size_t first = signal.frames.size() - told.size();
  for (std::size_t i = 0; i < told.size(); ++i) {
    const double error = hostTimeErrorOf(signal, first + i, told[i]);
    least = std::min(least, error);
    most = std::max(most, error);
  }
  const double perSample = 1e9 / sampleRate;
  std::printf("| %.0f | %zu | %.0f | %.0f to %.0f | %.2f to %.2f |\n", sampleRate, bufferLength,
              (perSample - std::floor(perSample)) * static_cast<double>(bufferLength - 1), least,
              most, least / perSample, most / perSample);
}

}  // namespace
}  // namespace velor

// With `--long`, twenty thousand frames a row.
int main(int count, char** arguments) {
  constexpr std::size_t kLong = 14;
  if (count > 1 && std::strcmp(arguments[1], "--long") == 0) {
    velor::signalsOfARow = kLong;
  }
  std::puts(
      "| signal | frames | whole, % | plain: right, % | wrong | conditioned: right, % | wrong | "
      "decode: right, % | wrong | starts, samples | libltc: right, % | wrong |\n"
      "|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|");
  velor::printCleanRows();
  velor::printShapeRows();
  velor::printNoiseRows();
  velor::printSpeedRows();
  velor::printVarispeedRows();
  velor::printDamageRows();
  if (velor::signalsOfARow > 1) {
    return 0;
  }
  std::puts(
      "\n| samples a second | buffer | lag by whole ticks, up to, ns | host time, ns late | in "
      "samples |\n|---:|---:|---:|---:|---:|");
  for (const double sampleRate : velor::kSampleRates) {
    for (const std::size_t bufferLength : {64U, 512U, 4096U}) {
      velor::printHostTimeRow(sampleRate, bufferLength);
    }
  }
  return 0;
}
