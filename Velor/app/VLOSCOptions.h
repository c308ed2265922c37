// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace velor {

/// What the command line asks for of OSC, checked.
struct VLOSCOptions {
  /// A host by name or address, and a port.
  using Target = std::pair<std::string, std::uint16_t>;

  std::optional<std::uint16_t> port;
  std::vector<std::string> allow;  // addresses, as sockets give them
  std::vector<Target> targets;

  bool isWanted() const { return port.has_value() || !targets.empty(); }
};

/// Reads "HOST:PORT", with an IPv6 address in brackets. On failure none, and why in
/// `error`.
std::optional<VLOSCOptions::Target> VLOSCTargetFromText(const std::string& text,
                                                        std::string& error);

/// Reads an address as sockets give it. On failure none, and why in `error`.
std::optional<std::string> VLHostAddressFromText(const std::string& text, std::string& error);

/// Adds what is asked for to the server and the dispatcher, where it is not there yet.
/// Looks the targets up, which takes 5 seconds at most. The exit status with which to
/// end, and why in `error`; 0 when all is well. Main queue.
int VLOSCApply(const VLOSCOptions& options, std::string& error);

}  // namespace velor
