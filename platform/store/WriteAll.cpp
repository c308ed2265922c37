// SPDX-License-Identifier: MIT
#include "platform/store/WriteAll.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace velor::store {

bool writeAll(int file, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t written = write(file, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) {
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
  }
  return true;
}

}  // namespace velor::store
