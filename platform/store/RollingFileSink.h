// SPDX-License-Identifier: MIT
#pragma once

#include <spdlog/details/null_mutex.h>
#include <spdlog/sinks/base_sink.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "platform/store/LogLimits.h"

namespace velor::store {

/// Writes lines to files of a folder that several processes use, and keeps the folder
/// within its limits.
///
/// - A file is named after the local time of its start and the process:
///   "velor 2026-11-21 08-30-00 1234.log", or the next second that is free. Mode 0600.
/// - Each process writes files of its own and locks the one that it writes. When it starts a
///   file it deletes the oldest ones until number and size are within the limits, but no
///   locked one; these count at their full size. Files with other names are not touched.
/// - A new file is started when a line would exceed the file's size or comes after its age.
/// - When a file cannot be made or written, one line on stderr says so. The next line
///   that comes a minute later or more tries a new file, which begins with the number
///   of lines lost.
///
/// One thread calls it: the logging thread. Nothing here throws unless memory runs out.
class RollingFileSink final : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
 public:
  using Time = std::chrono::system_clock::time_point;
  using Now = std::function<Time()>;

  RollingFileSink(std::filesystem::path folder, const LogLimits& limits, Now now);
  ~RollingFileSink() override { closeFile(); }

 private:
  void sink_it_(const spdlog::details::log_msg& message) override;
  void flush_() override {}  // no line is held back

  void startFile();
  bool write(const spdlog::memory_buf_t& line);
  void fail();
  void closeFile() noexcept;

  const std::filesystem::path mFolder;
  const LogLimits mLimits;
  const Now mNow;
  int mDescriptor = -1;
  std::filesystem::path mFile;
  Time mBegin;                   // of the file, or of its failure
  std::uint64_t mBytes = 0;      // in it
  std::uint64_t mUnwritten = 0;  // lines
  std::string mReason;           // why they were not written
};

}  // namespace velor::store
