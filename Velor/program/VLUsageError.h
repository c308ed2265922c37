// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>
#include <string>

namespace velor {

/// The command line is wrong; the message is one line for people. Only the code that reads
/// the command line raises and catches it.
class VLUsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Raises VLUsageError.
inline void VLRefuseIf(bool condition, const std::string& message) {
  if (condition) {
    throw VLUsageError(message);
  }
}

/// What `read` returns; a VLUsageError that it raises gets the option's name in front.
template <class Read>
auto VLReadOption(const char* option, Read read) {
  try {
    return read();
  } catch (const VLUsageError& error) {
    throw VLUsageError(std::string(option) + ": " + error.what());
  }
}

}  // namespace velor
