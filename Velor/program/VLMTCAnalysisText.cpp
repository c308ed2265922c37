// SPDX-License-Identifier: MIT
#include "Velor/program/VLMTCAnalysisText.h"

#include <algorithm>
#include <array>
#include <cinttypes>

#include "Velor/program/VLAnalysisWords.h"
#include "Velor/program/VLJSONObject.h"
#include "Velor/program/VLOptionText.h"

namespace velor {
namespace {

using Kind = VLMTCReport::Kind;
using Words = VLAnalysisWords;

constexpr std::size_t kPrinted = 20;  // events

constexpr std::array<const char*, 4> kKinds = {"missing", "order", "jumps", "stops"};

std::string words(const VLMTCReport::Event& event) {
  const std::string at = Words::of("at %.3f s: ", event.seconds);
  switch (event.kind) {
    case Kind::missing:
      return at + Words::of("%" PRIu64 " missing", event.count);
    case Kind::outOfOrder:
      return at + "a quarter frame out of order";
    case Kind::jump:
      return at + "a block with " + Words::time(event.behind) + " after " +
             Words::time(event.before);
    default:
      return at + Words::of("nothing for %.2f s", event.length);
  }
}

}  // namespace

std::string VLMTCAnalysisText::text(const VLMTCReport& report) {
  std::string text;
  if (report.quarterFrames > 1 && report.spacing > 0) {
    text +=
        Words::of("%-10s %s\n", "format", report.format ? VLFormatName(*report.format) : "unknown");
    text += Words::of("%-10s %" PRIu64 ", %" PRIu64 " of them in reverse; %" PRIu64
                      " whole blocks, from %s to %s\n",
                      "quarters", report.quarterFrames, report.reverse, report.blocks,
                      Words::time(report.first).c_str(), Words::time(report.last).c_str());
    text += Words::of("%-10s %" PRIu64 "\n", "full", report.fullFrames);
    text +=
        Words::of("%-10s %.6f frames a second, %+.1f ppm of nominal (%.2g standard deviation)\n",
                  "rate", report.rate, Words::rounded(report.deviation, 1), report.uncertainty);
    text += Words::of("%-10s %.4f ms, from %.3f to %.3f ms\n", "spacing", 1000 * report.spacing,
                      1000 * report.shortest, 1000 * report.longest);
    text += Words::of("%-10s %.1f us rms, %.1f us peak\n", "jitter", 1e6 * report.jitter,
                      1e6 * report.jitterPeak);
    text += Words::of("%-10s %" PRIu64 " quarter frames\n", "missing", report.missing);
    text += Words::of("%-10s %" PRIu64 " quarter frames, %" PRIu64 " blocks out of order\n",
                      "order", report.outOfOrder, report.blocksOutOfOrder);
    text += Words::of("%-10s %" PRIu64 "\n", "stops", report.stops);
    for (std::size_t i = 0; i < std::min(kPrinted, report.events.size()); ++i) {
      text += Words::of("%-10s ", "") + words(report.events[i]) + "\n";
    }
    if (report.events.size() > kPrinted) {
      text += Words::of("%-10s and %zu more\n", "", report.events.size() - kPrinted);
    }
  }
  return text + Words::of("%-10s ", "verdict") + report.verdict() + "\n";
}

std::string VLMTCAnalysisText::json(const VLMTCReport& report) {
  VLJSONObject all;
  all.text("verdict", report.verdict());
  all.number("duration", report.duration);
  all.count("quarterFrames", report.quarterFrames);
  all.count("reverse", report.reverse);
  all.count("fullFrames", report.fullFrames);
  all.count("blocks", report.blocks);
  if (report.format) {
    all.text("format", VLFormatName(*report.format));
    all.text("first", Words::time(report.first));
    all.text("last", Words::time(report.last));
  }
  all.number("rate", report.rate);
  all.number("ppm", report.deviation, 2);
  all.number("ppmDeviation", report.uncertainty, 3);
  all.number("spacingMs", 1000 * report.spacing);
  all.number("shortestMs", 1000 * report.shortest);
  all.number("longestMs", 1000 * report.longest);
  all.number("jitterRmsUs", 1e6 * report.jitter, 2);
  all.number("jitterPeakUs", 1e6 * report.jitterPeak, 2);
  all.count("missing", report.missing);
  all.count("outOfOrder", report.outOfOrder);
  all.count("blocksOutOfOrder", report.blocksOutOfOrder);
  all.count("stops", report.stops);
  VLJSONArray events;
  for (const VLMTCReport::Event& event : report.events) {
    VLJSONObject one;
    one.text("kind", kKinds[static_cast<std::size_t>(event.kind)]);
    one.number("seconds", event.seconds);
    one.text("text", words(event));
    events.add(one.take());
  }
  all.add("events", events.take());
  return all.take() + "\n";
}

VLPlot VLMTCAnalysisText::plot(const VLMTCReport& report, const std::string& name) {
  VLPlot plot;
  plot.title =
      name + ": MTC" + (report.format ? std::string(", ") + VLFormatName(*report.format) : "");
  plot.verdict = report.verdict();
  plot.duration = report.duration;
  VLPlot::Series rate, jitter, peak;
  jitter.name = "rms";
  peak.name = "peak";
  const double nominal = ltc_seconds_per_frame(report.format.value_or(kSMPTETimeType25)) / 4;
  for (const VLMTCReport::Window& window : report.windows) {
    const auto add = [&window](VLPlot::Series& series, double value) {
      series.points.push_back({window.begin, window.end, value, value, value});
    };
    add(rate, (nominal / window.spacing - 1) * 1e6);
    add(jitter, 1000 * window.jitter);
    add(peak, 1000 * window.jitterPeak);
  }
  plot.panels.push_back({"Rate, off nominal", "ppm", 100, false, {rate}});
  plot.panels.push_back({"Jitter of quarter frames", "ms", 0.2, true, {jitter, peak}});
  for (std::size_t i = 0; i < kKinds.size(); ++i) {
    VLPlot::Row row{kKinds[i], {}};
    for (const VLMTCReport::Event& event : report.events) {
      if (static_cast<std::size_t>(event.kind) == i) {
        row.marks.push_back({event.seconds, event.seconds + event.length, words(event)});
      }
    }
    plot.rows.push_back(std::move(row));
  }
  return plot;
}

std::string VLMTCAnalysisText::status(const VLMTCReport& report) {
  if (report.quarterFrames == 0) {
    return report.verdict();
  }
  return Words::of(
      "%6.0f s  %s  %+.0f ppm  jitter %.2f ms  missing %" PRIu64 "  out of order %" PRIu64,
      report.duration, Words::time(report.last).c_str(), Words::rounded(report.deviation, 0),
      1000 * report.jitter, report.missing, report.outOfOrder + report.blocksOutOfOrder);
}

}  // namespace velor
