// SPDX-License-Identifier: MIT
#pragma once

#include "kvtimecode/ltc_two_frames.h"

namespace velor {

/// Sets the mode in which two frames are added; off again at its end.
struct ExactDrop {
  explicit ExactDrop(bool isExact = true) { ltc_set_exact_drop(isExact); }
  ~ExactDrop() { ltc_set_exact_drop(false); }
  ExactDrop(const ExactDrop&) = delete;
  ExactDrop& operator=(const ExactDrop&) = delete;
};

}  // namespace velor
