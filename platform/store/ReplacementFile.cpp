// SPDX-License-Identifier: MIT
#include "platform/store/ReplacementFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <random>
#include <string>
#include <string_view>
#include <system_error>

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

// Deletes a file that a kill has left. The lock shows that no process of this machine writes
// there. The lock of another machine may not be seen here; the file's age tells instead.
void removeIfLeftBehind(const fs::path& path) {
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
Expected<> syncFolder(const fs::path& path) {
  const int folder = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const bool isDone = folder >= 0 && (fsync(folder) == 0 || errno == EINVAL || errno == ENOTSUP);
  Expected<> result;
  if (!isDone) {
    result = systemFailure("put on the disk", path);
  }
  if (folder >= 0) {
    close(folder);
  }
  return result;
}

}  // namespace

Expected<ReplacementFile> ReplacementFile::create(const fs::path& path, mode_t mode) {
  std::error_code isNoLink;
  const fs::path linked = fs::canonical(path, isNoLink);
  const fs::path target = fs::absolute(isNoLink ? path : linked);
  const fs::path folder = target.parent_path();
  struct stat status {};
  if (stat(target.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
    return failure("cannot replace " + target.string() + ": it is not a regular file");
  }
  for (int i = 0; i < kNamesToTry; ++i) {
    const fs::path name = folder / randomName();
    const int file = open(name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (file >= 0) {
      // Where there are no locks, no file is deleted either.
      while (flock(file, LOCK_EX) != 0 && errno == EINTR) {
      }
      return ReplacementFile(target, name, file);
    }
    if (errno != EEXIST) {
      break;
    }
  }
  return systemFailure("make a file in", folder);
}

ReplacementFile::~ReplacementFile() {
  if (mFile >= 0) {
    close(mFile);
  }
  if (mIsThere) {
    unlink(mName.c_str());
  }
}

Expected<> ReplacementFile::takePlace() {
  if (fsync(mFile) != 0) {
    return systemFailure("put on the disk", mName);
  }
  if (rename(mName.c_str(), mTarget.c_str()) != 0) {
    return systemFailure("replace", mTarget);
  }
  mIsThere = false;
  removeLeftBehind(mTarget.parent_path());
  return syncFolder(mTarget.parent_path());
}

}  // namespace velor::store
