// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/Log.h"

namespace velor {

/// Keeps the lines of the log while it lives.
class LogRecord {
 public:
  LogRecord() {
    host::setLogSink([this](host::LogLevel level, std::string_view line) {
      const std::lock_guard lock(mMutex);
      mLines.emplace_back((level == host::kLogError ? "error: " : "") + std::string(line));
    });
  }
  ~LogRecord() { host::setLogSink({}); }
  LogRecord(const LogRecord&) = delete;
  LogRecord& operator=(const LogRecord&) = delete;

  bool has(const std::string& line) const { return count(line) > 0; }
  std::ptrdiff_t count(const std::string& line) const {
    const std::lock_guard lock(mMutex);
    return std::count(mLines.begin(), mLines.end(), line);
  }
  /// The lines that hold the text.
  std::vector<std::string> matching(std::string_view text) const {
    const std::lock_guard lock(mMutex);
    std::vector<std::string> found;
    std::copy_if(mLines.begin(), mLines.end(), std::back_inserter(found),
                 [text](const auto& line) { return line.find(text) != std::string::npos; });
    return found;
  }
  void clear() {
    const std::lock_guard lock(mMutex);
    mLines.clear();
  }
  std::size_t errors() const {
    const std::lock_guard lock(mMutex);
    return static_cast<std::size_t>(
        std::count_if(mLines.begin(), mLines.end(),
                      [](const auto& line) { return line.starts_with("error: "); }));
  }

 private:
  mutable std::mutex mMutex;
  std::vector<std::string> mLines;
};

}  // namespace velor
