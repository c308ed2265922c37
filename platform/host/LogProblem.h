// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace velor::host {

/// A line of the log of the level error or warning, for people who do not read the log.
struct LogProblem {
  std::uint64_t number = 0;  ///< counts them from 1; 0: there was none yet
  std::string line;
};
/// The latest one, whatever the sink. Any thread.
LogProblem lastLogProblem();

}  // namespace velor::host
