// SPDX-License-Identifier: MIT
#include "platform/store/ReplacementFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <random>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/store/SystemFailure.h"

namespace velor::store {
namespace {

namespace fs = std::filesystem;

constexpr int kNamesToTry = 100;
constexpr std::size_t kRandomLetters = 6;

constexpr std::string_view kPrefix = ".velor-";
constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz0123456789";

std::string randomName() {
  std::random_device random;
  std::uniform_int_distribution<std::size_t> letter(0, kLetters.size() - 1);
  std::string name(kPrefix);
  for (std::size_t i = 0; i < kRandomLetters; ++i) {
    name += kLetters[letter(random)];
  }
  return name;
}

bool isOurName(std::string_view name) {
  return name.size() == kPrefix.size() + kRandomLetters && name.starts_with(kPrefix) &&
         name.find_first_not_of(kLetters, kPrefix.size()) == std::string_view::npos;
}

// What a kill has left. The lock shows that no process of this machine writes there; of
// one on another machine, whose lock may not be seen here, it is the file's age.
void removeIfLeftBehind(const fs::path& path) noexcept {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
  if (file < 0) {
    return;
  }
  struct stat status {};
  if (flock(file, LOCK_EX | LOCK_NB) == 0 && fstat(file, &status) == 0 && S_ISREG(status.st_mode) &&
      status.st_uid == geteuid() &&
      std::time(nullptr) - status.st_mtime > ReplacementFile::kLeftBehindAge) {
    unlink(path.c_str());
  }
  close(file);
}

void removeLeftBehind(const fs::path& folder) {
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    if (isOurName(entry->path().filename().native())) {
      removeIfLeftBehind(entry->path());
    }
  }
}

// Some file systems have no such operation for folders, and need none.
bool syncFolder(int folder) noexcept {
  return fsync(folder) == 0 || errno == EINVAL || errno == ENOTSUP;
}

}  // namespace

ReplacementFile::ReplacementFile(const fs::path& path, mode_t mode) {
  std::error_code isNoLink;
  const fs::path linked = fs::canonical(path, isNoLink);
  mTarget = isNoLink ? path : linked;
  mFolderPath = mTarget.has_parent_path() ? mTarget.parent_path() : fs::path(".");

  mFolder = open(mFolderPath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (mFolder < 0) {
    mError = systemFailure("open the folder", mFolderPath);
    return;
  }
  struct stat status {};
  if (stat(mTarget.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    mError = "cannot replace " + mTarget.string() + ": it is not a regular file";
    return;
  }
  mFile = openFile(mode);
  mIsThere = mFile >= 0;
  if (!mIsThere) {
    mError = systemFailure("make a file in", mFolderPath);
  }
}

int ReplacementFile::openFile(mode_t mode) {
  for (int i = 0; i < kNamesToTry; ++i) {
    mName = (mFolderPath / randomName()).string();
    const int file = open(mName.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (file < 0) {
      if (errno == EEXIST) {
        continue;
      }
      return -1;
    }
    // Where there are no locks, nothing is taken away either.
    mLock = fcntl(file, F_DUPFD_CLOEXEC, 0);
    while (flock(file, LOCK_EX) != 0 && errno == EINTR) {
    }
    return file;
  }
  return -1;
}

ReplacementFile::~ReplacementFile() {
  closeFile();
  if (mIsThere) {
    unlink(mName.c_str());
  }
  for (const int descriptor : {mLock, mFolder}) {
    if (descriptor >= 0) {
      close(descriptor);
    }
  }
}

// False when what was written did not arrive, as some file systems tell only here.
bool ReplacementFile::closeFile() noexcept {
  const int number = std::exchange(mFile, -1);
  return number < 0 || close(number) == 0 || errno == EINTR;
}

std::string ReplacementFile::takePlace() {
  if (fsync(mFile) != 0) {
    return systemFailure("put on the disk", mName);
  }
  if (!closeFile()) {
    return systemFailure("close", mName);
  }
  if (rename(mName.c_str(), mTarget.c_str()) != 0) {
    return systemFailure("replace", mTarget);
  }
  mIsThere = false;
  removeLeftBehind(mFolderPath);
  return syncFolder(mFolder) ? std::string() : systemFailure("put on the disk", mFolderPath);
}

}  // namespace velor::store
