// SPDX-License-Identifier: MIT
#include "Velor/app/VLUserSettings.h"

#include <algorithm>
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

constexpr std::string_view kWindowPlacesKey = "windows.places";

constexpr std::array<store::KeyedClass, 2> kClasses{store::KeyedClass::of<VLOSCServerSettings>(),
                                                    store::KeyedClass::of<VLWindowPlace>()};

// The contents of the file.
struct Stored {
  std::shared_ptr<VLOSCServerSettings> server;
  std::optional<std::string> clients;
  bool disablesLoopCheck = false;
  std::vector<std::shared_ptr<VLWindowPlace>> windowPlaces;
  store::KeyedRemainder remainder;
};

}  // namespace

VLUserSettings::VLUserSettings(store::ApplicationFolders folders)
    : mFolders(std::move(folders)), mDefaults(mFolders.config() / "settings.json", kClasses) {}

void VLUserSettings::load(host::Queue& background, std::function<void(const Error&)> tell) {
  Stored stored;
  Expected<> read;
  // Without a folder the name alone would mean a file of the working directory.
  if (!mFolders.config().empty()) {
    read = mDefaults.read([&stored](store::KeyedUnarchiver& coder) {
      stored.server = coder.decodeObject<VLOSCServerSettings>(kServerKey);
      stored.clients = coder.decodeString(kClientsKey);
      stored.disablesLoopCheck = coder.decodeBool(kLoopCheckKey).value_or(false);
      stored.windowPlaces = coder.decodeArray<VLWindowPlace>(kWindowPlacesKey)
                                .value_or(decltype(stored.windowPlaces)());
      std::erase(stored.windowPlaces, nullptr);
      stored.remainder = coder.remainder();
    });
  }
  if (!read) {
    stored = {};
    tell(read.error());
  }
  mRemainder = stored.remainder;
  mServerSettings = stored.server;
  mWindowPlaces = stored.windowPlaces;
  mDisablesMTCLoopCheck.store(stored.disablesLoopCheck);
  // The first call of these is the main thread's.
  VLOSCServer& server = VLOSCServer::sharedServer();
  VLOSCClientDispatcher& dispatcher = VLOSCClientDispatcher::sharedDispatcher();
  background.async([this, stored, &server, &dispatcher, tell = std::move(tell)] {
    const auto tellOnMain = [&tell](std::string text) {
      host::current().mainQueue().async([tell, error = Error{std::move(text)}] { tell(error); });
    };
    const auto restored = stored.server != nullptr ? server.loadSettingsDictionary(*stored.server)
                                                   : GCDAsyncUdpSocketResult();
    if (!restored) {
      const GCDAsyncUdpSocketError& problem = restored.error();
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
    const auto loaded =
        stored.clients ? dispatcher.loadSettingsFromData(*stored.clients) : Expected<>();
    if (!loaded) {
      mDefaults.keepDamaged(loaded.error().text);
      tellOnMain("cannot read the OSC targets: " + loaded.error().text);
    }
  });
}

std::optional<std::uint16_t> VLUserSettings::lostOSCPort() const {
  const std::uint16_t port = mRefusedOSCPort.load();
  const auto server = VLOSCServer::sharedServer().settingsDictionary();
  if (port == 0 || (server && (*server)->running)) {
    return std::nullopt;
  }
  return port;
}

bool VLUserSettings::save() const {
  const auto written = mFolders.createConfig().and_then([this](const auto&) {
    return mDefaults.write([this](store::KeyedArchiver& coder) { encode(coder); });
  });
  if (!written) {
    VELOR_LOG_WARNING("cannot save the settings: %s", written.error().text.c_str());
  }
  return written.has_value();
}

const std::vector<std::uint8_t>& VLUserSettings::windowPlace(const std::string& name) const {
  static const std::vector<std::uint8_t> kNone;
  const auto found =
      std::ranges::find(mWindowPlaces, name, [](const auto& each) { return each->name(); });
  return found == mWindowPlaces.end() ? kNone : (*found)->place();
}

void VLUserSettings::setWindowPlace(const std::string& name, std::vector<std::uint8_t> place) {
  std::erase_if(mWindowPlaces, [&name](const auto& each) { return each->name() == name; });
  mWindowPlaces.push_back(std::make_shared<VLWindowPlace>(name, std::move(place)));
}

void VLUserSettings::encode(store::KeyedArchiver& coder) const {
  const auto server = VLOSCServer::sharedServer().settingsDictionary();
  if (!server) {
    coder.refuse(kServerKey, server.error().text);
    return;
  }
  if (mServerSettings != nullptr) {
    (*server)->takeRemainder(*mServerSettings);
  }
  coder.encodeObject(*server, kServerKey);
  const auto clients = VLOSCClientDispatcher::sharedDispatcher().settingsData();
  if (!clients) {
    coder.refuse(kClientsKey, clients.error().text);
    return;
  }
  coder.encodeString(*clients, kClientsKey);
  coder.encodeBool(mDisablesMTCLoopCheck.load(), kLoopCheckKey);
  coder.encodeArray(mWindowPlaces, kWindowPlacesKey);
  coder.encodeRemainder(mRemainder);
}

}  // namespace velor
