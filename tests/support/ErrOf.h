// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Kv-Appkit/KVException.h"

namespace velor {

/// Name and reason of what a call raises.
template <class F>
std::string errOf(const F& call) {
  try {
    call();
  } catch (const KVException& error) {
    return error.name() + ": " + error.reason();
  }
  return "nothing raised";
}

}  // namespace velor
