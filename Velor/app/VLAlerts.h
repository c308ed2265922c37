// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Velor/app/VLAlert.h"

namespace velor {

/// The questions of the application, in the words that the user reads.
struct VLAlerts {
  /// The source sends another format than that of the clock; both by name.
  static VLAlert wrongFormat(const std::string& source, const std::string& received,
                             const std::string& current);
  /// MTC sent to the destination returns by the source.
  static VLAlert mtcLoop(const std::string& source, const std::string& destination);
  static VLAlert devicesAreRunning();
  /// A notice: what is missing, and the name of the system, with its version.
  static VLAlert featureNotAvailable(const std::string& missing, const std::string& system);
};

}  // namespace velor
