// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace velor::store {

/// How much log there is at most.
struct LogLimits {
  std::uint64_t fileBytes = 1'048'576;    ///< a file never grows past this
  std::chrono::seconds fileAge{86'400};   ///< from its first line
  std::size_t files = 5;                  ///< the ones being written included
  std::uint64_t quotaBytes = 20'971'520;  ///< all files together
  std::size_t queueLines = 8'192;         ///< waiting for the logging thread
};

}  // namespace velor::store
