// SPDX-License-Identifier: MIT
#include "Velor/app/VLMediaWindows.h"

#include <sys/utsname.h>

#include <algorithm>
#include <exception>
#include <fstream>
#include <string>

#include "Kv-Appkit/KVAnnouncement.h"
#include "Velor/app/VLAlerts.h"
#include "Velor/app/VLAppDelegate.h"
#include "Velor/app/VLMainWindowOutlet.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/media/VLMediaBookmark.h"
#include "platform/host/Log.h"
#include "platform/media/MediaService.h"

namespace velor {
namespace {

static_assert(VLMediaPlaybackMTCIn::kUniqueID == VLDeviceManager::kMediaPlaybackUniqueID,
              "the manager switches the input on when it appears");

constexpr const char* kStates = "encodedStates";

std::string missingPackages() {
  std::string missing;
  if (media::MediaService* const service = media::service()) {
    for (const std::string& package : service->missingPackages()) {
      missing += (missing.empty() ? "" : ", ") + package;
    }
  }
  return missing.empty() ? "GStreamer" : missing;
}

// As os-release(5) has it, "Debian GNU/Linux 12 (bookworm)"; else that of the kernel.
std::string systemName() {
  static constexpr std::string_view kKey = "PRETTY_NAME=";
  std::ifstream file("/etc/os-release");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with(kKey)) {
      line.erase(0, kKey.size());
      std::erase(line, '"');
      return line;
    }
  }
  utsname kernel{};
  ::uname(&kernel);
  return std::string(kernel.sysname) + " " + kernel.release;
}

}  // namespace

bool VLMediaWindows::canHaveMediaPlaybackFeature() {
  return media::service() != nullptr && media::service()->missingPackages().empty();
}

VLAlert VLMediaWindows::unavailable() {
  return VLAlerts::featureNotAvailable(missingPackages(), systemName());
}

void VLMediaWindows::show(const Window& window) {
  if (auto outlet = mMainWindow.makeMediaPlaybackWindow(window)) {
    window->setOutlet(std::move(outlet));
  }
  const KVAnnouncement announcement(*this, kStates);
  mPlaybackWindows.push_back(window);
  window->showWindow();
}

void VLMediaWindows::newPlaybackWindow() {
  if (!canHaveMediaPlaybackFeature()) {
    mMainWindow.presentAlert(unavailable(), [](bool /*isDefault*/) {});
    return;
  }
  show(VLMediaPlaybackWindowController::initWithDelegate(weak_from_this()));
}

VLMediaWindows::Window VLMediaWindows::open(const std::filesystem::path& clip,
                                            const SMPTETime& start, bool isSaved) {
  auto state = std::make_shared<VLMediaPlaybackWindowState>();
  state->bookmark = VLMediaBookmark::of(clip, {}).data();
  state->startTime = KVSMPTETime::smpteTimeWithTime(start);
  auto window = VLMediaPlaybackWindowController::initWithEncodedState(state, {}, weak_from_this());
  if (!isSaved) {
    mNotSaved.insert(window.get());
  }
  show(window);
  return window;
}

// --- documents

void VLMediaWindows::prepareFor(const std::vector<State>& states) {
  if (!states.empty() && canHaveMediaPlaybackFeature()) {
    VLMediaPlaybackWindowController::createMediaPlaybackMTCIn();
  }
}

void VLMediaWindows::restore(const std::vector<State>& states,
                             const std::filesystem::path& folder) {
  mNotRestored.clear();
  if (states.empty()) {
    return;
  }
  if (!canHaveMediaPlaybackFeature()) {
    VELOR_LOG_WARNING("media windows are kept but not opened: %s is not installed",
                      missingPackages().c_str());
    mNotRestored = states;
    std::erase(mNotRestored, nullptr);
    return;
  }
  try {
    for (const State& state : states) {
      show(VLMediaPlaybackWindowController::initWithEncodedState(state, folder, weak_from_this()));
    }
  } catch (const std::exception& exception) {
    VELOR_LOG_ERROR("exception decoding media playback windows: %s", exception.what());
  }
  mMainWindow.makeKeyAndOrderFront();
}

std::vector<VLMediaWindows::State> VLMediaWindows::encodedStates(
    const std::filesystem::path& folder) const {
  std::vector<State> states;
  for (const Window& window : mPlaybackWindows) {
    if (window->isVisible() && !mNotSaved.contains(window.get())) {
      states.push_back(window->encodedState(folder));
    }
  }
  states.insert(states.end(), mNotRestored.begin(), mNotRestored.end());
  return states;
}

// --- from the windows

void VLMediaWindows::play(VLMediaPlaybackWindowController& /*sender*/) {
  mApp.play();
}

void VLMediaWindows::stop(VLMediaPlaybackWindowController& /*sender*/) {
  mApp.stop();
}

void VLMediaWindows::setCurrentSMPTETime(const SMPTETime& time) {
  mApp.setCurrentSMPTETime(time);
}

void VLMediaWindows::mediaPlaybackWindowDidChange(VLMediaPlaybackWindowController& /*window*/) {
  const KVAnnouncement announcement(*this, kStates);
}

void VLMediaWindows::mediaPlaybackWindowDidClose(VLMediaPlaybackWindowController& window) {
  const KVAnnouncement announcement(*this, kStates);
  mNotSaved.erase(&window);
  std::erase_if(mPlaybackWindows, [&window](const Window& open) { return open.get() == &window; });
}

}  // namespace velor
