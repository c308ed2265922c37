// SPDX-License-Identifier: MIT
#pragma once

#include <jack/jack.h>

#include <set>
#include <string>

namespace velor::jack {

/// One port of ours, whatever servers come and go. All of it belongs to the
/// client's queue; a process callback may read `port` of what is registered.
struct JackPort {
  std::string name;  ///< as wanted, of any length and with any characters
  const char* type = JACK_DEFAULT_AUDIO_TYPE;
  bool isOutput = false;
  std::string peer;             ///< full name of the port to be connected to, or empty
  jack_port_t* port = nullptr;  ///< the client's; null while it is not registered
  /// The client's note that the peer is there and could not be connected as yet, as
  /// happens with a port of a client that is not active.
  bool peerRefused = false;
  /// The client's note of what is connected to it, by full names: at the last look,
  /// and when the port went, as far as it was not made again since.
  std::set<std::string> connections;
  std::set<std::string> lost;
};

}  // namespace velor::jack
