// SPDX-License-Identifier: MIT
#include "Velor/app/VLMIDIServiceInForce.h"

#include <algorithm>
#include <array>

#include "platform/midi/builtin/MIDIObjectTable.h"
#include "platform/midi/jack/JackMIDI.h"

namespace velor {
namespace {

struct BackEnd {
  const char* name;
  // Whether it can be made here; what it serves may come later.
  bool (*available)();
  std::unique_ptr<midi::MIDIService> (*make)();
};

// In the order of preference; the last is always available.
constexpr std::array<BackEnd, 2> kMIDIBackEnds = {{
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

VLMIDIServiceInForce::VLMIDIServiceInForce()
    : mService(std::find_if(kMIDIBackEnds.begin(), kMIDIBackEnds.end(), [](const BackEnd& each) {
                 return each.available();
               })->make()) {
  midi::setService(mService.get());
}

VLMIDIServiceInForce::~VLMIDIServiceInForce() {
  midi::setService(nullptr);
}

}  // namespace velor
