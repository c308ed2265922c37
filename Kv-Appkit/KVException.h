// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

namespace velor {

/// The name of what the wrappers of the audio and MIDI services raise.
inline constexpr const char* kServiceExceptionName = "err";
/// The name of what a refused parameter raises.
inline constexpr const char* kParameterExceptionName = "InvalidParameter";

/// The one exception type of the system: a name that says which kind, and a
/// reason for people.
class KVException : public std::exception {
 public:
  KVException(std::string name, std::string reason)
      : mName(std::move(name)), mReason(std::move(reason)) {}

  const std::string& name() const noexcept { return mName; }
  const std::string& reason() const noexcept { return mReason; }
  const char* what() const noexcept override { return mReason.c_str(); }

 private:
  std::string mName;
  std::string mReason;
};

/// Raises the exception of a service that failed: "Error: ", the method that
/// called it, and the status in parentheses.
[[noreturn]] inline void KVRaiseServiceError(const char* method, std::int32_t status) {
  throw KVException(kServiceExceptionName,
                    "Error: " + std::string(method) + " (" + std::to_string(status) + ")");
}

}  // namespace velor
