// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string_view>

namespace velor::host {

/// The last lines of the log, for the report of a crash. `log` adds every line that it
/// writes. A signal handler reads them without a lock, whichever thread it interrupted.
class LogTail {
 public:
  static constexpr std::size_t kLines = 50;

  struct Line {
    std::int64_t time = 0;  ///< ns since 1970, UTC
    std::size_t size = 0;
    std::array<char, 1024> text{};
  };

  static LogTail& shared() noexcept;

  /// Any thread. A line of 1024 bytes or more is cut. Realtime-safe: no.
  void add(std::string_view text) noexcept;

  /// No further line is added, so that those that are read stay. Async-signal-safe.
  void close() noexcept { mIsClosed.store(true); }
  /// How many lines can be read, at most kLines. Async-signal-safe.
  std::size_t size() const noexcept;
  /// The line at a place below size(), the oldest first. Async-signal-safe once closed.
  const Line& operator[](std::size_t place) const noexcept;

 private:
  // More than can be read: a line that a thread writes while the tail is closed takes the
  // place of none of them.
  static constexpr std::size_t kPlaces = kLines + 1;

  std::mutex mWriters;
  std::array<Line, kPlaces> mLines{};
  std::atomic<std::size_t> mCount{0};  // of all lines ever added
  std::atomic<bool> mIsClosed{false};
};

}  // namespace velor::host
