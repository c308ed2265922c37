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
///   "velor 2026-11-21 08-30-00 1234.log", and where that exists, with a
///   number: "velor 2026-11-21 08-30-00 1234 2.log". Mode 0600.
/// - A process writes to files of its own. Whoever starts a file deletes the oldest ones
///   until number and size are within the limits, but no file that a living process may
///   write to, even beyond the limits: that is the newest one with its process id. It
///   counts at its full size. Files of any other name are not touched.
/// - A file is followed by another when a line would take it past its size, or
///   comes at its age or later; one that nothing is written to stays as it is.
/// - When a file cannot be made or written, one line on stderr says so. The next line
///   that comes a minute later or more tries a new file, which begins with the number
///   of lines lost.
///
/// One thread calls it: the logging thread. Nothing here throws but for want of
/// memory.
class RollingFileSink final : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
 public:
  using Now = std::function<std::chrono::system_clock::time_point()>;

  RollingFileSink(std::filesystem::path folder, const LogLimits& limits, Now now);
  ~RollingFileSink() override;

 private:
  void sink_it_(const spdlog::details::log_msg& message) override;
  void flush_() override {}  // no line is held back

  bool fileIsDue(std::chrono::system_clock::time_point time, std::size_t lineBytes);
  void startFile();
  int openFile(std::chrono::system_clock::time_point time);
  void reportUnwritten();
  void write(const spdlog::memory_buf_t& line);
  void fail(int error);
  void closeFile() noexcept;
  void deleteOldFiles() const;

  const std::filesystem::path mFolder;
  const LogLimits mLimits;
  const Now mNow;
  int mDescriptor = -1;
  std::string mName;
  bool mStarted = false;                           // a first file was tried
  std::chrono::system_clock::time_point mBegin{};  // of the file, or of its failure
  std::uint64_t mBytes = 0;                        // in it
  std::uint64_t mUnwritten = 0;                    // lines
  std::string mReason;                             // why they were not written
  bool mWarned = false;
};

}  // namespace velor::store
