// SPDX-License-Identifier: MIT
#include "platform/crash/CrashReports.h"

#include <algorithm>
#include <string>
#include <system_error>

namespace velor::crash {
namespace {

namespace fs = std::filesystem;

fs::path markOf(const fs::path& report) {
  return report.native() + CrashReports::kMark;
}

bool isMarked(const fs::path& report) {
  std::error_code error;
  return fs::exists(markOf(report), error);
}

}  // namespace

std::vector<fs::path> CrashReports::all() const {
  std::vector<fs::path> found;
  std::error_code error;
  for (fs::directory_iterator entry(mFolder, error); !error && entry != fs::directory_iterator();
       entry.increment(error)) {
    const std::string name = entry->path().filename();
    if (name.starts_with(kPrefix) && name.ends_with(kSuffix)) {
      found.push_back(entry->path());
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

void CrashReports::prune() const {
  std::vector<fs::path> reports = all();
  std::stable_partition(reports.begin(), reports.end(),
                        [](const fs::path& report) { return !isMarked(report); });
  std::error_code error;
  for (std::size_t i = 0; i + kKept < reports.size(); ++i) {
    fs::remove(reports[i], error);
    fs::remove(markOf(reports[i]), error);
  }
}

std::vector<fs::path> CrashReports::takeNew() const {
  std::vector<fs::path> taken;
  for (const fs::path& report : all()) {
    std::error_code error;
    // Of several programs that start at once, one removes it.
    if (isMarked(report) && (fs::remove(markOf(report), error) || error)) {
      taken.push_back(report);
    }
  }
  return taken;
}

}  // namespace velor::crash
