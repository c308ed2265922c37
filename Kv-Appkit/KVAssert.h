// SPDX-License-Identifier: MIT
#pragma once

namespace velor {

/// Ends the process, with the text on stderr and in the log.
[[noreturn]] void KVAssertionFailed(const char* condition, const char* file, int line) noexcept;

/// Raises a KVException named kParameterExceptionName with the reason
/// "Invalid parameter not satisfying: " and the condition.
[[noreturn]] void KVParameterRefused(const char* condition);

}  // namespace velor

// A programming error in a plain module: the process ends at once. The
// condition as it is written is the text.
#define KV_ASSERT(...) \
  ((__VA_ARGS__) ? void(0) : ::velor::KVAssertionFailed(#__VA_ARGS__, __FILE__, __LINE__))

// A bad parameter: an exception at the caller, with `text` as the condition.
#define KV_REQUIRE_PARAMETER(condition, text) \
  ((condition) ? void(0) : ::velor::KVParameterRefused(text))
