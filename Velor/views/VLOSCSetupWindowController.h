// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>
#include <cstdint>
#include <memory>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/views/VLOSCHostsPane.h"
#include "Velor/views/VLOSCTargetsPane.h"
#include "Velor/views/VLSheets.h"
#include "platform/host/WeakSelf.h"

namespace Ui {
class VLOSCSetupWindowController;
}

namespace velor {

class VLAppDelegate;

/// The window in which the user starts and stops the OSC server, chooses who may command, and
/// edits the targets of feedback. Closing hides it. Queue: main.
class VLOSCSetupWindowController final : public QWidget {
  Q_OBJECT

 public:
  /// The controller is held weakly; without it no target can be added.
  explicit VLOSCSetupWindowController(const std::shared_ptr<VLAppDelegate>& controller);
  ~VLOSCSetupWindowController() override;

  void showWindow();

  /// Starts the server at the port of the field, cut to 16 bits, or stops it.
  void changeServerStatus();
  void addClientEntry();
  /// Of the table that has the focus, the selected rows.
  void deleteRows();

  VLSheets& sheets() { return mSheets; }

 protected:
  void changeEvent(QEvent* event) override;

 private:
  void windowDidLoad();
  void setColors();
  void setUpFilterMode();
  void startAtPortOfField();
  void runningChanged();
  void filterModeChanged();

  const std::unique_ptr<Ui::VLOSCSetupWindowController> mForm;
  const std::weak_ptr<VLAppDelegate> mController;
  VLSheets mSheets;
  VLOSCHostsPane mHosts;
  VLOSCTargetsPane mTargets;
  const host::WeakSelf<VLOSCSetupWindowController> mSelf{this};
  KVObserverToken mObserveRunningToken;
  KVObserverToken mObserveFilterModeToken;
};

}  // namespace velor
