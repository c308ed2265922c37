// SPDX-License-Identifier: MIT
#include "platform/store/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/store/SystemFailure.h"

namespace velor::store {

Expected<RegularFile> RegularFile::open(const std::filesystem::path& path) {
  RegularFile file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (file.mFile < 0) {
    return systemFailure("open", path);
  }
  struct stat status {};
  if (fstat(file.mFile, &status) != 0) {
    return systemFailure("look at", path);
  }
  if (!S_ISREG(status.st_mode)) {
    return failure("cannot read " + path.string() + ": it is not a regular file");
  }
  file.mSize = static_cast<std::uint64_t>(status.st_size);
  return file;
}

RegularFile::~RegularFile() {
  if (mFile >= 0) {
    close(mFile);
  }
}

}  // namespace velor::store
