// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace velor::discovery {

/// Why a service was not published, found or resolved.
struct NSNetServicesError {
  static constexpr int kUnknown = -72000;             ///< the network refuses
  static constexpr int kActivityInProgress = -72003;  ///< an earlier operation is under way
  static constexpr int kBadArgument = -72004;         ///< bad form of name or type
  static constexpr int kTimeout = -72007;             ///< not within the given time

  int code = 0;
  std::string text;  ///< for people
};

}  // namespace velor::discovery
