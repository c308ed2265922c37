// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace velor::crash {

/// What the handler of a crash writes: a file, or standard error when the file cannot be
/// written. All of it is async-signal-safe, and nothing of it waits for a terminal that is
/// held. One thread.
class CrashOutput {
 public:
  /// Before a crash: where its report is to be. Without a folder, or with one whose name is
  /// too long, it goes to standard error.
  void setFolder(std::string_view folder) noexcept;
  /// Makes the folder and the file, and beside it the mark that no start has named it yet.
  void open(std::int64_t secondsSince1970, const char* signal) noexcept;
  /// Ends the file, and says where it is.
  void end() noexcept;

  /// Adds a text of others: a control character becomes '?'.
  CrashOutput& quote(std::string_view text) noexcept;
  CrashOutput& operator<<(std::string_view text) noexcept;
  CrashOutput& decimal(std::uint64_t value, std::size_t digits = 1) noexcept;
  CrashOutput& hexadecimal(std::uint64_t value) noexcept;
  /// "2026-11-22 14:57:38", UTC; or the time of day alone, with milliseconds.
  CrashOutput& date(std::int64_t secondsSince1970) noexcept;
  CrashOutput& timeOfDay(std::int64_t nsSince1970) noexcept;

  /// Hands over what has been added.
  void flush() noexcept;

 private:
  void put(char each) noexcept;
  void number(std::uint64_t value, unsigned base, std::size_t digits) noexcept;
  void makeFolder() noexcept;
  void nameFile(std::int64_t secondsSince1970) noexcept;
  void addMark() noexcept;
  void fallBack(int error) noexcept;
  void toStandardError(std::string_view text) const noexcept;

  static constexpr std::size_t kLongestName = 64;  // of a file, with the end of the text

  std::array<char, PATH_MAX> mPath{};
  std::size_t mFolderBytes = 0;
  std::size_t mPathBytes = 0;  // of the report
  int mFile = -1;
  bool mHasBytes = false;  // the file
  const char* mSignal = "";
  std::array<char, 512> mText{};
  std::size_t mUsed = 0;
};

}  // namespace velor::crash
