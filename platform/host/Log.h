// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

namespace velor::host {

/// The levels of a log line, as flags.
enum LogLevel : std::uint32_t {
  kLogError = 1,
  kLogWarning = 2,
  kLogInfo = 4,
  kLogDebug = 8,
  kLogVerbose = 16,
};

/// The levels that are written: error to info.
inline constexpr std::uint32_t kLogLevelsWritten = kLogError | kLogWarning | kLogInfo;

/// Receives every line of a written level, from any thread, one call a line.
using LogSink = std::function<void(LogLevel, std::string_view)>;

/// Sends all lines to the sink from now on; an empty one discards them, as at the start.
/// Waits until no call of the former sink is running.
void setLogSink(LogSink sink);

/// Logs one line, formatted as by printf; lines over 1023 bytes are cut. Levels that
/// are not written return before formatting.
/// Realtime-safe: no. Test binaries abort when it is called in a real-time scope.
void log(LogLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));

}  // namespace velor::host

#define VELOR_LOG_ERROR(...) ::velor::host::log(::velor::host::kLogError, __VA_ARGS__)
#define VELOR_LOG_WARNING(...) ::velor::host::log(::velor::host::kLogWarning, __VA_ARGS__)
#define VELOR_LOG_INFO(...) ::velor::host::log(::velor::host::kLogInfo, __VA_ARGS__)
#define VELOR_LOG_DEBUG(...) ::velor::host::log(::velor::host::kLogDebug, __VA_ARGS__)
#define VELOR_LOG_VERBOSE(...) ::velor::host::log(::velor::host::kLogVerbose, __VA_ARGS__)
