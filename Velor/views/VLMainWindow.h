// SPDX-License-Identifier: MIT
#pragma once

#include <QMainWindow>
#include <QPointer>
#include <QString>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/app/VLMainWindowOutlet.h"
#include "Velor/views/VLDestinationsPane.h"
#include "Velor/views/VLDeviceWindows.h"
#include "Velor/views/VLFilePanels.h"
#include "Velor/views/VLMarkersPane.h"
#include "Velor/views/VLPlayRateSheet.h"
#include "Velor/views/VLSavedWindowFrames.h"
#include "Velor/views/VLSheets.h"
#include "platform/host/WeakSelf.h"

namespace Ui {
class VLMainWindow;
}
class QComboBox;
class QMenu;

namespace velor {

class VLAppDelegate;
class VLBigTimecodeWindowController;
class VLButton;
class VLMainMenu;
class VLOSCSetupWindowController;
class VLSegmentedControl;
class VLTimecodeView;

/// The main window: the counters, the transport, destinations and markers, and the state of
/// the system around them. Closing it quits. Queue: main.
class VLMainWindow final : public QMainWindow, public VLMainWindowOutlet {
  Q_OBJECT

 public:
  /// What the user can choose, and what the choice does.
  struct Choices {
    struct Choice {
      QString title;
      std::uint64_t tag;
    };
    std::vector<Choice> rows;
    Chosen chosen;
  };

  VLMainWindow();
  ~VLMainWindow() override;

  /// Before the launch is finished; held weakly. Actions do nothing without it.
  void setController(const std::shared_ptr<VLAppDelegate>& controller);
  /// Arranges the window as the user left it. Shows the state of the system, and the warnings
  /// of the log from now on: those of the launch would greet who starts the program for the
  /// first time.
  void didLaunch();

  /// Answers questions in place of the user; none: the user is asked.
  using AnswerTo = std::function<std::optional<bool>(const VLAlert& alert)>;
  void setAnswerTo(AnswerTo answerTo) { mAnswerTo = std::move(answerTo); }

  /// Does what the user has asked for; a failure becomes a sheet.
  void performOnController(const std::function<void(VLAppDelegate&)>& action);
  /// Ends the program, or asks. A second call while the question is open brings that to the
  /// front.
  void quit();

  VLTimecodeView& timecodeView() { return *mTimecodeView; }
  VLSheets& sheets() { return mSheets; }
  VLDeviceWindows& deviceWindows() { return mDeviceWindows; }

  void setStartImage(const Image& image) override;
  void setStopImage(const Image& image) override;
  void setArmImage(const Image& image, bool on) override;
  void setTogglePlayKey(std::string_view keyEquivalent) override;
  void setPlayModes(std::span<const VLChoice> modes, const Chosen& chosen) override;
  void setSelectedPlayMode(std::uint64_t playMode) override;
  void setFormats(std::span<const VLChoice> formats, const Chosen& chosen) override;
  void setSelectedFormat(std::uint32_t format) override;
  void rearrangeDestinations() override { mDestinations.showDestinations(); }
  void setNeedsDisplay() override;
  void showWindowForDevice(const std::shared_ptr<VLDevice>& device) override {
    mDeviceWindows.showWindowForDevice(device);
  }
  std::shared_ptr<VLBigTimecodeOutlet> makeBigTimecodeWindow() override;
  std::shared_ptr<VLMediaPlaybackWindowOutlet> makeMediaPlaybackWindow(
      const std::shared_ptr<VLMediaPlaybackWindowController>& controller) override;
  void makeKeyAndOrderFront() override;
  void showOSCSetup() override;
  void beginPlayRateSheet(double percent) override;
  void endPlayRateSheet() override;
  bool isControlKeyHeld() const override;
  void presentAlert(const VLAlert& alert, VLAlert::Answer answer) override;
  void presentError(const std::string& text) override;
  void beginSavePanel(std::string_view fileType, FileChosen chosen) override;
  void beginOpenPanel(std::string_view fileType, FileChosen chosen) override;
  void replyToApplicationShouldTerminate(bool terminate) override;

 protected:
  void closeEvent(QCloseEvent* event) override;
  void hideEvent(QHideEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  void setUpTransport();
  void setUpMarkers();
  void connectButton(VLButton& button, std::function<void(VLAppDelegate&)> action,
                     const QString& toolTip);
  void fillFormatPopup(QComboBox& popup);
  void followClock(VLAppDelegate& controller);
  void showClock();
  std::array<VLButton*, 4> transportButtons() const;
  void setTabs();
  void fitTransport();

  const std::unique_ptr<Ui::VLMainWindow> mForm;
  VLTimecodeView* const mTimecodeView;  // a child
  std::weak_ptr<VLAppDelegate> mController;
  const std::shared_ptr<VLSavedWindowFrames> mFrames;  // of all windows
  VLSheets mSheets;
  VLFilePanels mPanels;
  VLMarkersPane mMarkers;
  VLDestinationsPane mDestinations;
  VLDeviceWindows mDeviceWindows;
  VLMainMenu* const mMenu;  // a child
  Choices mPlayModes;
  Choices mFormats;
  std::uint32_t mSelectedFormat = 0;
  VLSegmentedControl* playbackModeControl = nullptr;  // a child
  QPointer<VLPlayRateSheet> playrateSheet;
  std::unique_ptr<VLOSCSetupWindowController> mOSCSetupWindow;
  AnswerTo mAnswerTo;
  bool mIsAskingToQuit = false;
  std::vector<KVObserverToken> mTokens;
  const host::WeakSelf<VLMainWindow> mSelf{this};
};

}  // namespace velor
