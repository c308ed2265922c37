// SPDX-License-Identifier: MIT
// What ltc_decoder and libltc's decoder read of the same samples, as tables in Markdown:
// the measurements of docs/ltc-decoder.md.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
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

void printRow(const std::string& name, const LTCSignal& signal) {
  const LTCScore own = scoreOf(signal, readByVelor(signal, kBuffer));
  const LTCScore libltc = scoreOf(signal, readByLibltc(signal, kBuffer));
  const auto whole = std::count_if(signal.frames.begin(), signal.frames.end(),
                                   [](const LTCSignal::Frame& frame) { return frame.whole; });
  const double percent = 100.0 / static_cast<double>(signal.frames.size());
  const auto share = [percent](std::size_t count) { return static_cast<double>(count) * percent; };
  std::printf("| %s | %zu | %.1f | %.1f | %zu | %.1f | %zu |\n", name.c_str(), signal.frames.size(),
              share(static_cast<std::size_t>(whole)), share(own.right), own.wrong,
              share(libltc.right), libltc.wrong);
}

void printRow(const std::string& name, const std::function<void(LTCSignalMaker&)>& change) {
  LTCSignalMaker maker;
  maker.frames = kFrames;
  change(maker);
  printRow(name, maker.make());
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
    printRow(std::string("by libltc's encoder, ") + format.name + " fps",
             signalByLibltc(48000, format.type, kFrames, false));
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
  for (const double level : {-20.0, -40.0, -60.0}) {
    printRow(number(level) + " dBFS, 16 bits", [&](LTCSignalMaker& maker) {
      maker.level = std::pow(10, level / 20);
      maker.bits = 16;
    });
  }
}

void printNoiseRows() {
  for (const double ratio : {30.0, 24.0, 18.0, 15.0, 12.0, 9.0, 6.0}) {
    printRow("noise, " + number(ratio) + " dB below",
             [&](LTCSignalMaker& maker) { maker.signalToNoise = ratio; });
  }
  for (const double ratio : {30.0, 18.0}) {
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

int main() {
  std::puts(
      "| signal | frames | whole, % | velor: right, % | wrong | libltc: right, % | wrong |\n"
      "|---|---:|---:|---:|---:|---:|---:|");
  velor::printCleanRows();
  velor::printShapeRows();
  velor::printNoiseRows();
  velor::printSpeedRows();
  velor::printDamageRows();
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
