// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <span>

#include "platform/midi/MIDIService.h"

namespace velor {

/// An implementation of the MIDI service.
struct VLMIDIBackEnd {
  const char* name;
  /// Whether it can be made here; what it serves may come later.
  bool (*available)();
  std::unique_ptr<midi::MIDIService> (*make)();
};

/// All of them, in the order of preference; the last is always available.
std::span<const VLMIDIBackEnd> VLMIDIBackEnds();

/// Makes the first that is available and puts it in force; the owner takes it out
/// of force with it. The host must be there.
class VLMIDIServiceInForce {
 public:
  VLMIDIServiceInForce();
  ~VLMIDIServiceInForce();
  VLMIDIServiceInForce(const VLMIDIServiceInForce&) = delete;
  VLMIDIServiceInForce& operator=(const VLMIDIServiceInForce&) = delete;

 private:
  const std::unique_ptr<midi::MIDIService> mService;
};

}  // namespace velor
