// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "Velor/media/VLMediaPlaybackWindowController.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "sim/SimulatedMedia.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/velor/devices/DeviceFixture.h"

namespace velor {

/// Keeps what a window is told to show.
struct RecordingMediaWindow final : VLMediaPlaybackWindowOutlet {
  bool wantsVideo() const override { return true; }
  void close() override { isClosed = true; }
  void setTitle(const std::string& text) override { title = text; }
  void setMTCIn(const std::string& text) override { mtcIn.push_back(text); }
  void setMTCInStatus(VLClockStatus shown) override { status = shown; }
  void setDeviation(const std::string& text) override { deviation = text; }
  void beginOpenPanel(const FileChosen& chosen) override { panel = chosen; }
  void presentError(const std::string& text) override { errors.push_back(text); }

  std::string title;
  std::vector<std::string> mtcIn;
  VLClockStatus status = VLClockStopped;
  std::string deviation;
  FileChosen panel;
  std::vector<std::string> errors;
  bool isClosed = false;
};

struct RecordingApplication final : VLMediaPlaybackWindowDelegate {
  void play(VLMediaPlaybackWindowController& /*sender*/) override { calls.emplace_back("play"); }
  void stop(VLMediaPlaybackWindowController& /*sender*/) override { calls.emplace_back("stop"); }
  void setCurrentSMPTETime(const SMPTETime& time) override {
    calls.push_back(stringFromSMPTETime(time));
  }
  void mediaPlaybackWindowDidChange(VLMediaPlaybackWindowController& /*window*/) override {
    ++changes;
  }
  void mediaPlaybackWindowDidClose(VLMediaPlaybackWindowController& /*window*/) override {
    calls.emplace_back("closed");
  }

  std::vector<std::string> calls;
  int changes = 0;
};

/// Media windows that the clock drives, by way of the device manager, on simulated time.
class MediaFixture : public DeviceFixture {
 protected:
  using Window = std::shared_ptr<VLMediaPlaybackWindowController>;

  MediaFixture() {
    media::setService(&mMedia);
    clock().setSmpteFormat(kSMPTETimeType25);
    manager();
    VLMediaPlaybackWindowController::createMediaPlaybackMTCIn();
    mHost.settle();
  }
  ~MediaFixture() override {
    clock().stop();
    mHost.settle();
    mWindows.clear();
    KVSharedInstances::clear();
    media::setService(nullptr);
  }

  static SMPTETime timeOf(const std::string& text) {
    SMPTETime time{};
    EXPECT_TRUE(parseSmpteTime(text, time, kSMPTETimeType25)) << text;
    return time;
  }
  /// A window whose clip is ready, of 10 s unless `mMedia` knows its name.
  Window open(const std::string& name, const std::string& start) {
    const auto window = shown(VLMediaPlaybackWindowController::initWithDelegate(mApp));
    window->setClipStartTime(timeOf(start));
    window->loadMediumAtURL(fileNamed(name));
    mHost.advance(50'000'000);
    EXPECT_TRUE(window->isReady());
    return window;
  }
  Window shown(Window window) {
    mOutlets.push_back(std::make_shared<RecordingMediaWindow>());
    window->setOutlet(mOutlets.back());
    window->showWindow();
    mHost.settle();
    mWindows.push_back(window);
    return window;
  }
  std::filesystem::path fileNamed(const std::string& name) const {
    std::ofstream(mFolder.path() / name) << "";
    return mFolder.path() / name;
  }
  RecordingMediaWindow& outlet(std::size_t index = 0) { return *mOutlets.at(index); }
  media::SimulatedPlayer& player(std::size_t index = 0) { return *mMedia.players.at(index); }

  void playFrom(const std::string& time) {
    clock().stop();
    mHost.settle();
    clock().setTime(timeOf(time));
    mHost.settle();
    mBegin = mHost.AudioGetCurrentHostTime() + kFrame25;  // of the first tick
    mFrom = timeOf(time);
    clock().start();
  }
  void pass(double seconds) { mHost.advance(static_cast<std::uint64_t>(seconds * 1e9)); }
  /// By how much the clip is ahead of the clock, in ms.
  double ahead(const std::string& start, std::size_t index = 0) {
    const double elapsed = static_cast<double>(mHost.AudioGetCurrentHostTime() - mBegin) / 1e9;
    const double due =
        ltc_seconds_from_smpte_time(mFrom) + elapsed - ltc_seconds_from_smpte_time(timeOf(start));
    return std::chrono::duration<double, std::milli>(player(index).currentTime()).count() -
           due * 1e3;
  }

  test::TemporaryFolder mFolder;
  media::SimulatedMedia mMedia;
  const std::shared_ptr<RecordingApplication> mApp = std::make_shared<RecordingApplication>();
  std::vector<std::shared_ptr<RecordingMediaWindow>> mOutlets;
  std::vector<Window> mWindows;
  std::uint64_t mBegin = 0;
  SMPTETime mFrom{};
};

}  // namespace velor
