// SPDX-License-Identifier: MIT
#include "platform/store/RollingFileSink.h"

#include <fcntl.h>
#include <spdlog/fmt/chrono.h>
#include <spdlog/pattern_formatter.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <regex>
#include <set>
#include <tuple>
#include <utility>

#include "platform/store/ApplicationFolders.h"
#include "platform/store/SystemFailure.h"
#include "platform/store/WriteAll.h"

namespace velor::store {
namespace {

namespace fs = std::filesystem;

constexpr const char* kLinePattern = "%Y/%m/%d %H:%M:%S:%e  %v";
constexpr mode_t kOwnerAlone = 0600;
constexpr std::chrono::minutes kRetryAfter{1};

std::string fileName(RollingFileSink::Time time) {
  return spdlog::fmt_lib::format("velor {:%Y-%m-%d %H-%M-%S} {}.log",
                                 spdlog::fmt_lib::localtime(time), getpid());
}

bool isLocked(const fs::path& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  const bool result = flock(file, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
  close(file);
  return result;
}

void deleteOldFiles(const fs::path& folder, const LogLimits& limits) {
  static const std::regex kName(R"(velor \d{4}-\d\d-\d\d \d\d-\d\d-\d\d \d{1,9}\.log)");
  // Locked ones first, then the newest. The file system's time is coarse: files of one tick
  // are in the order of their names.
  std::set<std::tuple<bool, fs::file_time_type, fs::path, std::uint64_t>, std::greater<>> files;
  std::error_code error;  // of a file that another process has just deleted
  for (fs::directory_iterator i(folder, error), end; i != end; i.increment(error)) {
    const fs::path& path = i->path();
    if (std::regex_match(path.filename().string(), kName) &&
        fs::is_regular_file(i->symlink_status(error))) {
      files.emplace(isLocked(path), i->last_write_time(error), path, i->file_size(error));
    }
  }
  std::size_t count = 0;
  std::uint64_t total = 0;
  for (const auto& [locked, time, path, bytes] : files) {
    total += locked ? std::max<std::uint64_t>(bytes, limits.fileBytes) : bytes;
    if ((++count > limits.files || total > limits.quotaBytes) && !locked) {
      fs::remove(path, error);
    }
  }
}

}  // namespace

RollingFileSink::RollingFileSink(fs::path folder, const LogLimits& limits, Now now)
    : base_sink(std::make_unique<spdlog::pattern_formatter>(
          kLinePattern, spdlog::pattern_time_type::local, "\n")),
      mFolder(std::move(folder)),
      mLimits(limits),
      mNow(std::move(now)) {}

void RollingFileSink::sink_it_(const spdlog::details::log_msg& message) {
  spdlog::memory_buf_t line;
  formatter_->format(message, line);
  // A line that waited in the queue is older than its file; and a clock that was
  // set back must not keep the file open for as long again.
  mBegin = std::min(mBegin, message.time);
  const auto age = message.time - mBegin;
  if (mDescriptor < 0 ? age >= kRetryAfter
                      : age >= mLimits.fileAge || mBytes + line.size() > mLimits.fileBytes) {
    startFile();
  }
  mUnwritten += write(line) ? 0 : 1;
}

void RollingFileSink::startFile() {
  closeFile();
  mBytes = 0;
  Time time = mBegin = mNow();
  if (createPrivateFolder(mFolder)) {
    do {
      mFile = mFolder / fileName(time);
      mDescriptor =
          open(mFile.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, kOwnerAlone);
      time += std::chrono::seconds(1);
    } while (mDescriptor < 0 && errno == EEXIST);
  }
  if (mDescriptor < 0) {
    return fail();
  }
  flock(mDescriptor, LOCK_EX);
  deleteOldFiles(mFolder, mLimits);
  if (mUnwritten > 0) {
    const std::string text = std::to_string(mUnwritten) + " lines were lost: " + mReason;
    spdlog::memory_buf_t line;
    formatter_->format({mBegin, {}, {}, spdlog::level::warn, text}, line);
    mUnwritten = write(line) ? 0 : mUnwritten;
  }
}

bool RollingFileSink::write(const spdlog::memory_buf_t& line) {
  if (mDescriptor < 0) {
    return false;
  }
  if (!writeAll(mDescriptor, {line.data(), line.size()})) {
    fail();
    return false;
  }
  mBytes += line.size();
  return true;
}

// The reason is in errno.
void RollingFileSink::fail() {
  mReason = systemFailure("write the log in", mFolder).value().text;
  mBegin = mNow();
  if (mUnwritten == 0) {
    std::fprintf(stderr, "velor: %s; will try again each minute\n", mReason.c_str());
  }
  if (mDescriptor >= 0) {
    // Only whole lines stay, and no empty file, which would push a good one out of the folder.
    closeFile();
    std::error_code ignored;
    if (mBytes > 0) {
      fs::resize_file(mFile, mBytes, ignored);
    } else {
      fs::remove(mFile, ignored);
    }
  }
}

void RollingFileSink::closeFile() noexcept {
  if (mDescriptor >= 0) {
    close(std::exchange(mDescriptor, -1));
  }
}

}  // namespace velor::store
