// SPDX-License-Identifier: MIT
#include "kvtimecode/ltc_two_frames.h"

#include <atomic>

#include "kvtimecode/ltc_utils.h"

namespace velor {
namespace {

std::atomic<bool> gExactDrop{false};

}  // namespace

void ltc_set_exact_drop(bool isExact) noexcept {
  gExactDrop.store(isExact);
}

bool ltc_exact_drop() noexcept {
  return gExactDrop.load();
}

void ltc_add_two_frames(SMPTETime& t) noexcept {
  if (ltc_exact_drop()) {
    // One at a time, a frame is never lost to the numbers that are left out.
    ltc_add_frames(t, 1);
    ltc_add_frames(t, 1);
  } else {
    ltc_add_frames(t, 2);
  }
}

}  // namespace velor
