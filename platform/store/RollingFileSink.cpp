// SPDX-License-Identifier: MIT
#include "platform/store/RollingFileSink.h"

#include <fcntl.h>
#include <spdlog/pattern_formatter.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <memory>
#include <optional>
#include <regex>
#include <set>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include "platform/store/ApplicationFolders.h"

namespace velor::store {
namespace {

namespace fs = std::filesystem;
using Time = std::chrono::system_clock::time_point;

constexpr const char* kLinePattern = "%Y/%m/%d %H:%M:%S:%e  %v";
constexpr mode_t kOwnerAlone = 0600;
constexpr int kNamesToTry = 10'000;  // files of one process and one second
constexpr std::chrono::minutes kRetryAfter{1};

std::string fileName(Time time, int number) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  localtime_r(&seconds, &local);
  char stamp[64];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H-%M-%S", &local);
  std::string name = "velor " + std::string(stamp) + ' ' + std::to_string(getpid());
  if (number > 1) {
    name += ' ' + std::to_string(number);
  }
  return name + ".log";
}

// A log file of this application, of whichever process.
struct FoundFile {
  fs::path path;
  pid_t process = 0;
  std::uint64_t bytes = 0;
  // The file system's time is coarse: files of one tick stand in the order of their names.
  std::tuple<fs::file_time_type, std::string, int> order;
};

// None for a file that does not have one of our names: it is somebody else's.
std::optional<FoundFile> found(const fs::directory_entry& entry) {
  static const std::regex kName(
      R"(velor (\d{4}-\d\d-\d\d \d\d-\d\d-\d\d) (\d{1,9})( \d{1,9})?\.log)");
  const std::string name = entry.path().filename();
  std::smatch parts;
  std::error_code error;
  if (!std::regex_match(name, parts, kName) || entry.is_symlink(error) ||
      !entry.is_regular_file(error)) {
    return std::nullopt;
  }
  FoundFile file{entry.path(), std::stoi(parts[2]), entry.file_size(error), {}};
  const int number = parts[3].matched ? std::stoi(parts[3]) : 1;
  file.order = {entry.last_write_time(error), parts[1], number};
  return error ? std::nullopt : std::optional(file);
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
  if (fileIsDue(message.time, line.size())) {
    startFile();
  }
  write(line);
}

bool RollingFileSink::fileIsDue(Time time, std::size_t lineBytes) {
  if (!mStarted) {
    return true;
  }
  // A line that waited in the queue is older than its file; and a clock that was
  // set back must not keep the file open for as long again.
  mBegin = std::min(mBegin, time);
  if (mDescriptor < 0) {
    return time - mBegin >= kRetryAfter;
  }
  return time - mBegin >= mLimits.fileAge || (mBytes > 0 && mBytes + lineBytes > mLimits.fileBytes);
}

void RollingFileSink::startFile() {
  closeFile();
  mStarted = true;
  mBegin = mNow();
  mBytes = 0;
  const auto folder = createPrivateFolder(mFolder);
  mDescriptor = folder ? openFile(mBegin) : -1;
  if (mDescriptor < 0) {
    fail(errno);
    return;
  }
  deleteOldFiles();
  reportUnwritten();
}

int RollingFileSink::openFile(Time time) {
  for (int number = 1; number <= kNamesToTry; ++number) {
    mName = fileName(time, number);
    const int descriptor = open((mFolder / mName).c_str(),
                                O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, kOwnerAlone);
    if (descriptor >= 0 || errno != EEXIST) {
      return descriptor;
    }
  }
  return -1;
}

void RollingFileSink::reportUnwritten() {
  if (mUnwritten == 0) {
    return;
  }
  const std::string text = std::to_string(mUnwritten) + " lines were lost: " + mReason;
  spdlog::memory_buf_t line;
  formatter_->format({mBegin, {}, {}, spdlog::level::warn, text}, line);
  const std::uint64_t lost = std::exchange(mUnwritten, 0);
  write(line);
  if (mDescriptor < 0) {
    mUnwritten = lost;  // this line is told again rather than counted
  }
}

void RollingFileSink::write(const spdlog::memory_buf_t& line) {
  std::size_t done = 0;
  while (mDescriptor >= 0 && done < line.size()) {
    const ssize_t written = ::write(mDescriptor, line.data() + done, line.size() - done);
    if (written > 0) {
      done += static_cast<std::size_t>(written);
    } else if (written == 0 || errno != EINTR) {
      fail(written == 0 ? EIO : errno);
    }
  }
  if (mDescriptor < 0) {
    ++mUnwritten;
    return;
  }
  mBytes += line.size();
  mWarned = false;
}

void RollingFileSink::fail(int error) {
  mBegin = mNow();
  mReason =
      "cannot write the log in " + mFolder.string() + ": " + std::generic_category().message(error);
  if (!std::exchange(mWarned, true)) {
    std::fprintf(stderr, "velor: %s; will try again each minute\n", mReason.c_str());
  }
  if (mDescriptor >= 0) {
    // Whole lines only; and a full disk must not push the good files out by
    // empty ones. Whether that works is of no more use.
    if (mBytes == 0) {
      unlink((mFolder / mName).c_str());
    } else {
      [[maybe_unused]] const int result = ftruncate(mDescriptor, static_cast<off_t>(mBytes));
    }
    closeFile();
  }
}

void RollingFileSink::closeFile() noexcept {
  if (mDescriptor >= 0) {
    close(std::exchange(mDescriptor, -1));
  }
}

// The newest file of a process that lives may be written to: it counts at its full size.
void RollingFileSink::deleteOldFiles() const {
  std::vector<FoundFile> all;
  std::error_code error;
  for (fs::directory_iterator entry(mFolder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (auto file = found(*entry)) {
      all.push_back(std::move(*file));
    }
  }
  std::sort(all.begin(), all.end(),
            [](const FoundFile& a, const FoundFile& b) { return a.order > b.order; });
  std::size_t files = 0;
  std::uint64_t bytes = 0;
  std::set<pid_t> seen;
  std::erase_if(all, [&](const FoundFile& file) {
    const bool isWritten = file.process == getpid()
                               ? file.path.filename() == mName
                               : seen.insert(file.process).second && lives(file.process);
    files += isWritten ? 1 : 0;
    bytes += isWritten ? std::max(file.bytes, mLimits.fileBytes) : 0;
    return isWritten;
  });
  for (const FoundFile& file : all) {
    bytes += file.bytes;
    if (++files > mLimits.files || bytes > mLimits.quotaBytes) {
      fs::remove(file.path, error);
    }
  }
}

}  // namespace velor::store
