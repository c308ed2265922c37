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
  std::string damage;
  // Without a folder the name alone would mean a file of the working directory.
  if (!mFolders.config().empty()) {
    damage = mDefaults.read([this, &stored](store::KeyedUnarchiver& coder) {
      stored.server = coder.decodeObject<VLOSCServerSettings>(kServerKey);
      stored.clients = coder.decodeString(kClientsKey);
      stored.disablesLoopCheck = coder.decodeBool(kLoopCheckKey).value_or(false);
      mRemainder = coder.remainder();
    });
  }
  if (!damage.empty()) {
    stored = {};
    tell(damage);
  }
  mServerSettings = stored.server;
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
        tellOnMain("cannot read the OSC hosts: " + problem.description());
      } else {
        mRefusedOSCPort.store(stored.server->port);
        tellOnMain("cannot receive OSC at port " + std::to_string(stored.server->port) + ": " +
                   problem.description());
      }
    }
    std::string error;
    if (stored.clients && !dispatcher.loadSettingsFromData(*stored.clients, error)) {
      mDefaults.keepDamaged(error);
      tellOnMain("cannot read the OSC targets: " + error);
    }
  });
}

std::optional<std::uint16_t> VLUserSettings::lostOSCPort() const {
  const std::uint16_t port = mRefusedOSCPort.load();
  if (port == 0 || VLOSCServer::sharedServer().settingsDictionary()->running) {
    return std::nullopt;
  }
  return port;
}

bool VLUserSettings::save() const {
  if (const auto folder = mFolders.createConfig(); !folder) {
    VELOR_LOG_WARNING("%s", folder.error.c_str());
    return false;
  }
  return mDefaults.write([this](store::KeyedArchiver& coder) {
    const auto server = VLOSCServer::sharedServer().settingsDictionary();
    if (mServerSettings != nullptr) {
      server->takeRemainder(*mServerSettings);
    }
    coder.encodeObject(server, kServerKey);
    coder.encodeString(VLOSCClientDispatcher::sharedDispatcher().settingsData(), kClientsKey);
    coder.encodeBool(mDisablesMTCLoopCheck.load(), kLoopCheckKey);
    coder.encodeRemainder(mRemainder);
  });
}

}  // namespace velor
