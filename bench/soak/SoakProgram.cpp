// SPDX-License-Identifier: MIT
#include "bench/soak/SoakProgram.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <utility>

namespace velor::test {
namespace {

constexpr double kMaxGrowth = 4;         // MB, once all has been opened
constexpr double kGrowthOfAPanel = 0.1;  // MB

std::size_t entriesOf(const std::string& folder) {
  std::error_code ignored;
  return static_cast<std::size_t>(std::distance(
      std::filesystem::directory_iterator(folder, ignored), std::filesystem::directory_iterator()));
}

// Lines that tell of trouble, and those of them to which restarts of the server, visits and
// the start lead.
const std::regex kTrouble(
    "error|fail|refuse|cannot|could not|unable|unknown|too |lost|missing|no |not |exceed|drop",
    std::regex::icase);
const std::regex kExplained(
    "^Log Error$|^failed to load application state from .*: No such file|lost the JACK server|"
    "^no Avahi daemon|waiting for it$|is missing; (no LTC|LTC is not)|has error$|yet; will try "
    "again$|"
    "^set MIDI sync source: <unknown>|MIDI packets came too late for|no JACK or PipeWire server");

}  // namespace

SoakProgram::SoakProgram(std::string name, std::vector<std::string> arguments,
                         std::vector<std::string> environment)
    : mName(std::move(name)), mProcess(std::move(arguments), std::move(environment)) {}

void SoakProgram::sample() {
  const std::string folder = "/proc/" + std::to_string(mProcess.id());
  Sample sample;
  sample.descriptors = entriesOf(folder + "/fd");
  sample.threads = entriesOf(folder + "/task");
  std::ifstream status(folder + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("RssAnon:")) {
      sample.megabytes = std::atof(line.c_str() + 8) / 1024;
    }
  }
  mSamples.push_back(sample);
}

void SoakProgram::tell(SoakTable& table, int panels) {
  const auto& all = mSamples;
  const SoakProgram::Sample& first = all[std::min<std::size_t>(1, all.size() - 1)];
  const SoakProgram::Sample& last = all.back();
  const std::string what = " (" + mName + ")";
  const double mostGrowth = kMaxGrowth + kGrowthOfAPanel * panels;
  table.row(
      "memory" + what, SoakTable::text("%.1f MB, then %.1f MB", first.megabytes, last.megabytes),
      SoakTable::text("%.0f MB more", mostGrowth), last.megabytes - first.megabytes <= mostGrowth);
  table.row("file descriptors" + what,
            SoakTable::text("%zu, then %zu", first.descriptors, last.descriptors), "no more",
            last.descriptors <= first.descriptors);
  table.row("threads" + what, SoakTable::text("%zu, then %zu", first.threads, last.threads),
            "no more", last.threads <= first.threads);
  const bool wasRunning = mProcess.isRunning();
  const int status = wasRunning ? mProcess.end(SIGTERM) : -1;
  table.row("exit status" + what, std::to_string(status), "0", wasRunning && status == 0);
  const auto odd = unexplainedLines();
  table.row("log" + what,
            SoakTable::text("%zu lines unexplained", odd.size()) +
                (odd.empty() ? "" : ": " + *odd.begin()),
            "none", odd.empty());
  for (const std::string& line : odd) {
    std::fprintf(stderr, "soak: log%s: %s\n", what.c_str(), line.c_str());
  }
}

std::set<std::string> SoakProgram::unexplainedLines() const {
  static const std::regex time("^[0-9/]+ [0-9:]+  ");
  static const std::regex number("[0-9]+");
  std::set<std::string> lines;
  std::istringstream text(mProcess.log() + mProcess.errors());
  for (std::string line; std::getline(text, line);) {
    line = std::regex_replace(std::regex_replace(line, time, ""), number, "#");
    if (std::regex_search(line, kTrouble) && !std::regex_search(line, kExplained)) {
      lines.insert(line);
    }
  }
  return lines;
}

}  // namespace velor::test
