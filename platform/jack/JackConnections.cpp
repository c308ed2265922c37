// SPDX-License-Identifier: MIT
#include "platform/jack/JackConnections.h"

#include <cerrno>
#include <utility>

#include "platform/host/Log.h"

namespace velor::jack {
namespace {

// A port that is there again so soon (ns) is the same one to others: its unit was made
// again, for another device or rate.
constexpr std::uint64_t kRenewalTime = 10'000'000'000;

void noteLost(JackPort& port) {
  port.lost.merge(port.connections);
  port.connections.clear();
  port.peerRefused = false;
}

}  // namespace

void JackConnections::open(std::shared_ptr<const JackLibrary> library, jack_client_t* client) {
  mLibrary = std::move(library);
  mClient = client;
}

void JackConnections::close(const std::vector<JackPort*>& ports) {
  for (JackPort* port : ports) {
    noteLost(*port);
  }
  mClient = nullptr;
}

bool JackConnections::portRegistered(JackPort& port) {
  const auto parted = mParted.extract(port.name);
  if (!parted.empty() && mHost.AudioGetCurrentHostTime() - parted.mapped().time < kRenewalTime) {
    port.lost.merge(parted.mapped().connections);
  }
  return restoreLost(port);
}

void JackConnections::portGoes(JackPort& port) {
  look(port);
  mParted[port.name] = {port.connections, mHost.AudioGetCurrentHostTime()};
  noteLost(port);
}

bool JackConnections::connectPeer(JackPort& port) {
  if (port.port == nullptr || port.peer.empty() ||
      mLibrary->jack_port_by_name(mClient, port.peer.c_str()) == nullptr) {
    return false;
  }
  const bool isConnected = connect(port, port.peer);
  if (!isConnected && !port.peerRefused) {
    VELOR_LOG_WARNING("cannot connect %s to %s yet; will try again", port.name.c_str(),
                      port.peer.c_str());
  }
  port.peerRefused = !isConnected;
  return isConnected;
}

void JackConnections::disconnectPeer(JackPort& port) {
  if (port.port != nullptr) {
    const char* own = mLibrary->jack_port_name(port.port);
    mLibrary->jack_disconnect(mClient, port.isOutput ? own : port.peer.c_str(),
                              port.isOutput ? port.peer.c_str() : own);
    mCycles.noteGraphChange();
  }
  port.peer.clear();
  port.peerRefused = false;
}

bool JackConnections::restore(JackPort& port) {
  const bool isRestored = restoreLost(port);
  return (!port.peerRefused || connectPeer(port)) && isRestored;
}

bool JackConnections::restoreLost(JackPort& port) {
  bool isRefused = false;
  std::erase_if(port.lost, [this, &port, &isRefused](const std::string& other) {
    if (mLibrary->jack_port_by_name(mClient, other.c_str()) == nullptr) {
      return false;  // its registration will be reported
    }
    const bool isConnected = connect(port, other);
    isRefused = isRefused || !isConnected;
    return isConnected;
  });
  return !isRefused;
}

void JackConnections::look(JackPort& port) {
  port.connections.clear();
  const char** names = mLibrary->jack_port_get_all_connections(mClient, port.port);
  for (const char** name = names; name != nullptr && *name != nullptr; ++name) {
    if (*name != port.peer) {  // which is connected in any case
      port.connections.insert(*name);
    }
  }
  mLibrary->jack_free(names);
}

bool JackConnections::connect(const JackPort& port, const std::string& other) {
  const char* own = mLibrary->jack_port_name(port.port);
  const char* from = port.isOutput ? own : other.c_str();
  const char* to = port.isOutput ? other.c_str() : own;
  const int status = mLibrary->jack_connect(mClient, from, to);
  mCycles.noteGraphChange();
  return status == 0 || status == EEXIST;
}

}  // namespace velor::jack
