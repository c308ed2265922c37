// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVShared.h"
#include "Velor/app/VLAppDelegate.h"
#include "bench/TickErrors.h"
#include "platform/audio/AudioService.h"
#include "platform/audio/builtin/BuiltinAudio.h"
#include "platform/host/Log.h"
#include "platform/midi/MIDIService.h"
#include "platform/midi/builtin/MIDIObjectTable.h"
#include "sim/BuiltinDiscovery.h"
#include "sim/SimulatedUDPNetwork.h"
#include "tests/support/TemporaryFolder.h"

namespace velor {

/// What an application stands on, all inside the process but for time and a folder.
class AppWorld {
 public:
  AppWorld() {
    host::setLogSink([](host::LogLevel, std::string_view) {});
    midi::setService(&mMIDI);
    std::vector<std::unique_ptr<audio::AudioOutside>> outsides;
    outsides.push_back(std::make_unique<audio::BuiltinAudio>());
    mAudio = std::make_unique<audio::AudioService>(std::move(outsides));
    audio::setService(mAudio.get());
    setUDPNetwork(&mNetwork);
    discovery::setService(&mDiscovery);
  }
  /// After the application.
  ~AppWorld() {
    KVSharedInstances::clear();
    discovery::setService(nullptr);
    setUDPNetwork(nullptr);
    mAudio.reset();
    audio::setService(nullptr);
    midi::setService(nullptr);
  }
  AppWorld(const AppWorld&) = delete;
  AppWorld& operator=(const AppWorld&) = delete;

  WatchedHost& host() { return mHost; }
  const test::TemporaryFolder& folder() const { return mFolder; }
  store::ApplicationFolders folders() const {
    return store::ApplicationFolders([home = mFolder.path().string()](const char* name) {
      return std::string_view(name) == "HOME" ? home.c_str() : nullptr;
    });
  }

 private:
  WatchedHost mHost;
  midi::MIDIObjectTable mMIDI{nullptr};
  std::unique_ptr<audio::AudioService> mAudio;
  SimulatedUDPNetwork mNetwork;
  discovery::BuiltinDiscovery mDiscovery;
  const test::TemporaryFolder mFolder;
};

}  // namespace velor
