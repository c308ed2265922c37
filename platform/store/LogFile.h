// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string_view>

#include "platform/host/Log.h"
#include "platform/store/LogLimits.h"

namespace velor::store {

/// The application's log. A line is the local time as
/// "yyyy/MM/dd HH:mm:ss:SSS", two blanks, and the message; control characters in
/// it are escaped ("\n", "\x1b"), so that an entry is one line.
///
/// All lines go through one queue to one logging thread, in the order of their
/// times. When `log` returns for an error, it and all lines before it are in the file
/// (write(2) has returned); for other lines `log` does not wait. When the queue is full,
/// lines other than errors are discarded until half of it is free, and a line in the gap
/// says how many. The destructor writes the lines that wait.
///
/// The files, and how several processes share their folder: RollingFileSink.
class LogFile {
 public:
  /// The wall clock; called on any thread, also several at once.
  using Now = std::function<std::chrono::system_clock::time_point()>;

  /// Starts the logging thread; throws std::system_error when the system refuses it.
  /// The first line makes folder and file. If that fails, one line on stderr says so, and
  /// `log` goes on without.
  explicit LogFile(std::filesystem::path folder, const LogLimits& limits = {},
                   Now now = &std::chrono::system_clock::now);
  /// Removes itself as the sink first.
  ~LogFile();
  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;

  /// Makes this the sink of host::log until it is destroyed; one at a time.
  void install();

  /// Any thread, but not in a child that was forked without exec. Realtime-safe: no.
  void log(host::LogLevel level, std::string_view message);

 private:
  class Writer;
  const std::unique_ptr<Writer> mWriter;
  bool mInstalled = false;
};

}  // namespace velor::store
