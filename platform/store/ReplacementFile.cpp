// SPDX-License-Identifier: MIT
#include "platform/store/ReplacementFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

std::string randomName() {
  constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::random_device random;
  std::uniform_int_distribution<std::size_t> letter(0, kLetters.size() - 1);
  std::string name = ".velor-";
  for (std::size_t i = 0; i < kRandomLetters; ++i) {
    name += kLetters[letter(random)];
  }
  return name;
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
    mError = "cannot replace " + mTarget.string() + ": it is no file with contents";
    return;
  }
  for (int i = 0; i < kNamesToTry && mFile < 0; ++i) {
    mName = (mFolderPath / randomName()).string();
    mFile = open(mName.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    if (mFile < 0 && errno != EEXIST) {
      break;
    }
  }
  mIsThere = mFile >= 0;
  if (!mIsThere) {
    mError = systemFailure("make a file in", mFolderPath);
  }
}

ReplacementFile::~ReplacementFile() {
  closeFile();
  if (mIsThere) {
    unlink(mName.c_str());
  }
  if (mFolder >= 0) {
    close(mFolder);
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
  return syncFolder(mFolder) ? std::string() : systemFailure("put on the disk", mFolderPath);
}

}  // namespace velor::store
