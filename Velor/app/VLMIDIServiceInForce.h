// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "platform/midi/MIDIService.h"

namespace velor {

/// Makes the MIDI service that is preferred of those that are available here, and puts it in force;
/// the owner takes it out of force with it. The host must be there.
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
