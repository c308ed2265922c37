// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>
#include <memory>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/media/VLMediaPlaybackWindowController.h"
#include "Velor/media/VLMediaPlaybackWindowOutlet.h"
#include "Velor/views/VLFilePanels.h"
#include "Velor/views/VLSheets.h"
#include "Velor/views/VLTimecodeFieldDelegate.h"
#include "platform/host/Timer.h"
#include "platform/host/WeakSelf.h"

namespace Ui {
class VLMediaPlaybackWindow;
}
class QAction;
class QMenu;

namespace velor {

class VLButton;

/// The window of one clip: its picture, its transport and how it follows MTC. Closing it ends
/// its controller. Queue: main.
class VLMediaPlaybackWindow final : public QWidget,
                                    public VLMediaPlaybackWindowOutlet,
                                    public VLTimecodeFieldDelegate {
  Q_OBJECT

 public:
  /// The controller is held weakly, since it keeps the window.
  explicit VLMediaPlaybackWindow(
      const std::shared_ptr<VLMediaPlaybackWindowController>& controller);
  ~VLMediaPlaybackWindow() override;

  bool wantsVideo() const override { return true; }
  /// Also while it is minimised, or hidden at the end of the program.
  bool isVisible() const override { return mIsOpen; }
  void showWindow() override;
  void close() override { QWidget::close(); }
  void setTitle(const std::string& text) override;
  void setMTCIn(const std::string& text) override;
  void setMTCInStatus(VLClockStatus status) override;
  void setDeviation(const std::string& text) override;
  void settingsDidChange() override;
  void playerDidChange() override;
  void playerHasFrame() override;
  void beginOpenPanel(const FileChosen& chosen) override { mPanels.beginOpenClip(chosen); }
  void presentError(const std::string& text) override { mSheets.presentError(text); }
  void timecodeFieldDidChangeTimecode(VLTimecodeField& field) override;

  VLSheets& sheets() { return mSheets; }

 protected:
  void changeEvent(QEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

 private:
  using Controller = VLMediaPlaybackWindowController;

  void setUpTransport();
  void setUpSettings();
  void setUpActionMenu();
  void setUpFullScreen();
  void setUpChooseButton();
  template <class Action>
  void perform(Action action);
  void moveBesideOthers();
  void toggleFullScreen();
  void showFullScreenState();
  void showAudioChoices(const Controller& controller);
  void showPosition();
  void showNotice();
  QString textWithoutPicture(const Controller& controller) const;
  void setColors();

  const std::unique_ptr<Ui::VLMediaPlaybackWindow> mForm;
  const std::weak_ptr<Controller> mController;
  VLSheets mSheets;
  VLFilePanels mPanels;
  QMenu* const mActionMenu;  // this and the actions are children
  QAction* mControlMasterClock = nullptr;
  QAction* mAdjustSpeed = nullptr;
  QAction* const mLeaveFullScreen;
  VLButton* const mChooseButton;  // a child
  VLClockStatus mStatus = VLClockStopped;
  bool mHasStarted = false;  // from MTC, once
  bool mIsOpen = false;
  KVObserverToken mAudioToken;
  const host::WeakSelf<VLMediaPlaybackWindow> mSelf{this};
  host::Timer mPositionTimer;
};

}  // namespace velor
