// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>

namespace velor::store {

/// A value that an archive does not hold as it is wanted, or cannot take. The
/// text begins with where it stands: "devices.manager[3].endpoint: expected ...".
class KeyedArchiveError : public std::runtime_error {
 public:
  KeyedArchiveError(const std::string& path, const std::string& what)
      : std::runtime_error(path + ": " + what) {}
};

}  // namespace velor::store
