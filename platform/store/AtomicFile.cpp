// SPDX-License-Identifier: MIT
#include "platform/store/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>
#include <utility>

namespace velor::store {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kReadBytes = 64 * 1024;

class Descriptor {
 public:
  explicit Descriptor(int number) noexcept : mNumber(number) {}
  ~Descriptor() { close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const noexcept { return mNumber; }
  bool isOpen() const noexcept { return mNumber >= 0; }
  // False when what was written did not arrive, as some file systems tell only here.
  bool close() noexcept {
    const int number = std::exchange(mNumber, -1);
    return number < 0 || ::close(number) == 0 || errno == EINTR;
  }

 private:
  int mNumber;
};

// A new file that goes again unless it takes the place of another.
class TemporaryFile {
 public:
  explicit TemporaryFile(const fs::path& folder)
      : mName((folder / ".velor-XXXXXX").string()),
        mFile(mkostemp(mName.data(), O_CLOEXEC)),
        mIsThere(mFile.isOpen()) {}
  ~TemporaryFile() {
    if (mIsThere) {
      unlink(mName.c_str());
    }
  }
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  Descriptor& file() noexcept { return mFile; }
  const std::string& name() const noexcept { return mName; }
  bool renameTo(const fs::path& path) noexcept {
    mIsThere = rename(mName.c_str(), path.c_str()) != 0;
    return !mIsThere;
  }

 private:
  std::string mName;
  Descriptor mFile;
  bool mIsThere;
};

// With the number of the call that failed last.
std::string failure(const char* step, const fs::path& path) {
  const int number = errno;
  return std::string("cannot ") + step + " " + path.string() + ": " +
         std::generic_category().message(number);
}

bool writeAll(int file, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t written = ::write(file, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) {
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
  }
  return true;
}

// Some file systems have no such operation for folders, and need none.
bool syncFolder(int folder) noexcept {
  return fsync(folder) == 0 || errno == EINVAL || errno == ENOTSUP;
}

}  // namespace

std::string AtomicFile::write(const fs::path& path, std::string_view bytes) {
  std::error_code isNoLink;
  const fs::path linked = fs::canonical(path, isNoLink);
  const fs::path target = isNoLink ? path : linked;
  const fs::path folder = target.has_parent_path() ? target.parent_path() : fs::path(".");

  // First, so that what can be refused is refused before anything changes.
  const Descriptor folderItself(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folderItself.isOpen()) {
    return failure("open the folder", folder);
  }
  TemporaryFile temporary(folder);  // mode 0600
  if (!temporary.file().isOpen()) {
    return failure("make a file in", folder);
  }
  if (!writeAll(temporary.file().get(), bytes)) {
    return failure("write", temporary.name());
  }
  if (fsync(temporary.file().get()) != 0) {
    return failure("put on the disk", temporary.name());
  }
  if (!temporary.file().close()) {
    return failure("close", temporary.name());
  }
  if (!temporary.renameTo(target)) {
    return failure("replace", target);
  }
  return syncFolder(folderItself.get()) ? std::string() : failure("put on the disk", folder);
}

AtomicFile::Contents AtomicFile::read(const fs::path& path, std::size_t maxBytes) {
  // Without waiting: a pipe would wait for somebody who writes.
  const Descriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  if (!file.isOpen()) {
    return {{}, failure("open", path)};
  }
  struct stat status {};
  if (fstat(file.get(), &status) != 0) {
    return {{}, failure("look at", path)};
  }
  if (!S_ISREG(status.st_mode)) {
    return {{}, "cannot read " + path.string() + ": it is no file with contents"};
  }
  const auto tooLarge = [&path, maxBytes] {
    return "cannot read " + path.string() + ": it is longer than " + std::to_string(maxBytes) +
           " bytes";
  };
  if (std::cmp_greater(status.st_size, maxBytes)) {
    return {{}, tooLarge()};
  }
  std::string bytes;
  for (;;) {
    const std::size_t had = bytes.size();
    bytes.resize(had + kReadBytes);
    const ssize_t got = ::read(file.get(), bytes.data() + had, kReadBytes);
    bytes.resize(had + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    if (got == 0) {
      return {std::move(bytes), {}};
    }
    if (got < 0 && errno != EINTR) {
      return {{}, failure("read", path)};
    }
    if (bytes.size() > maxBytes) {  // it has grown meanwhile
      return {{}, tooLarge()};
    }
  }
}

}  // namespace velor::store
