// SPDX-License-Identifier: MIT
#include "Velor/app/VLUserSettings.h"

#include <array>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "CocoaAsyncSocket/GCDAsyncUdpSocketError.h"
#include "Velor/osc/VLOSCClientDispatcher.h"
#include "Velor/osc/VLOSCServer.h"
#include "Velor/osc/VLOSCServerSettings.h"
#include "platform/host/Host.h"
#include "platform/host/Log.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {
namespace {

constexpr std::string_view kServerKey = "osc.server.settings";
constexpr std::string_view kClientsKey = "osc.client.settings";
constexpr std::string_view kLoopCheckKey = "mtcLoopCheck.disable";

constexpr std::array<store::KeyedClass, 1> kClasses{store::KeyedClass::of<VLOSCServerSettings>()};

// What the file holds.
struct Stored {
  std::shared_ptr<VLOSCServerSettings> server;
  std::optional<std::string> clients;
  bool disablesLoopCheck = false;
};

}  // namespace

VLUserSettings::VLUserSettings(store::ApplicationFolders folders)
    : mFolders(std::move(folders)), mDefaults(mFolders.config() / "settings.json", kClasses) {}

void VLUserSettings::load(host::Queue& background,
                          std::function<void(const std::string& error)> tell) {
  Stored stored;
  const bool isRead = mDefaults.read([&stored](store::KeyedUnarchiver& coder) {
    stored.server = coder.decodeObject<VLOSCServerSettings>(kServerKey);
    stored.clients = coder.decodeString(kClientsKey);
    stored.disablesLoopCheck = coder.decodeBool(kLoopCheckKey).value_or(false);
  });
  if (!isRead) {
    stored = {};
  }
  mDisablesMTCLoopCheck.store(stored.disablesLoopCheck);
  // The first call of these is the main thread's.
  VLOSCServer& server = VLOSCServer::sharedServer();
  VLOSCClientDispatcher& dispatcher = VLOSCClientDispatcher::sharedDispatcher();
  background.async([this, stored, &server, &dispatcher, tell = std::move(tell)] {
    const auto tellOnMain = [&tell](const std::string& error) {
      host::current().mainQueue().async([tell, error] { tell(error); });
    };
    GCDAsyncUdpSocketError problem;
    if (stored.server != nullptr && !server.loadSettingsDictionary(*stored.server, &problem)) {
      if (problem.domain == kGCDAsyncUdpSocketErrorDomain &&
          problem.code == kGCDAsyncUdpSocketOtherError) {
        mDefaults.keepDamaged(problem.description());
      }
      tellOnMain("OSC cannot be received: " + problem.description());
    }
    std::string error;
    if (stored.clients && !dispatcher.loadSettingsFromData(*stored.clients, error)) {
      mDefaults.keepDamaged(error);
      tellOnMain("The OSC targets cannot be read: " + error);
    }
  });
}

bool VLUserSettings::save() const {
  if (const auto folder = mFolders.createConfig(); !folder) {
    VELOR_LOG_WARNING("%s", folder.error.c_str());
    return false;
  }
  return mDefaults.write([this](store::KeyedArchiver& coder) {
    coder.encodeObject(VLOSCServer::sharedServer().settingsDictionary(), kServerKey);
    coder.encodeString(VLOSCClientDispatcher::sharedDispatcher().settingsData(), kClientsKey);
    coder.encodeBool(mDisablesMTCLoopCheck.load(), kLoopCheckKey);
  });
}

}  // namespace velor
