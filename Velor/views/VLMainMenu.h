// SPDX-License-Identifier: MIT
#pragma once

#include <QAction>
#include <QKeySequence>
#include <QMenu>
#include <functional>
#include <memory>

#include "Velor/app/VLMenus.h"

namespace velor {

class VLAppDelegate;
class VLMainWindow;

/// The menu bar with all actions of the main window. Menus that list what comes and goes are
/// built when they open; all keys work before. Queue: main.
class VLMainMenu final : public QObject {
  Q_OBJECT

 public:
  static constexpr const char* kFeedbackAddress = "https://velor.invalid/feedback?app=velor";
  /// Where no pages of the manual are installed.
  static constexpr const char* kManualAddress = "https://velor.invalid/manual";
  static constexpr int kPrerollTag = 1010;
  static constexpr int kArmTag = 1011;

  explicit VLMainMenu(VLMainWindow& window);

  /// Before any menu opens; what it holds is asked for as long as the controller lives.
  void setController(VLAppDelegate& controller);

  QAction& togglePlayMenuItem() { return *mTogglePlay; }
  /// Works where markers are selected.
  QAction& deleteMenuItem() { return *mDelete; }
  /// Shows what can be undone and redone.
  void undoDidChange();

 private:
  using Action = std::function<void(VLAppDelegate&)>;

  QMenu& addMenu(QMenu* parent, const QString& title, const char* name);
  QAction* add(QMenu& menu, const char* name, const QString& text, const QKeySequence& key,
               Action action);
  void fillFile(QMenu& menu);
  void fillEdit(QMenu& menu);
  void fillClock(QMenu& menu);
  void fillMarkerItems(QMenu& menu);
  void fillDevices(QMenu& menu);
  void fillPlayback(QMenu& menu);
  void fillView(QMenu& menu);
  void stepScale(int step);
  void fillWindow(QMenu& menu);
  void fillHelp(QMenu& menu);
  void openFeedbackAndSupportWindow();

  void editMenuNeedsUpdate();
  void clockMenuNeedsUpdate();
  void syncSourceMenuNeedsUpdate(QMenu& menu);
  void mtcDestinationsMenuNeedsUpdate(QMenu& menu);
  void currentDevicesMenuNeedsUpdate(QMenu& menu);
  void clockmenuFormatMenuNeedsUpdate(QMenu& menu);
  void playbackModeMenuNeedsUpdate(QMenu& menu);

  enum class Marks { no, yes };
  void addItems(QMenu& menu, const VLMenus::Items& items, Marks marks = Marks::yes);

  VLMainWindow& mWindow;
  std::unique_ptr<VLMenus> mMenus;
  QAction* mUndo = nullptr;
  QAction* mRedo = nullptr;
  QAction* mCopy = nullptr;
  QAction* mPaste = nullptr;
  QAction* mDelete = nullptr;
  QAction* mTogglePlay = nullptr;
  QAction* mArm = nullptr;
  QAction* mPreroll = nullptr;
  QAction* mIntern = nullptr;
};

}  // namespace velor
