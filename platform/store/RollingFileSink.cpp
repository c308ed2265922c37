// SPDX-License-Identifier: MIT
#include "platform/store/RollingFileSink.h"

#include <fcntl.h>
#include <spdlog/pattern_formatter.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <memory>
#include <optional>
#include <string_view>
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

struct NameParts {
  std::string stamp;
  int number = 1;
};

// What fileName made, or none: a file of any other name is somebody else's.
std::optional<NameParts> partsOfName(std::string_view name) {
  constexpr std::string_view kPrefix = "velor ";
  constexpr std::string_view kStampForm = "0000-00-00 00-00-00";
  constexpr std::string_view kSuffix = ".log";
  if (!name.starts_with(kPrefix) || !name.ends_with(kSuffix) ||
      name.size() < kPrefix.size() + kStampForm.size() + kSuffix.size()) {
    return std::nullopt;
  }
  name.remove_prefix(kPrefix.size());
  name.remove_suffix(kSuffix.size());
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  for (std::size_t i = 0; i < kStampForm.size(); ++i) {
    if (kStampForm[i] == '0' ? !isDigit(name[i]) : name[i] != kStampForm[i]) {
      return std::nullopt;
    }
  }
  NameParts parts{std::string(name.substr(0, kStampForm.size())), 1};
  name.remove_prefix(kStampForm.size());
  // The process, and perhaps a number.
  int numbers = 0;
  while (!name.empty()) {
    int value = 0;
    const auto [end, error] = std::from_chars(name.data() + 1, name.data() + name.size(), value);
    if (name.front() != ' ' || error != std::errc() || value < 0 || ++numbers > 2) {
      return std::nullopt;
    }
    name.remove_prefix(static_cast<std::size_t>(end - name.data()));
    parts.number = numbers == 2 ? value : 1;
  }
  return numbers > 0 ? std::optional(parts) : std::nullopt;
}

// A log file of this application, of whichever process.
class FoundFile {
 public:
  // None where the name is not one of ours, or no regular file has it.
  static std::optional<FoundFile> of(const fs::directory_entry& entry) {
    std::optional<NameParts> parts = partsOfName(entry.path().filename().native());
    if (!parts) {
      return std::nullopt;
    }
    // Where the file cannot be opened or asked, it counts as living.
    const int descriptor =
        open(entry.path().c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
    struct stat status {};
    if (descriptor >= 0 ? fstat(descriptor, &status) != 0
                        : lstat(entry.path().c_str(), &status) != 0) {
      status.st_mode = 0;
    }
    const bool left = descriptor >= 0 && flock(descriptor, LOCK_EX | LOCK_NB) == 0;
    FoundFile file(entry.path(), descriptor, left);
    if (!S_ISREG(status.st_mode)) {
      return std::nullopt;
    }
    file.mBytes = static_cast<std::uint64_t>(status.st_size);
    // The file system's time is coarse: files of one tick stand in the order of
    // their names.
    file.mOrder = {status.st_mtim.tv_sec, status.st_mtim.tv_nsec, std::move(parts->stamp),
                   parts->number};
    return file;
  }

  FoundFile(FoundFile&& other) noexcept
      : mPath(std::move(other.mPath)),
        mDescriptor(std::exchange(other.mDescriptor, -1)),
        mLeft(other.mLeft),
        mBytes(other.mBytes),
        mOrder(std::move(other.mOrder)) {}
  FoundFile& operator=(FoundFile&& other) noexcept {
    std::swap(mPath, other.mPath);
    std::swap(mDescriptor, other.mDescriptor);
    std::swap(mLeft, other.mLeft);
    std::swap(mBytes, other.mBytes);
    std::swap(mOrder, other.mOrder);
    return *this;
  }
  ~FoundFile() {
    if (mDescriptor >= 0) {
      close(mDescriptor);  // and with it our lock
    }
  }

  bool isLeft() const noexcept { return mLeft; }
  std::uint64_t bytes() const noexcept { return mBytes; }
  bool isNewerThan(const FoundFile& other) const { return mOrder > other.mOrder; }
  // While we hold the lock, so that a file which another process has just made
  // is either locked by then or seen by its maker as deleted.
  void remove() const noexcept { unlink(mPath.c_str()); }

 private:
  FoundFile(fs::path path, int descriptor, bool left)
      : mPath(std::move(path)), mDescriptor(descriptor), mLeft(left) {}

  fs::path mPath;
  int mDescriptor;
  bool mLeft;
  std::uint64_t mBytes = 0;
  std::tuple<std::time_t, long, std::string, int> mOrder;
};

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
  if (const std::error_code error = createPrivateFolder(mFolder)) {
    fail(error.value());
    return;
  }
  mDescriptor = openFile(mBegin);
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
    if (descriptor < 0) {
      if (errno == EEXIST) {
        continue;
      }
      return -1;
    }
    // It waits for no longer than another process looks the folder over. Where
    // the file system has no locks, nothing is deleted there either.
    while (flock(descriptor, LOCK_EX) != 0 && errno == EINTR) {
    }
    struct stat status {};
    if (fstat(descriptor, &status) == 0 && status.st_nlink > 0) {
      return descriptor;
    }
    close(descriptor);  // deleted before it was locked
  }
  errno = EEXIST;
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

void RollingFileSink::deleteOldFiles() const {
  std::size_t files = 0;
  std::uint64_t bytes = 0;
  std::vector<FoundFile> left;
  std::error_code error;
  for (fs::directory_iterator entry(mFolder, error), end; !error && entry != end;
       entry.increment(error)) {
    std::optional<FoundFile> file = FoundFile::of(*entry);
    if (!file) {
      continue;
    }
    if (file->isLeft()) {
      left.push_back(std::move(*file));
    } else {
      ++files;
      bytes += std::max(file->bytes(), mLimits.fileBytes);
    }
  }
  std::sort(left.begin(), left.end(),
            [](const FoundFile& a, const FoundFile& b) { return a.isNewerThan(b); });
  for (const FoundFile& file : left) {
    ++files;
    bytes += file.bytes();
    if (files > mLimits.files || bytes > mLimits.quotaBytes) {
      file.remove();
    }
  }
}

}  // namespace velor::store
