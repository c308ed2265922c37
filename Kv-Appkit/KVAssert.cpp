// SPDX-License-Identifier: MIT
#include "Kv-Appkit/KVAssert.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Kv-Appkit/KVException.h"
#include "platform/host/Log.h"
#include "platform/host/Realtime.h"

namespace velor {

void KVAssertionFailed(const char* condition, const char* file, int line) noexcept {
  std::fprintf(stderr, "assertion failed: %s (%s:%d)\n", condition, file, line);
  // The process ends here, so a real-time scope need not be kept any more.
  host::realtimeDepth() = 0;
  VELOR_LOG_ERROR("assertion failed: %s (%s:%d)", condition, file, line);
  std::abort();
}

void KVParameterRefused(const char* condition) {
  throw KVException(kParameterExceptionName,
                    std::string("Invalid parameter not satisfying: ") + condition);
}

}  // namespace velor
