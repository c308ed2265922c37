// SPDX-License-Identifier: MIT
#pragma once

#include <string>

namespace velor::discovery {

/// Why a service was not published, found or resolved.
struct NSNetServicesError {
  static constexpr int kCollision = -72001;  ///< another service has the name
  static constexpr int kUnknown = -72000;    ///< the network refuses
  static constexpr int kActivityInProgress =
      -72003;                                  ///< publishing, resolving or searching already
  static constexpr int kBadArgument = -72004;  ///< bad form of name or type
  static constexpr int kTimeout = -72007;      ///< not within the given time

  int code = 0;
  std::string text;  ///< for people
};

}  // namespace velor::discovery
