// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Kv-Appkit/KVKeyValueObserver.h"
#include "Kv-Appkit/KVObservable.h"
#include "Velor/app/VLClockDisplay.h"
#include "Velor/app/VLDocuments.h"
#include "Velor/app/VLMainWindowOutlet.h"
#include "Velor/app/VLMarkers.h"
#include "Velor/app/VLMediaWindows.h"
#include "Velor/app/VLSleepGuard.h"
#include "Velor/app/VLTimecodeViewDelegate.h"
#include "Velor/app/VLTimecodeViewOutlet.h"
#include "Velor/app/VLTransport.h"
#include "Velor/app/VLUserSettings.h"
#include "Velor/clock/VLClock.h"
#include "Velor/clock/VLClockDelegate.h"
#include "Velor/osc/VLOSCServer.h"
#include "Velor/osc/VLOSCServerDelegate.h"
#include "kva/MIDI/KVMIDIEndpoint.h"
#include "kvtimecode/KVSMPTETime.h"
#include "platform/host/Queue.h"
#include "platform/host/Task.h"
#include "platform/qt/UndoManager.h"
#include "platform/store/ApplicationFolders.h"

namespace velor {

/// The top of the program: owns the long-lived parts, connects them, and turns what
/// the user does, at a window, by OSC or on the command line, into calls on the clock.
///
/// A play takes the clock off its sync source, so that it can run by itself, and the
/// stop puts it back. A stop of a clock that stands goes back through the history of
/// start times.
///
/// Observable: "syncSource". Queue: main, but for the clock's delegate calls, which
/// find their way there.
class VLAppDelegate final : public KVObservable,
                            public VLClockDelegate,
                            public VLTimecodeViewDelegate,
                            public VLOSCServerDelegate,
                            public std::enable_shared_from_this<VLAppDelegate> {
 public:
  /// The last component of a document's name.
  static constexpr std::string_view kFileType = "velor";
  enum class TerminateReply { now, later };

  /// The current services, network and discovery must exist. Nothing is done yet.
  VLAppDelegate(std::shared_ptr<VLMainWindowOutlet> mainWindow,
                std::shared_ptr<VLTimecodeViewOutlet> counters, store::ApplicationFolders folders);
  ~VLAppDelegate() override;

  // --- the life of the application, in this order

  /// Fails when the document is not loaded.
  Expected<> applicationOpenFile(const std::filesystem::path& path);
  /// Opens the document, if one is given, once everything stands that it changes;
  /// without one, or when it cannot be loaded, what the last run left, unless the start
  /// is to be fresh.
  void applicationDidFinishLaunching(const std::optional<std::filesystem::path>& file = {},
                                     bool isFresh = false);
  /// Asks the user while something runs; the window gets the reply then.
  TerminateReply applicationShouldTerminate();
  /// Saves the state and the settings, as far as there are folders for them. The recovery
  /// copy keeps a state that is not saved.
  Expected<> applicationWillTerminate();

  /// Until the settings of OSC, which are read in the background, have been taken over.
  void waitForSettings();
  VLUserSettings& settings() noexcept { return mSettings; }

  VLClock& clock() const noexcept { return mClock; }
  VLOSCServer& server() const noexcept { return VLOSCServer::sharedServer(); }
  qt::UndoManager& undoManager() noexcept { return mUndoManager; }
  VLMarkers& markers() noexcept { return mMarkers; }
  VLMediaWindows& mediaWindows() noexcept { return *mMediaWindows; }

  bool disableMTCLoopCheck() const noexcept { return mSettings.disablesMTCLoopCheck(); }
  void setDisableMTCLoopCheck(bool disable) noexcept { mSettings.setDisablesMTCLoopCheck(disable); }

  // --- actions

  void play() { mTransport.play(); }
  /// On a clock that stands: back to the start before, or to zero with the control key.
  void stop() { mTransport.stop(); }
  void togglePlayback();
  void arm();
  void togglePreroll();
  void setPlayRate(float percent) override;
  void setLoopStartTime();
  void setLoopEndTime();
  void openPlaybackRateSheet();
  void dismissPlayRateSheet();
  /// Opens a media window, or a sheet that says what it needs.
  void newPlaybackWindow() { mMediaWindows->newPlaybackWindow(); }
  void showOSCSetup() { window->showOSCSetup(); }
  void popOutMainCounter() { mDisplay.popOut(); }
  void saveDocument();
  void openDocument();

  std::shared_ptr<KVSMPTETime> currentTime() const;
  /// Of a clock that stands it can be undone. An invalid time is ignored.
  void setCurrentTime(const std::shared_ptr<KVSMPTETime>& time) { mTransport.setCurrentTime(time); }
  /// Moves the clock. `time` is one that the clock sends, so it includes the clock's offset.
  void setCurrentSMPTETime(const SMPTETime& time);

  std::shared_ptr<KVMIDIEndpoint> syncSource() const;
  /// For a document: the one that the stop puts back, while a play has set it aside.
  std::shared_ptr<KVMIDIEndpoint> syncSourceAfterStop() const {
    return mTransport.syncSourceAfterStop();
  }
  /// None disarms.
  void setSyncSource(const std::shared_ptr<KVMIDIEndpoint>& source);

  // --- markers

  /// At the current time, if none is there.
  void addMarker();
  /// The selected ones.
  void deleteMarkers();
  /// What the segment or the tag of a control stands for.
  void moveToMarker(int which);
  void gotoNextMarker() override;
  void gotoPrevMarker() override;

  // --- documents

  /// As VLApplicationState does.
  Expected<> saveApplicationStateToURL(const std::filesystem::path& path);
  Expected<VLApplicationState::Unrestored> loadApplicationStateFromURL(
      const std::filesystem::path& path);
  void setupApplicationDefaultState();
  VLDocuments& documents() noexcept { return mDocuments; }
  /// Runs the job where it may wait, on velor.background.
  void inBackground(host::Task job);
  /// Frees it in the background, where many objects take long.
  void letGo(std::shared_ptr<void> object);

  // --- from the clock, any thread

  void clockDidChangeStartTime(VLClock& clock) override;
  void clockDidStartPlaying(VLClock& clock) override;
  void clockDidStopPlaying(VLClock& clock) override;
  void clockDidArm(VLClock& clock) override;
  void clockDidDisarm(VLClock& clock) override;
  void clockReceivesWrongFormat(VLClock& clock, std::uint32_t format) override;
  bool clockShouldCheckForMTCLoop(VLClock& clock) override;
  void clockDetectedMTCLoop(VLClock& clock, const std::shared_ptr<KVMIDIEndpoint>& source,
                            const std::shared_ptr<KVMIDIEndpoint>& destination) override;

  // --- from the counters and from OSC

  void timecodeDidChange(VLTimecodeViewOutlet& view) override;
  void offsetDidChange(VLTimecodeViewOutlet& view) override;
  void stopTimeDidChange(VLTimecodeViewOutlet& view) override;
  void loopStartTimeDidChange(VLTimecodeViewOutlet& view) override;
  void loopEndTimeDidChange(VLTimecodeViewOutlet& view) override;
  bool canEditOffsetInTimecodeView(const VLTimecodeViewOutlet& view) const override;
  bool canEditStopTimeInTimecodeView(const VLTimecodeViewOutlet& view) const override;

  void play(VLOSCServer& /*sender*/) override { play(); }
  void stop(VLOSCServer& /*sender*/) override { stop(); }
  void addMarker(VLOSCServer& /*sender*/) override { addMarker(); }

 private:
  // Calls now on the main thread, else by the main queue.
  template <class Call>
  void onMain(Call call);
  void bindClock();
  void smpteFormatChanged();

  void gotoMarker(const std::shared_ptr<VLMarker>& marker);

  const std::shared_ptr<VLMainWindowOutlet> window;
  const std::shared_ptr<VLTimecodeViewOutlet> timecodeView;
  const store::ApplicationFolders mFolders;
  VLUserSettings mSettings;

  VLClock& mClock;
  VLClockDisplay mDisplay;
  VLTransport mTransport;
  VLSleepGuard mSleepGuard{mClock};
  KVKeyValueObserver mFormatObserver;
  KVObserverToken mMIDIObserver;
  qt::UndoManager mUndoManager;
  VLMarkers mMarkers{mUndoManager, mClock.smpteFormat()};
  const std::shared_ptr<VLMediaWindows> mMediaWindows;
  VLDocuments mDocuments{*this, mFolders};
  std::unique_ptr<host::Queue> mBackground;
};

}  // namespace velor
