// SPDX-License-Identifier: MIT
#include "Velor/app/VLServicesInForce.h"

#include <algorithm>
#include <array>

#include "platform/jack/JackClient.h"
#include "platform/midi/builtin/MIDIObjectTable.h"
#include "platform/midi/jack/JackMIDI.h"

namespace velor {
namespace {

using Services = VLServicesInForce::Services;

struct BackEnd {
  // Whether it can be made here; what it serves may come later.
  bool (*available)();
  Services (*make)();
};

// All services of a server share one client of it.
Services makeJack() {
  const auto client = std::make_shared<jack::JackClient>();
  return {std::make_unique<midi::MIDIObjectTable>(std::make_unique<midi::JackMIDI>(client))};
}

Services makeBuiltin() {
  return {std::make_unique<midi::MIDIObjectTable>(nullptr)};
}

// In the order of preference; the last is always available.
constexpr std::array<BackEnd, 2> kBackEnds = {{
    {&jack::JackClient::available, &makeJack},
    {[] { return true; }, &makeBuiltin},
}};

}  // namespace

VLServicesInForce::VLServicesInForce()
    : mServices(std::find_if(kBackEnds.begin(), kBackEnds.end(), [](const BackEnd& each) {
                  return each.available();
                })->make()) {
  midi::setService(mServices.midi.get());
}

VLServicesInForce::~VLServicesInForce() {
  midi::setService(nullptr);
}

}  // namespace velor
