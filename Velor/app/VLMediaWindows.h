// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <memory>
#include <set>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/app/VLAlert.h"
#include "Velor/media/VLMediaPlaybackWindowController.h"
#include "Velor/media/VLMediaPlaybackWindowDelegate.h"
#include "Velor/media/VLMediaPlaybackWindowState.h"

namespace velor {

class VLAppDelegate;
class VLMainWindowOutlet;

/// The open media windows: made by the user or by a document, they drive the clock for their
/// `controlMasterClock`, and are saved.
///
/// Observable: "encodedStates". Queue: main.
class VLMediaWindows final : public KVObservable,
                             public VLMediaPlaybackWindowDelegate,
                             public std::enable_shared_from_this<VLMediaWindows> {
 public:
  using Window = std::shared_ptr<VLMediaPlaybackWindowController>;
  using State = std::shared_ptr<VLMediaPlaybackWindowState>;

  /// Both outlive it.
  VLMediaWindows(VLAppDelegate& app, VLMainWindowOutlet& mainWindow)
      : mApp(app), mMainWindow(mainWindow) {}

  /// Whether clips can be played. The first call can start the library that plays them.
  static bool canHaveMediaPlaybackFeature();

  /// The sheet for when they cannot.
  static VLAlert unavailable();

  void newPlaybackWindow();
  /// A window with the clip, which starts at the time. It is saved only if `isSaved`.
  Window open(const std::filesystem::path& clip, const SMPTETime& start, bool isSaved);
  const std::vector<Window>& windows() const noexcept { return mPlaybackWindows; }

  // --- documents

  /// Publishes the input for the windows of a document.
  static void prepareFor(const std::vector<State>& states);
  /// Adds the windows of a document in the folder. What cannot be played here is kept for the
  /// next save. A failure is logged.
  void restore(const std::vector<State>& states, const std::filesystem::path& folder);
  /// The states of the visible windows, as a document in the folder stores them.
  std::vector<State> encodedStates(const std::filesystem::path& folder) const;

  // --- from the windows

  void play(VLMediaPlaybackWindowController& sender) override;
  void stop(VLMediaPlaybackWindowController& sender) override;
  void setCurrentSMPTETime(const SMPTETime& time) override;
  void mediaPlaybackWindowDidChange(VLMediaPlaybackWindowController& window) override;
  void mediaPlaybackWindowDidClose(VLMediaPlaybackWindowController& window) override;

 private:
  void show(const Window& window);

  VLAppDelegate& mApp;
  VLMainWindowOutlet& mMainWindow;
  std::vector<Window> mPlaybackWindows;
  std::set<const VLMediaPlaybackWindowController*> mNotSaved;
  std::vector<State> mNotRestored;  // of a document, while the feature is not available
};

}  // namespace velor
