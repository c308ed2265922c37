// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
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

/// Takes a text for people.
using VLOSCTell = std::function<void(const std::string& problem)>;

/// Adds what is asked for to the server and the dispatcher, where it is not there yet. A port
/// that cannot be used is told at once, a target whose name nobody knows when that is found
/// out, on the main queue; all else goes on. Main queue.
void VLOSCApply(const VLOSCOptions& options, const VLOSCTell& tell);

}  // namespace velor
