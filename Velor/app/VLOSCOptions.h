// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/Error.h"

namespace velor {

/// The OSC options of the command line, checked.
struct VLOSCOptions {
  /// A host by name or address, and a port.
  using Target = std::pair<std::string, std::uint16_t>;

  std::optional<std::uint16_t> port;
  std::vector<std::string> allow;  ///< addresses, as sockets give them
  std::vector<Target> targets;
  std::vector<std::string> forgetHosts;  ///< addresses, likewise
  std::vector<Target> forgetTargets;
  /// Whether port, hosts and targets are saved for later runs. What is forgotten stays
  /// forgotten in any case.
  bool keep = true;

  bool isWanted() const { return port.has_value() || !targets.empty(); }
};

/// Reads "HOST:PORT", with an IPv6 address in brackets.
Expected<VLOSCOptions::Target> VLOSCTargetFromText(const std::string& text);

/// Reads an address, and gives it as sockets do.
Expected<std::string> VLHostAddressFromText(const std::string& text);

/// Adds a host by "ADDRESS", or a target by "HOST:PORT", to what `options` forgets.
Expected<> VLOSCForgetFromText(const std::string& text, VLOSCOptions& options);

/// Takes a text for people.
using VLOSCReport = std::function<void(const std::string& problem)>;

/// Changes the lists of the server and the dispatcher as the options ask, when the main
/// queue comes to it: the saved lists, which are on their way there, come first. A problem
/// is reported on the main queue, an unknown name as soon as that is known; all else goes
/// on. Main queue.
void VLOSCApply(const VLOSCOptions& options, const VLOSCReport& report);

}  // namespace velor
