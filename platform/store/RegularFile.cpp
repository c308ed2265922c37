// SPDX-License-Identifier: MIT
#include "platform/store/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/store/SystemFailure.h"

namespace velor::store {

RegularFile::RegularFile(const std::filesystem::path& path)
    : mFile(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
  struct stat status {};
  if (mFile < 0) {
    mError = systemFailure("open", path);
  } else if (fstat(mFile, &status) != 0) {
    mError = systemFailure("look at", path);
  } else if (!S_ISREG(status.st_mode)) {
    mError = "cannot read " + path.string() + ": it is not a regular file";
  } else {
    mSize = static_cast<std::uint64_t>(status.st_size);
  }
}

RegularFile::~RegularFile() {
  if (mFile >= 0) {
    close(mFile);
  }
}

}  // namespace velor::store
