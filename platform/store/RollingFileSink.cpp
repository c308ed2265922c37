// SPDX-License-Identifier: MIT
#include "platform/store/RollingFileSink.h"

#include <fcntl.h>
#include <spdlog/details/os.h>
#include <spdlog/fmt/chrono.h>
#include <spdlog/pattern_formatter.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <functional>
#include <memory>
#include <regex>
#include <set>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/store/ApplicationFolders.h"
#include "platform/store/WriteAll.h"

namespace velor::store {
namespace {

namespace fs = std::filesystem;

constexpr const char* kLinePattern = "%Y/%m/%d %H:%M:%S:%e  %v";
constexpr mode_t kOwnerAlone = 0600;
constexpr int kNamesToTry = 10'000;
constexpr std::chrono::minutes kRetryAfter{1};

std::string fileName(RollingFileSink::Time time) {
  const std::tm local = spdlog::details::os::localtime(std::chrono::system_clock::to_time_t(time));
  return spdlog::fmt_lib::format("velor {:%Y-%m-%d %H-%M-%S} {}.log", local, getpid());
}

// A log file of this application, of any process. The file system's time is coarse: files of
// one tick are in the order of their names.
struct FoundFile {
  fs::file_time_type time;
  fs::path path;
  std::uint64_t bytes = 0;
  pid_t process = 0;

  auto operator<=>(const FoundFile&) const = default;
};

std::vector<FoundFile> filesIn(const fs::path& folder) {
  static const std::regex kName(R"(velor \d{4}-\d\d-\d\d \d\d-\d\d-\d\d (\d{1,9})\.log)");
  std::vector<FoundFile> files;
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename();
    std::smatch process;
    std::error_code gone;
    if (std::regex_match(name, process, kName) &&
        entry->symlink_status(gone).type() == fs::file_type::regular) {
      files.push_back({entry->last_write_time(gone), entry->path(), entry->file_size(gone),
                       std::stoi(process[1])});
    }
  }
  return files;
}

bool lives(pid_t process) noexcept {
  return kill(process, 0) == 0 || errno == EPERM;
}

}  // namespace

RollingFileSink::RollingFileSink(fs::path folder, const LogLimits& limits, Now now)
    : base_sink(std::make_unique<spdlog::pattern_formatter>(
          kLinePattern, spdlog::pattern_time_type::local, "\n")),
      mFolder(std::move(folder)),
      mLimits(limits),
      mNow(std::move(now)) {}

RollingFileSink::~RollingFileSink() {
  closeFile();
}

void RollingFileSink::sink_it_(const spdlog::details::log_msg& message) {
  spdlog::memory_buf_t line;
  formatter_->format(message, line);
  if (isFileDue(message.time, line.size())) {
    startFile();
  }
  mUnwritten += write(line) ? 0 : 1;
}

bool RollingFileSink::isFileDue(Time time, std::size_t lineBytes) {
  if (!mBegin) {
    return true;
  }
  // A line that waited in the queue is older than its file; and a clock that was
  // set back must not keep the file open for as long again.
  mBegin = std::min(*mBegin, time);
  if (mDescriptor < 0) {
    return time - *mBegin >= kRetryAfter;
  }
  return time - *mBegin >= mLimits.fileAge ||
         (mBytes > 0 && mBytes + lineBytes > mLimits.fileBytes);
}

void RollingFileSink::startFile() {
  closeFile();
  mBegin = mNow();
  mBytes = 0;
  const auto folder = createPrivateFolder(mFolder);
  for (int i = 0; folder && i < kNamesToTry && (i == 0 || errno == EEXIST) && mDescriptor < 0;
       ++i) {
    mFile = mFolder / fileName(*mBegin + std::chrono::seconds(i));
    mDescriptor =
        open(mFile.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, kOwnerAlone);
  }
  if (mDescriptor < 0) {
    fail();
    return;
  }
  deleteOldFiles();
  if (mUnwritten > 0) {
    const std::string text = std::to_string(mUnwritten) + " lines were lost: " + mReason;
    spdlog::memory_buf_t line;
    formatter_->format({*mBegin, {}, {}, spdlog::level::warn, text}, line);
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
  mReason =
      "cannot write the log in " + mFolder.string() + ": " + std::generic_category().message(errno);
  mBegin = mNow();
  if (mUnwritten == 0) {
    std::fprintf(stderr, "velor: %s; will try again each minute\n", mReason.c_str());
  }
  if (mDescriptor >= 0) {
    // Only whole lines stay, and no empty file, which would push a good one out of the folder.
    // Nothing can be done if that fails as well.
    [[maybe_unused]] const int result =
        mBytes == 0 ? unlink(mFile.c_str()) : ftruncate(mDescriptor, static_cast<off_t>(mBytes));
    closeFile();
  }
}

void RollingFileSink::closeFile() noexcept {
  if (mDescriptor >= 0) {
    close(std::exchange(mDescriptor, -1));
  }
}

void RollingFileSink::deleteOldFiles() const {
  std::vector<FoundFile> all = filesIn(mFolder);
  std::sort(all.begin(), all.end(), std::greater<>());
  std::set<pid_t> seen;
  const auto old = std::stable_partition(all.begin(), all.end(), [&](const FoundFile& file) {
    return file.process == getpid() ? file.path == mFile
                                    : seen.insert(file.process).second && lives(file.process);
  });
  auto files = static_cast<std::size_t>(old - all.begin());
  std::uint64_t bytes = 0;
  std::for_each(all.begin(), old,
                [&](const FoundFile& file) { bytes += std::max(file.bytes, mLimits.fileBytes); });
  std::for_each(old, all.end(), [&](const FoundFile& file) {
    std::error_code error;
    bytes += file.bytes;
    if (++files > mLimits.files || bytes > mLimits.quotaBytes) {
      fs::remove(file.path, error);
    }
  });
}

}  // namespace velor::store
