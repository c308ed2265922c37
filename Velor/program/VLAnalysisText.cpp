// SPDX-License-Identifier: MIT
#include "Velor/program/VLAnalysisText.h"

#include <algorithm>
#include <array>
#include <cinttypes>

#include "Velor/program/VLAnalysisWords.h"
#include "Velor/program/VLJSONObject.h"
#include "Velor/program/VLOptionText.h"

namespace velor {
namespace {

using Kind = VLLTCReport::Kind;
using Words = VLAnalysisWords;

constexpr std::size_t kPrinted = 20;        // events, changes of user bits
constexpr double kLeastUncertainty = 0.01;  // ppm; no clock is that steady

struct KindName {
  Kind kind;
  const char* text;
  const char* json;
  const char* row;
};
constexpr std::array<KindName, 4> kKinds = {{{Kind::dropOut, "drop-outs", "dropOut", "drop-outs"},
                                             {Kind::splice, "splices", "splice", "splices"},
                                             {Kind::repeat, "repeated", "repeat", "repeats"},
                                             {Kind::turn, "turns", "turn", "turns"}}};

std::string eventWords(const VLLTCReport::Event& event) {
  const std::string times = Words::time(event.before) + " and " + Words::time(event.behind);
  return event.length > 0.001 ? Words::of("at %.3f s: %.0f ms without a frame, between ",
                                          event.seconds, 1000 * event.length) +
                                    times
                              : Words::of("at %.3f s: between ", event.seconds) + times;
}

std::string events(const VLLTCReport& report, const KindName& kind) {
  const std::uint64_t count = report.count(kind.kind);
  std::string text = Words::of("%-10s %" PRIu64 "\n", kind.text, count);
  std::size_t printed = 0;
  for (const VLLTCReport::Event& event : report.events) {
    if (event.kind == kind.kind && printed++ < kPrinted) {
      text += Words::of("%-10s ", "") + eventWords(event) + "\n";
    }
  }
  if (count > kPrinted) {
    text += Words::of("%-10s and %" PRIu64 " more\n", "", count - kPrinted);
  }
  return text;
}

std::string userBits(const VLLTCReport& report) {
  const auto& list = report.userBits;
  if (report.userBitChanges == 0) {
    return Words::of("%-10s %s throughout\n", "user bits",
                     Words::userBits(list.front().bits).c_str());
  }
  std::string text = Words::of("%-10s %" PRIu64 " changes in %" PRIu64 " frames\n", "user bits",
                               report.userBitChanges, report.frames);
  for (std::size_t i = 0; i < std::min(kPrinted, list.size()); ++i) {
    text += Words::of("%-10s %s from %s, at %.3f s\n", "", Words::userBits(list[i].bits).c_str(),
                      Words::time(list[i].time).c_str(), list[i].seconds);
  }
  if (report.userBitChanges + 1 > kPrinted) {
    text += Words::of("%-10s and %" PRIu64 " more\n", "", report.userBitChanges + 1 - kPrinted);
  }
  return text;
}

std::string formatWords(const VLLTCReport& report) {
  const std::string name = VLFormatName(report.format);
  return report.sigmas
             ? name + Words::of(", not %s: %.0f sigma", VLFormatName(report.other), *report.sigmas)
             : name + " by its digits; the speed fits no format";
}

double share(double part, double whole) {
  return whole > 0 ? 100 * part / whole : 0;
}

std::string ppm(double value) {
  return Words::of("%+.1f", Words::rounded(value, 1));
}

std::string dBFS(double level) {
  return Words::of("%.1f", Words::rounded(Words::decibels(level), 1));
}

std::string rateWords(const VLLTCReport& report) {
  std::string text = Words::of("%-10s %.6f frames a second, ", "rate", report.rate);
  if (!report.sigmas) {
    text += Words::of("%.4f times the speed of the format", 1 + report.deviation * 1e-6);
  } else {
    text += ppm(report.deviation) + " ppm of nominal";
    text += report.uncertainty < 1000 ? Words::of(" (%.2g standard deviation)",
                                                  std::max(kLeastUncertainty, report.uncertainty))
                                      : "";
  }
  return text + Words::of("\n%-10s %s ppm a minute; from %s to %s ppm within\n", "drift",
                          ppm(report.drift).c_str(), ppm(report.lowest).c_str(),
                          ppm(report.highest).c_str());
}

std::string signalWords(const VLLTCReport& report) {
  std::string text = Words::of("%-10s %s dBFS (%s to %s), peak %s dBFS\n", "level",
                               dBFS(report.level).c_str(), dBFS(report.lowestLevel).c_str(),
                               dBFS(report.highestLevel).c_str(), dBFS(report.peak).c_str());
  text += Words::of("%-10s %.1f dBFS, %.1f dB below the signal; %.1f dB %s the limit\n", "noise",
                    Words::decibels(report.noise), report.signalToNoise, std::fabs(report.margin),
                    report.margin < 0 ? "below" : "above");
  text += Words::of("%-10s %+.1f %% of the level\n", "DC",
                    Words::rounded(share(report.offset, report.level), 1));
  text += Words::of("%-10s %.1f %% of the level", "hum", share(report.hum, report.level));
  text += share(report.hum, report.level) >= 0.05 ? Words::of(", of %.0f Hz\n", report.humFrequency)
                                                  : "\n";
  const double sample = 1 / report.sampleRate;
  text += report.riseTime < sample
              ? Words::of("%-10s below a sample, %.1f us\n", "rise time", 1e6 * sample)
              : Words::of("%-10s %.1f us\n", "rise time", 1e6 * report.riseTime);
  text += Words::of("%-10s %.2f us rms (%.2f %% of a bit), %.2f us peak (%.2f %%)\n", "jitter",
                    1e6 * report.jitter, share(report.jitter, report.bit), 1e6 * report.jitterPeak,
                    share(report.jitterPeak, report.bit));
  return text;
}

}  // namespace

std::string VLAnalysisText::text(const VLLTCReport& report) {
  if (report.frames == 0) {
    return Words::of("%-10s %s dBFS\n%-10s ", "peak", dBFS(report.peak).c_str(), "verdict") +
           report.verdict() + "\n";
  }
  std::string text = Words::of("%-10s %s\n", "format", formatWords(report).c_str());
  text +=
      Words::of("%-10s %" PRIu64 ", %" PRIu64 " of them in reverse; from %s at %.6f s to %s\n",
                "frames", report.frames, report.reverseFrames, Words::time(report.first).c_str(),
                report.begin, Words::time(report.last).c_str());
  text += rateWords(report) + signalWords(report);
  for (const KindName& kind : kKinds) {
    text += events(report, kind);
  }
  return text + userBits(report) + Words::of("%-10s ", "verdict") + report.verdict() + "\n";
}

std::string VLAnalysisText::json(const VLLTCReport& report) {
  VLJSONObject all;
  all.text("verdict", report.verdict());
  all.number("duration", report.duration);
  all.number("sampleRate", report.sampleRate, 0);
  all.number("peakDBFS", Words::decibels(report.peak), 2);
  all.count("frames", report.frames);
  if (report.frames == 0) {
    return all.take() + "\n";
  }
  all.count("reverseFrames", report.reverseFrames);
  all.number("begin", report.begin);
  all.text("first", Words::time(report.first));
  all.text("last", Words::time(report.last));
  all.text("format", VLFormatName(report.format));
  all.text("otherFormat", VLFormatName(report.other));
  all.add("sigmas", report.sigmas ? Words::of("%.1f", *report.sigmas) : "null");
  all.number("rate", report.rate);
  all.number("ppm", report.deviation, 2);
  all.number("ppmDeviation", report.uncertainty, 3);
  all.number("driftPPMPerMinute", report.drift, 2);
  all.number("lowestPPM", report.lowest, 2);
  all.number("highestPPM", report.highest, 2);
  all.number("levelDBFS", Words::decibels(report.level), 2);
  all.number("noiseDBFS", Words::decibels(report.noise), 2);
  all.number("signalToNoiseDB", report.signalToNoise, 2);
  all.number("marginDB", report.margin, 2);
  all.number("dcPercent", share(report.offset, report.level), 2);
  all.number("humPercent", share(report.hum, report.level), 2);
  all.number("humHz", report.humFrequency, 0);
  all.number("riseTimeUs", 1e6 * report.riseTime, 2);
  all.number("bitUs", 1e6 * report.bit, 3);
  all.number("jitterRmsUs", 1e6 * report.jitter, 3);
  all.number("jitterRmsPercent", share(report.jitter, report.bit), 3);
  all.number("jitterPeakUs", 1e6 * report.jitterPeak, 3);
  all.number("jitterPeakPercent", share(report.jitterPeak, report.bit), 3);
  for (const KindName& kind : kKinds) {
    all.count((std::string(kind.json) + "s").c_str(), report.count(kind.kind));
  }
  VLJSONArray events;
  for (const VLLTCReport::Event& event : report.events) {
    VLJSONObject one;
    one.text("kind", kKinds[static_cast<std::size_t>(event.kind)].json);
    one.number("seconds", event.seconds);
    one.number("length", event.length);
    one.text("before", Words::time(event.before));
    one.text("after", Words::time(event.behind));
    events.add(one.take());
  }
  all.add("events", events.take());
  all.count("userBitChanges", report.userBitChanges);
  VLJSONArray bits;
  for (const VLLTCReport::UserBits& each : report.userBits) {
    VLJSONObject one;
    one.number("seconds", each.seconds);
    one.text("time", Words::time(each.time));
    one.text("bits", Words::userBits(each.bits));
    bits.add(one.take());
  }
  all.add("userBits", bits.take());
  return all.take() + "\n";
}

VLPlot VLAnalysisText::plot(const VLLTCReport& report, const std::string& name) {
  VLPlot plot;
  plot.title = name + (report.frames > 0 ? ": LTC, " + formatWords(report) : "");
  plot.verdict = report.verdict();
  plot.duration = report.duration;
  VLPlot::Series rate, level, noise, jitter, peak;
  level.name = "level";
  noise.name = "noise";
  jitter.name = "rms";
  peak.name = "peak";
  const double seconds = ltc_seconds_per_frame(report.format);
  for (const VLLTCReport::Window& window : report.windows) {
    const auto add = [&window](VLPlot::Series& series, double value) {
      series.points.push_back({window.begin, window.begin + window.length, value, value, value});
    };
    add(rate, (window.rate * seconds - 1) * 1e6);
    add(level, Words::decibels(window.level));
    add(noise, Words::decibels(window.noise));
    add(jitter, 1e6 * window.jitter);
    add(peak, 1e6 * window.jitterPeak);
  }
  plot.panels.push_back(
      {std::string("Rate, off ") + VLFormatName(report.format) + " frames a second",
       "ppm",
       4,
       false,
       {rate}});
  plot.panels.push_back({"Level and noise", "dBFS", 12, false, {level, noise}});
  plot.panels.push_back({"Jitter of the bit edges", "us", 2, true, {jitter, peak}});
  for (const KindName& kind : kKinds) {
    VLPlot::Row row{kind.row, {}};
    for (const VLLTCReport::Event& event : report.events) {
      if (event.kind == kind.kind) {
        row.marks.push_back({event.seconds, event.seconds + event.length, eventWords(event)});
      }
    }
    if (kind.kind != Kind::turn || !row.marks.empty()) {
      plot.rows.push_back(std::move(row));
    }
  }
  return plot;
}

std::string VLAnalysisText::status(const VLLTCReport& report) {
  if (report.frames == 0) {
    return Words::of("%6.0f s  ", report.duration) + report.verdict() + ", peak " +
           dBFS(report.peak) + " dBFS";
  }
  const auto& last = report.windows.empty() ? VLLTCReport::Window() : report.windows.back();
  return Words::of("%6.0f s  %s  %s  %s ppm  %s dBFS  noise %s dBFS  jitter %.1f us  ",
                   report.duration, Words::time(report.last).c_str(), VLFormatName(report.format),
                   ppm(report.deviation).c_str(), dBFS(last.level).c_str(),
                   dBFS(last.noise).c_str(), 1e6 * last.jitter) +
         Words::of("drop-outs %" PRIu64, report.count(Kind::dropOut));
}

}  // namespace velor
