// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Velor/app/VLAppDelegate.h"
#include "Velor/app/VLTimecodeValues.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "sim/BuiltinDiscovery.h"
#include "sim/SimulatedMedia.h"
#include "sim/SimulatedUDPNetwork.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/velor/devices/LoopbackFixture.h"
#include "tests/velor/mtc/MTCOnWire.h"

namespace velor {

inline SMPTETime timeOf(const std::string& text, std::uint32_t format = kSMPTETimeType25) {
  SMPTETime time{};
  EXPECT_TRUE(parseSmpteTime(text, time, format)) << text;
  return time;
}

/// Keeps what it is told to show, and the questions until a test answers them.
class RecordingWindow final : public VLMainWindowOutlet {
 public:
  explicit RecordingWindow(std::vector<std::string>& calls) : mCalls(calls) {}

  void setStartImage(const Image& image) override { note("start", image); }
  void setStopImage(const Image& image) override { note("stop", image); }
  void setArmImage(const Image& image, bool on) override { note(on ? "arm on" : "arm off", image); }
  void showWindowForDevice(const std::shared_ptr<VLDevice>& device) override {
    mCalls.push_back("window of " + device->name().value_or("?"));
  }
  bool isControlKeyHeld() const override { return controlKey; }
  void presentAlert(const VLAlert& alert, VLAlert::Answer answer) override {
    alerts.emplace_back(alert, std::move(answer));
  }
  void presentError(const std::string& text) override { errors.push_back(text); }
  void beginSavePanel(std::string_view fileType, FileChosen chosen) override {
    EXPECT_EQ(fileType, "velor");
    chosen(panelAnswer);
  }
  void beginOpenPanel(std::string_view fileType, FileChosen chosen) override {
    beginSavePanel(fileType, std::move(chosen));
  }
  void replyToApplicationShouldTerminate(bool terminate) override { reply = terminate; }

  /// The one question that waits.
  VLAlert answer(bool isDefault) {
    EXPECT_EQ(alerts.size(), 1U);
    if (alerts.empty()) {
      return {};
    }
    auto [alert, toAnswer] = std::exchange(alerts, {}).front();
    toAnswer(isDefault);
    return alert;
  }

  std::vector<std::pair<VLAlert, VLAlert::Answer>> alerts;
  std::vector<std::string> errors;
  std::filesystem::path panelAnswer;
  std::optional<bool> reply;
  bool controlKey = false;

 private:
  void note(const std::string& button, const Image& image) {
    constexpr const char* kTints[] = {"", " black", " green", " red", " blue"};
    mCalls.push_back(button + " " + std::string(image.name) +
                     kTints[static_cast<std::size_t>(image.tint)]);
  }

  std::vector<std::string>& mCalls;
};

/// The application on simulated time: MIDI, audio, network and discovery in process,
/// folders of its own.
class AppFixture : public LoopbackFixture {
 protected:
  static constexpr unsigned kRate25 = 1;
  static constexpr unsigned kRate30 = 3;

  AppFixture() {
    setUDPNetwork(&mNetwork);
    discovery::setService(&mDiscovery);
    media::setService(&mMedia);
  }
  ~AppFixture() override {
    end();
    media::setService(nullptr);
    discovery::setService(nullptr);
    setUDPNetwork(nullptr);
  }

  /// A run of the application. The one before ends without a word.
  void launch(const std::optional<std::filesystem::path>& file = {}) {
    end();
    mApp = std::make_shared<VLAppDelegate>(mWindow, mView, folders());
    mApp->applicationDidFinishLaunching(file);
    mHost.settle();
  }
  void end() {
    if (mApp != nullptr) {
      clock().stop();
      mHost.settle();
      mApp.reset();
      KVSharedInstances::clear();
      mHost.settle();
    }
  }
  store::ApplicationFolders folders() const {
    return store::ApplicationFolders([this](const char* name) -> const char* {
      return mHasHome && std::string(name) == "HOME" ? mFolder.path().c_str() : nullptr;
    });
  }
  VLAppDelegate& app() { return *mApp; }

  /// Of the list, in its order: time and name.
  std::vector<std::string> markers() {
    std::vector<std::string> result;
    for (const auto& marker : app().markers().controller().arrangedObjects()) {
      result.push_back(marker->timecodeString() + " " + marker->name());
    }
    return result;
  }

  /// But for so many; each document that is opened adds its own.
  void closeMediaWindows(std::size_t left = 0) {
    while (app().mediaWindows().windows().size() > left) {
      app().mediaWindows().windows().back()->windowWillClose();
    }
  }
  std::shared_ptr<KVMIDIEndpoint> addSource(const std::string& name) {
    const auto endpoint = mOutside->appear(midi::MIDIEndpointKind::source, name);
    mHost.settle();
    return std::make_shared<KVMIDIEndpoint>(endpoint);
  }
  /// Blocks of MTC from 01:00:SS:00 on.
  void playBlocks(const KVMIDIEndpoint& source, int blocks, unsigned seconds,
                  unsigned rate = kRate25) {
    velor::playBlocks(mHost, *mOutside, source.endpoint(), blocks, seconds, rate);
  }

  void goTo(const std::string& text) {
    app().setCurrentTime(KVSMPTETime::smpteTimeWithString(text, clock().smpteFormat()));
  }
  static std::string now() { return stringFromSMPTETime(clock().time()); }
  /// Runs for so many frames: one tick follows the stop.
  void runFor(std::uint64_t frames) {
    app().play();
    mHost.advance((frames - 1) * kFrame25);
    app().stop();
    mHost.settle();
  }
  std::vector<std::string> takeCalls() { return std::exchange(mCalls, {}); }

  static std::string contents(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }
  std::filesystem::path write(const std::string& name, const std::string& text) const {
    std::ofstream(mFolder.path() / name, std::ios::binary) << text;
    return mFolder.path() / name;
  }

  test::TemporaryFolder mFolder;
  bool mHasHome = true;
  SimulatedUDPNetwork mNetwork;
  discovery::BuiltinDiscovery mDiscovery;
  media::SimulatedMedia mMedia;
  std::vector<std::string> mCalls;
  const std::shared_ptr<RecordingWindow> mWindow = std::make_shared<RecordingWindow>(mCalls);
  const std::shared_ptr<VLTimecodeValues> mView = std::make_shared<VLTimecodeValues>();
  std::shared_ptr<VLAppDelegate> mApp;
};

}  // namespace velor
