// SPDX-License-Identifier: MIT
#include "platform/store/AtomicFile.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "platform/store/RegularFile.h"
#include "platform/store/ReplacementFile.h"
#include "platform/store/SystemFailure.h"
#include "platform/store/WriteAll.h"

namespace velor::store {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kReadBytes = 64 * 1024;

}  // namespace

Expected<> AtomicFile::write(const fs::path& path, std::string_view bytes) {
  auto replacement = ReplacementFile::create(path, 0600);
  if (!replacement) {
    return tl::unexpected(replacement.error());
  }
  if (!writeAll(replacement->descriptor(), bytes)) {
    return systemFailure("write", replacement->name());
  }
  return replacement->takePlace();
}

Expected<std::string> AtomicFile::read(const fs::path& path, std::size_t maxBytes) {
  const auto file = RegularFile::open(path);
  if (!file) {
    return tl::unexpected(file.error());
  }
  const auto tooLarge = [&path, maxBytes] {
    return failure("cannot read " + path.string() + ": it is longer than " +
                   std::to_string(maxBytes) + " bytes");
  };
  if (file->size() > maxBytes) {
    return tooLarge();
  }
  std::string bytes;
  for (;;) {
    const std::size_t had = bytes.size();
    bytes.resize(had + kReadBytes);
    const ssize_t got = ::read(file->descriptor(), bytes.data() + had, kReadBytes);
    bytes.resize(had + static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    if (got == 0) {
      return bytes;
    }
    if (got < 0 && errno != EINTR) {
      return systemFailure("read", path);
    }
    if (bytes.size() > maxBytes) {  // it has grown meanwhile
      return tooLarge();
    }
  }
}

}  // namespace velor::store
