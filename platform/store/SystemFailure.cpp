// SPDX-License-Identifier: MIT
#include "platform/store/SystemFailure.h"

#include <cerrno>
#include <string>
#include <system_error>

namespace velor::store {

tl::unexpected<Error> systemFailure(const char* step, const std::filesystem::path& path) {
  const int number = errno;
  return failure(std::string("cannot ") + step + " " + path.string() + ": " +
                 std::generic_category().message(number));
}

}  // namespace velor::store
