// SPDX-License-Identifier: MIT
#include "Velor/program/VLCurrentServices.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVShared.h"
#include "platform/audio/AudioService.h"
#include "platform/audio/builtin/BuiltinAudio.h"
#include "platform/audio/jack/JackAudio.h"
#include "platform/host/Host.h"
#include "platform/jack/JackClient.h"
#include "platform/media/gstreamer/GStreamerMedia.h"
#include "platform/midi/builtin/MIDIObjectTable.h"
#include "platform/midi/jack/JackMIDI.h"

namespace velor {
namespace {

using Services = VLCurrentServices::Services;

struct BackEnd {
  // Whether it can be made here; what it serves may come later.
  bool (*available)();
  Services (*make)();
};

// `server` may be null. The devices within the process are there in any case.
std::unique_ptr<audio::AudioService> makeAudio(std::unique_ptr<audio::AudioOutside> server) {
  std::vector<std::unique_ptr<audio::AudioOutside>> outsides;
  if (server != nullptr) {
    outsides.push_back(std::move(server));
  }
  outsides.push_back(std::make_unique<audio::BuiltinAudio>());
  return std::make_unique<audio::AudioService>(std::move(outsides));
}

// All services of a server share one client of it.
Services makeJack() {
  const auto client = std::make_shared<jack::JackClient>();
  Services services;
  services.midi = std::make_unique<midi::MIDIObjectTable>(std::make_unique<midi::JackMIDI>(client));
  services.audio = makeAudio(std::make_unique<audio::JackAudio>(client));
  return services;
}

Services makeBuiltin() {
  Services services;
  services.midi = std::make_unique<midi::MIDIObjectTable>(nullptr);
  services.audio = makeAudio(nullptr);
  return services;
}

// In the order of preference; the last is always available.
constexpr std::array<BackEnd, 2> kBackEnds = {{
    {&jack::JackClient::available, &makeJack},
    {[] { return true; }, &makeBuiltin},
}};

}  // namespace

VLCurrentServices::VLCurrentServices(Outside outside)
    : mServices(outside == Outside::none
                    ? makeBuiltin()
                    : std::find_if(kBackEnds.begin(), kBackEnds.end(),
                                   [](const BackEnd& each) { return each.available(); })
                          ->make()),
      mMedia(std::make_unique<media::GStreamerMedia>()) {
  midi::setService(mServices.midi.get());
  audio::setService(mServices.audio.get());
  media::setService(mMedia.get());
}

VLCurrentServices::~VLCurrentServices() {
  KVSharedInstances::clear();
  host::current().mainQueue().drainPending();  // what waits there may hold a socket
  media::setService(nullptr);
  audio::setService(nullptr);
  midi::setService(nullptr);
}

}  // namespace velor
