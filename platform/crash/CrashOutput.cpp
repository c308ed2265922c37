// SPDX-License-Identifier: MIT
#include "platform/crash/CrashOutput.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "platform/crash/CrashReports.h"

namespace velor::crash {
namespace {

constexpr int kNewFile = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
constexpr mode_t kOwnerAlone = 0600;
constexpr mode_t kFolderOfOwnerAlone = 0700;

using Seconds = std::chrono::sys_seconds;

}  // namespace

void CrashOutput::setFolder(std::string_view folder) noexcept {
  if (folder.size() + kLongestName <= mPath.size()) {
    std::copy(folder.begin(), folder.end(), mPath.begin());
    mFolderBytes = folder.size();
  }
}

void CrashOutput::open(std::int64_t secondsSince1970, const char* signal) noexcept {
  mSignal = signal;
  if (mFolderBytes == 0) {
    fallBack(ENOENT);
    return;
  }
  makeFolder();
  nameFile(secondsSince1970);
  mFile = ::open(mPath.data(), kNewFile, kOwnerAlone);
  if (mFile < 0) {
    fallBack(errno);
    return;
  }
  addMark();
  if (const int mark = ::open(mPath.data(), kNewFile, kOwnerAlone); mark >= 0) {
    close(mark);
  }
  mPath[mPathBytes] = 0;
}

void CrashOutput::makeFolder() noexcept {
  for (std::size_t i = 1; i < mFolderBytes; ++i) {
    if (mPath[i] == '/') {
      mPath[i] = 0;
      mkdir(mPath.data(), kFolderOfOwnerAlone);
      mPath[i] = '/';
    }
  }
  mPath[mFolderBytes] = 0;
  mkdir(mPath.data(), kFolderOfOwnerAlone);  // when that fails so does the file
}

void CrashOutput::nameFile(std::int64_t secondsSince1970) noexcept {
  *this << "/" << CrashReports::kPrefix;
  date(secondsSince1970) << "-";
  decimal(static_cast<std::uint64_t>(getpid())) << CrashReports::kSuffix;
  for (std::size_t i = 0; i < mUsed; ++i) {
    const char each = mText[i];
    mPath[mFolderBytes + i] = each == ' ' || each == ':' ? '-' : each;
  }
  mPathBytes = mFolderBytes + mUsed;
  mPath[mPathBytes] = 0;
  mUsed = 0;
}

void CrashOutput::addMark() noexcept {
  const std::string_view mark = CrashReports::kMark;
  std::copy(mark.begin(), mark.end(), mPath.data() + mPathBytes);
  mPath[mPathBytes + mark.size()] = 0;
}

// What has not been written follows there.
void CrashOutput::fallBack(int error) noexcept {
  if (mFile >= 0) {
    close(mFile);
    mFile = -1;
    if (!mHasBytes) {
      unlink(mPath.data());
      addMark();
      unlink(mPath.data());
    }
  }
  toStandardError("velor: crashed by SIG");
  toStandardError(mSignal);
  toStandardError("; the report cannot be written (");
  toStandardError(strerrordesc_np(error));
  toStandardError(") and follows here\n");
}

void CrashOutput::end() noexcept {
  flush();
  if (mFile < 0) {
    return;
  }
  close(mFile);
  mFile = -1;
  toStandardError("velor: crashed by SIG");
  toStandardError(mSignal);
  toStandardError("; the report is ");
  toStandardError(mPath.data());
  toStandardError("\n");
}

void CrashOutput::flush() noexcept {
  std::size_t done = 0;
  while (mFile >= 0 && done < mUsed) {
    const ssize_t bytes = write(mFile, mText.data() + done, mUsed - done);
    if (bytes > 0) {
      done += static_cast<std::size_t>(bytes);
      mHasBytes = true;
    } else if (bytes == 0 || errno != EINTR) {
      fallBack(bytes == 0 ? ENOSPC : errno);
    }
  }
  toStandardError({mText.data() + done, mUsed - done});
  mUsed = 0;
}

// A terminal that is held (Ctrl-S) must not hold the end of the program.
void CrashOutput::toStandardError(std::string_view text) const noexcept {
  pollfd entry{STDERR_FILENO, POLLOUT, 0};
  if (!text.empty() && poll(&entry, 1, 0) == 1 && (entry.revents & POLLOUT) != 0) {
    static_cast<void>(!write(STDERR_FILENO, text.data(), text.size()));
  }
}

void CrashOutput::put(char each) noexcept {
  if (mUsed == mText.size()) {
    flush();
  }
  mText[mUsed++] = each;
}

CrashOutput& CrashOutput::operator<<(std::string_view text) noexcept {
  for (const char each : text) {
    put(each);
  }
  return *this;
}

CrashOutput& CrashOutput::quote(std::string_view text) noexcept {
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto each = static_cast<unsigned char>(text[i]);
    // U+0080 to U+009F control terminals as well; their second byte is what does.
    const bool isControl =
        each < ' ' || each == 0x7F || (each < 0xA0 && i > 0 && text[i - 1] == '\xC2');
    put(isControl ? '?' : text[i]);
  }
  return *this;
}

void CrashOutput::number(std::uint64_t value, unsigned base, std::size_t digits) noexcept {
  std::array<char, 20> reversed{};
  std::size_t count = 0;
  for (; value > 0 || count < digits; value /= base) {
    reversed[count++] = "0123456789abcdef"[value % base];
  }
  while (count > 0) {
    put(reversed[--count]);
  }
}

CrashOutput& CrashOutput::decimal(std::uint64_t value, std::size_t digits) noexcept {
  number(value, 10, digits);
  return *this;
}

CrashOutput& CrashOutput::hexadecimal(std::uint64_t value) noexcept {
  *this << "0x";
  number(value, 16, 1);
  return *this;
}

CrashOutput& CrashOutput::date(std::int64_t secondsSince1970) noexcept {
  const Seconds time{std::chrono::seconds(secondsSince1970)};
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  decimal(static_cast<std::uint64_t>(static_cast<int>(date.year())), 4) << "-";
  decimal(static_cast<unsigned>(date.month()), 2) << "-";
  decimal(static_cast<unsigned>(date.day()), 2) << " ";
  decimal(static_cast<std::uint64_t>(clock.hours().count()), 2) << ":";
  decimal(static_cast<std::uint64_t>(clock.minutes().count()), 2) << ":";
  return decimal(static_cast<std::uint64_t>(clock.seconds().count()), 2);
}

CrashOutput& CrashOutput::timeOfDay(std::int64_t nsSince1970) noexcept {
  const auto ms = static_cast<std::uint64_t>(std::max<std::int64_t>(nsSince1970, 0)) / 1'000'000;
  decimal(ms / 3'600'000 % 24, 2) << ":";
  decimal(ms / 60'000 % 60, 2) << ":";
  decimal(ms / 1000 % 60, 2) << ".";
  return decimal(ms % 1000, 3);
}

}  // namespace velor::crash
