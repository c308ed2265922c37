// SPDX-License-Identifier: MIT
#pragma once

#include <jack/jack.h>

#include <set>
#include <string>

namespace velor::jack {

/// One port of ours, which outlasts its server. All of it belongs to the client's queue; a
/// process callback may read `port` while it is registered.
struct JackPort {
  std::string name;  ///< as wanted, of any length and with any characters
  const char* type = JACK_DEFAULT_AUDIO_TYPE;
  bool isOutput = false;
  std::string peer;             ///< full name of the port to be connected to, or empty
  jack_port_t* port = nullptr;  ///< the client's; null while it is not registered
  /// The peer is there, and the server refused to connect it, as it does for a port of a
  /// client that is not active. Kept by JackConnections.
  bool peerRefused = false;
  /// Other ports by full name: those that were connected at the last look, and those that
  /// were when the port went and have not been connected again. Kept by JackConnections.
  std::set<std::string> connections;
  std::set<std::string> lost;
};

}  // namespace velor::jack
