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
/// it stand escaped ("\n", "\x1b"), so that an entry is one line.
///
/// All lines go through one queue to one logging thread, in the order of their
/// times. An error is in its file (write(2) has returned), and so is all that was
/// logged before it, when `log` returns; other lines are not waited for. When
/// the queue is full, lines other than errors are dropped until half of it is
/// free, and a line in the gap says how many. The destructor writes what waits.
///
/// The files, and how several processes share their folder: RollingFileSink.
class LogFile {
 public:
  /// The wall clock; called on any thread, also several at once.
  using Now = std::function<std::chrono::system_clock::time_point()>;

  /// Starts the logging thread; throws std::system_error when there can be none.
  /// Folder and file are made with the first line. A failure there is told once
  /// on stderr, never to the caller.
  explicit LogFile(std::filesystem::path folder, const LogLimits& limits = {},
                   Now now = &std::chrono::system_clock::now);
  /// Takes itself out of force first.
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
