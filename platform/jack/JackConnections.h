// SPDX-License-Identifier: MIT
#pragma once

#include <jack/jack.h>

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/host/Host.h"
#include "platform/jack/JackCycles.h"
#include "platform/jack/JackLibrary.h"
#include "platform/jack/JackPort.h"

namespace velor::jack {

/// The connections of our ports. It remembers those that other programs made and restores
/// them when both ends are back: after a server's death, or when our own port was
/// unregistered for a moment. A connection that somebody has removed stays removed. All on
/// the client's queue.
class JackConnections {
 public:
  JackConnections(host::Host& host, JackCycles& cycles) : mHost(host), mCycles(cycles) {}

  /// A server is there.
  void open(std::shared_ptr<const JackLibrary> library, jack_client_t* client);
  /// The client has closed: what was connected to the ports is lost until it is restored.
  void close(const std::vector<JackPort*>& ports);

  /// The port was registered. It gets the connections that a port of its name had until a
  /// moment ago. False when the server refuses one whose other end is there.
  bool portRegistered(JackPort& port);
  /// The port is about to be unregistered.
  void portGoes(JackPort& port);

  /// Connects the port to its peer if both are there; true when they are connected then. A
  /// refusal is noted in the port.
  bool connectPeer(JackPort& port);
  /// Disconnects the port from its peer; it has none any more.
  void disconnectPeer(JackPort& port);
  /// Restores the lost connections of the port, and one to a peer that was refused, if their
  /// other ends are there. False when the server refuses one of them.
  bool restore(JackPort& port);
  /// Notes which ports are connected to the port now.
  void look(JackPort& port);

 private:
  bool connect(const JackPort& port, const std::string& other);
  bool restoreLost(JackPort& port);

  struct Parted {
    std::set<std::string> connections;
    std::uint64_t time = 0;
  };

  host::Host& mHost;
  JackCycles& mCycles;
  std::shared_ptr<const JackLibrary> mLibrary;
  jack_client_t* mClient = nullptr;
  std::map<std::string, Parted> mParted;  // by the names of ports that were unregistered
};

}  // namespace velor::jack
