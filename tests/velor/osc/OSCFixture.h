// SPDX-License-Identifier: MIT
#pragma once

#include <bit>
#include <cstdint>
#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

#include "Velor/clock/VLClock.h"
#include "Velor/osc/VLOSCServer.h"
#include "sim/BuiltinDiscovery.h"
#include "sim/SimulatedUDPNetwork.h"
#include "tests/support/MIDITest.h"

namespace velor {

using Bytes = std::vector<std::uint8_t>;

inline void appendWord(Bytes& bytes, std::uint32_t word) {
  for (int shift = 24; shift >= 0; shift -= 8) {
    bytes.push_back(static_cast<std::uint8_t>(word >> shift));
  }
}

/// A string in OSC 1.0: followed by one to four zeros.
inline void appendText(Bytes& bytes, const std::string& text) {
  bytes.insert(bytes.end(), text.begin(), text.end());
  bytes.resize(bytes.size() + 4 - text.size() % 4);
}

/// A message with these words as arguments; the tag "f" means a float.
inline Bytes oscMessage(const std::string& address, const std::string& tags,
                        const std::vector<std::uint32_t>& arguments) {
  Bytes bytes;
  appendText(bytes, address);
  appendText(bytes, tags);
  for (const std::uint32_t argument : arguments) {
    appendWord(bytes, argument);
  }
  return bytes;
}
inline Bytes oscMessage(const std::string& address, float value) {
  return oscMessage(address, ",f", {std::bit_cast<std::uint32_t>(value)});
}

inline Bytes oscBundle(std::uint64_t timeTag, std::initializer_list<Bytes> elements) {
  Bytes bytes;
  appendText(bytes, "#bundle");
  appendWord(bytes, static_cast<std::uint32_t>(timeTag >> 32U));
  appendWord(bytes, static_cast<std::uint32_t>(timeTag));
  for (const Bytes& element : elements) {
    appendWord(bytes, static_cast<std::uint32_t>(element.size()));
    bytes.insert(bytes.end(), element.begin(), element.end());
  }
  return bytes;
}

/// The list of hosts: "+10.0.0.5" for one that is ticked, "-10.0.0.5" for one that is not.
inline std::vector<std::string> listedHosts() {
  const VLOSCServer& server = VLOSCServer::sharedServer();
  std::vector<std::string> rows;
  for (std::size_t i = 0; i < server.countOfHostFilter(); ++i) {
    const auto entry = server.objectInHostFilterAtIndex(i);
    rows.push_back((entry->enabled() ? "+" : "-") + entry->address());
  }
  return rows;
}

struct RecordingApplication : VLOSCServerDelegate {
  void play(VLOSCServer&) override { calls.emplace_back("play"); }
  void stop(VLOSCServer&) override { calls.emplace_back("stop"); }
  void gotoPrevMarker() override { calls.emplace_back("previous"); }
  void gotoNextMarker() override { calls.emplace_back("next"); }
  void addMarker(VLOSCServer&) override { calls.emplace_back("add"); }
  void setPlayRate(float playRate) override { calls.push_back("rate " + std::to_string(playRate)); }

  std::vector<std::string> take() { return std::exchange(calls, {}); }
  std::vector<std::string> calls;
};

/// The clock of the process on simulated time, and a simulated network.
class OSCFixture : public MIDITest {
 protected:
  OSCFixture() {
    setUDPNetwork(&mNetwork);
    discovery::setService(&mDiscovery);
  }
  ~OSCFixture() override {
    KVSharedInstances::clear();
    mHost.settle();  // jobs on the main queue may hold a socket
    discovery::setService(nullptr);
    setUDPNetwork(nullptr);
  }

  /// Delivers a datagram to this port and runs all that follows from it.
  void arrive(const std::string& host, std::uint16_t port, const Bytes& data) {
    mNetwork.arrive(*SocketAddress::fromText(host, 50'000), SocketAddress::wildcard(AF_INET, port),
                    data);
    mHost.settle();
  }

  SimulatedUDPNetwork mNetwork;
  discovery::BuiltinDiscovery mDiscovery;
};

}  // namespace velor
