// SPDX-License-Identifier: MIT
#include "Velor/app/VLMIDIServiceInForce.h"

#include <algorithm>
#include <array>

#include "platform/midi/builtin/MIDIObjectTable.h"
#include "platform/midi/jack/JackMIDI.h"

namespace velor {
namespace {

constexpr std::array<VLMIDIBackEnd, 2> kMIDIBackEnds = {{
    {"jack", &midi::JackMIDI::available,
     []() -> std::unique_ptr<midi::MIDIService> {
       return std::make_unique<midi::MIDIObjectTable>(std::make_unique<midi::JackMIDI>());
     }},
    {"builtin", [] { return true; },
     []() -> std::unique_ptr<midi::MIDIService> {
       return std::make_unique<midi::MIDIObjectTable>(nullptr);
     }},
}};

}  // namespace

std::span<const VLMIDIBackEnd> VLMIDIBackEnds() {
  return kMIDIBackEnds;
}

VLMIDIServiceInForce::VLMIDIServiceInForce()
    : mService(
          std::find_if(kMIDIBackEnds.begin(), kMIDIBackEnds.end(), [](const VLMIDIBackEnd& each) {
            return each.available();
          })->make()) {
  midi::setService(mService.get());
}

VLMIDIServiceInForce::~VLMIDIServiceInForce() {
  midi::setService(nullptr);
}

}  // namespace velor
