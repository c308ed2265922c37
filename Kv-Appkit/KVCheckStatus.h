// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "Kv-Appkit/KVAssert.h"
#include "Kv-Appkit/KVFourCC.h"

namespace velor {

/// Ends the process for a status of a plain module that is not 0: the ones that its
/// callers can cause are programming errors.
inline void KVCheckStatus(const char* method, std::int32_t status) {
  if (status != 0) {
    const std::string text = std::string(method) + ", " +
                             stringFromFourCC(static_cast<std::uint32_t>(status)) + ". [" +
                             std::to_string(status) + "]";
    KVAssertionFailed(text.c_str(), __FILE__, __LINE__);
  }
}

}  // namespace velor
