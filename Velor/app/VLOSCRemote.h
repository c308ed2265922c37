// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Velor/osc/VLOSCServerDelegate.h"
#include "kva/MIDI/KVMIDIEndpoint.h"
#include "kvtimecode/SMPTETime.h"

namespace velor {

class VLClock;

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

/// Has the clock commanded by OSC and heard of by OSC. Main queue.
class VLOSCRemote final : public VLOSCServerDelegate {
 public:
  /// The network and discovery must be in force.
  explicit VLOSCRemote(VLClock& clock) : mClock(clock) {}

  /// Looks the targets up, which takes 5 seconds at most, and starts. The exit status
  /// with which to end, and why in `error`; 0 when all is well. `self` is this.
  static int start(const std::shared_ptr<VLOSCRemote>& self, const VLOSCOptions& options,
                   std::string& error);

  /// To be called by the clock's proceed block: the targets hear of every second frame.
  static void proceed(const SMPTETime& time);
  /// To be called by the clock's delegate: a clock that was armed before a play is again.
  void clockDidStopPlaying();

  void play(VLOSCServer& sender) override;
  /// One that stands goes back to where it last started.
  void stop(VLOSCServer& sender) override;
  void gotoPrevMarker() override { tellOfMarkers(); }
  void gotoNextMarker() override { tellOfMarkers(); }
  void addMarker(VLOSCServer&) override { tellOfMarkers(); }
  void setPlayRate(float playRate) override;

 private:
  void tellOfMarkers();

  VLClock& mClock;
  // From a play on, the source that an armed clock followed until then.
  std::optional<std::shared_ptr<KVMIDIEndpoint>> mArmedBefore;
  bool mToldOfMarkers = false;
};

}  // namespace velor
