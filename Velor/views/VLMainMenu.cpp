// SPDX-License-Identifier: MIT
#include "Velor/views/VLMainMenu.h"

#include <QApplication>
#include <QDesktopServices>
#include <QDir>
#include <QKeyEvent>
#include <QMenuBar>
#include <QStandardPaths>
#include <QUrl>
#include <algorithm>
#include <array>
#include <cstddef>
#include <iterator>
#include <memory>
#include <string>
#include <utility>

#include "Velor/app/VLAppDelegate.h"
#include "Velor/views/VLMainWindow.h"
#include "Velor/views/VLTimecodeView.h"
#include "Velor/views/VLTranslation.h"
#include "platform/media/MediaService.h"

namespace velor {
namespace {

constexpr int kPreviousMarker = 99;
constexpr int kNextMarker = 101;

constexpr std::array kScales{1.0, 1.5, 2.0, 3.0};  // of the timecode view

// What is named may hold the mark of a mnemonic.
QString titleOf(QString name) {
  return name.replace('&', "&&");
}

// Of the control that has the focus, if it can.
bool canInvoke(const char* slot) {
  const QWidget* focus = QApplication::focusWidget();
  return focus != nullptr &&
         focus->metaObject()->indexOfMethod((std::string(slot) + "()").c_str()) >= 0;
}

void invokeIfAble(const char* slot) {
  if (canInvoke(slot)) {
    QMetaObject::invokeMethod(QApplication::focusWidget(), slot);
  }
}

// Whether the control that has the focus edits a text, whose key it then is.
bool isDeleteOfText() {
  QKeyEvent key(QEvent::ShortcutOverride, Qt::Key_Delete, Qt::NoModifier);
  key.ignore();
  QWidget* focus = QApplication::focusWidget();
  return focus != nullptr && QApplication::sendEvent(focus, &key) && key.isAccepted();
}

void deleteSelected(VLAppDelegate& app) {
  if (isDeleteOfText()) {
    QKeyEvent key(QEvent::KeyPress, Qt::Key_Delete, Qt::NoModifier);
    QApplication::sendEvent(QApplication::focusWidget(), &key);
  } else {
    app.deleteMarkers();
  }
}

// Of the installed program, or of the tree in which it was built; empty: neither is there.
QString manualPage() {
  const QString page = "manual/index.md";
  const QString installed =
      QStandardPaths::locate(QStandardPaths::GenericDataLocation, "doc/velor/" + page);
  if (!installed.isEmpty()) {
    return installed;
  }
  QDir folder(QCoreApplication::applicationDirPath());
  do {
    if (folder.exists("docs/" + page)) {
      return folder.filePath("docs/" + page);
    }
  } while (folder.cdUp());
  return {};
}

}  // namespace

VLMainMenu::VLMainMenu(VLMainWindow& window) : QObject(&window), mWindow(window) {
  fillFile(addMenu(nullptr, tr("&File"), "fileMenu"));
  fillEdit(addMenu(nullptr, tr("&Edit"), "editMenu"));
  fillClock(addMenu(nullptr, tr("&Clock"), "clockMenu"));
  fillDevices(addMenu(nullptr, tr("&Devices"), "devicesMenu"));
  // What its players still need is told when the first window is asked for: to find out starts
  // their library.
  if (media::service() != nullptr) {
    fillPlayback(addMenu(nullptr, tr("&Playback"), "playbackMenu"));
  }
  fillView(addMenu(nullptr, tr("&View"), "viewMenu"));
  fillWindow(addMenu(nullptr, tr("&Window"), "windowMenu"));
  fillHelp(addMenu(nullptr, tr("&Help"), "helpMenu"));
}

void VLMainMenu::setController(VLAppDelegate& controller) {
  mMenus = std::make_unique<VLMenus>(controller);
}

QMenu& VLMainMenu::addMenu(QMenu* parent, const QString& title, const char* name) {
  auto* menu = parent != nullptr ? parent->addMenu(title) : mWindow.menuBar()->addMenu(title);
  menu->setObjectName(name);
  return *menu;
}

// The keys work in all windows of the program.
QAction* VLMainMenu::add(QMenu& menu, const char* name, const QString& text,
                         const QKeySequence& key, Action action) {
  auto* item = new QAction(text, this);
  item->setObjectName(name);
  item->setShortcut(key);
  item->setShortcutContext(Qt::ApplicationShortcut);
  item->setAutoRepeat(false);
  connect(item, &QAction::triggered, this,
          [this, action = std::move(action)] { mWindow.performOnController(action); });
  menu.addAction(item);
  return item;
}

void VLMainMenu::fillFile(QMenu& menu) {
  add(menu, "openDocument", tr("&Open..."), Qt::CTRL | Qt::Key_O,
      [](VLAppDelegate& app) { app.openDocument(); });
  add(menu, "saveDocument", tr("&Save..."), Qt::CTRL | Qt::Key_S,
      [](VLAppDelegate& app) { app.saveDocument(); });
  menu.addSeparator();
  add(menu, "quit", tr("&Quit"), Qt::CTRL | Qt::Key_Q, [this](VLAppDelegate&) { mWindow.quit(); });
}

void VLMainMenu::fillEdit(QMenu& menu) {
  mUndo = add(menu, "undo", tr("&Undo"), QKeySequence::Undo,
              [](VLAppDelegate& app) { app.undoManager().undo(); });
  mRedo = add(menu, "redo", tr("&Redo"), Qt::CTRL | Qt::SHIFT | Qt::Key_Z,
              [](VLAppDelegate& app) { app.undoManager().redo(); });
  menu.addSeparator();
  mCopy = add(menu, "copy", tr("&Copy"), QKeySequence::Copy,
              [](VLAppDelegate&) { invokeIfAble("copy"); });
  mPaste = add(menu, "paste", tr("&Paste"), QKeySequence::Paste,
               [](VLAppDelegate&) { invokeIfAble("paste"); });
  mDelete = add(menu, "delete", tr("&Delete"), Qt::Key_Delete, &deleteSelected);
  // The table is where the user sees what goes.
  mDelete->setShortcutContext(Qt::WidgetWithChildrenShortcut);
  for (QAction* each : {mUndo, mRedo, mCopy, mPaste}) {
    each->setShortcutContext(Qt::WindowShortcut);
  }
  connect(&menu, &QMenu::aboutToShow, this, [this] { editMenuNeedsUpdate(); });
  connect(&menu, &QMenu::aboutToHide, this, [this] {
    for (QAction* each : {mCopy, mPaste, mDelete}) {
      each->setEnabled(true);  // for their keys
    }
  });
  mUndo->setEnabled(false);
  mRedo->setEnabled(false);
}

void VLMainMenu::fillClock(QMenu& menu) {
  mTogglePlay = add(menu, "togglePlayMenuItem", tr("&Play/Stop"), {},
                    [](VLAppDelegate& app) { app.togglePlayback(); });
  mArm = add(menu, "arm", tr("&Arm"), Qt::CTRL | Qt::SHIFT | Qt::Key_A,
             [](VLAppDelegate& app) { app.arm(); });
  mArm->setData(kArmTag);
  mPreroll = add(menu, "togglePreroll", tr("P&re-roll"), Qt::CTRL | Qt::SHIFT | Qt::Key_P,
                 [](VLAppDelegate& app) { app.togglePreroll(); });
  mPreroll->setData(kPrerollTag);
  for (QAction* each : {mArm, mPreroll}) {
    each->setCheckable(true);
  }
  connect(&menu, &QMenu::aboutToShow, this, [this] { clockMenuNeedsUpdate(); });
  menu.addSeparator();

  QMenu& sources = addMenu(&menu, tr("&Sync Source"), "syncSourceMenu");
  mIntern = add(sources, "intern", tr("Intern"), Qt::CTRL | Qt::Key_T,
                [](VLAppDelegate& app) { app.setSyncSource(nullptr); });
  mIntern->setCheckable(true);
  connect(&sources, &QMenu::aboutToShow, this,
          [this, &sources] { syncSourceMenuNeedsUpdate(sources); });
  QMenu& destinations = addMenu(&menu, tr("MTC &Destinations"), "mtcDestinationsMenu");
  connect(&destinations, &QMenu::aboutToShow, this,
          [this, &destinations] { mtcDestinationsMenuNeedsUpdate(destinations); });
  QMenu& formats = addMenu(&menu, tr("&Format"), "clockmenuFormatMenu");
  connect(&formats, &QMenu::aboutToShow, this,
          [this, &formats] { clockmenuFormatMenuNeedsUpdate(formats); });
  QMenu& modes = addMenu(&menu, tr("Play &Mode"), "playbackModeMenu");
  connect(&modes, &QMenu::aboutToShow, this,
          [this, &modes] { playbackModeMenuNeedsUpdate(modes); });
  add(menu, "openPlaybackRateSheet", tr("Play R&ate..."), Qt::CTRL | Qt::Key_R,
      [](VLAppDelegate& app) { app.openPlaybackRateSheet(); });
  menu.addSeparator();
  fillMarkerItems(menu);
}

void VLMainMenu::fillMarkerItems(QMenu& menu) {
  add(menu, "setLoopStartTime", tr("Set Loop Start"), Qt::CTRL | Qt::Key_BracketLeft,
      [](VLAppDelegate& app) { app.setLoopStartTime(); });
  add(menu, "setLoopEndTime", tr("Set Loop End"), Qt::CTRL | Qt::Key_BracketRight,
      [](VLAppDelegate& app) { app.setLoopEndTime(); });
  menu.addSeparator();
  add(menu, "gotoPrevMarker", tr("Previous Marker"), Qt::CTRL | Qt::Key_Left,
      [](VLAppDelegate& app) { app.moveToMarker(kPreviousMarker); })
      ->setData(kPreviousMarker);
  add(menu, "addMarker", tr("Add Marker"), Qt::CTRL | Qt::Key_M,
      [](VLAppDelegate& app) { app.addMarker(); });
  add(menu, "gotoNextMarker", tr("Next Marker"), Qt::CTRL | Qt::Key_Right, [](VLAppDelegate& app) {
    app.moveToMarker(kNextMarker);
  })->setData(kNextMarker);
}

void VLMainMenu::fillDevices(QMenu& menu) {
  add(menu, "addLTCReader", tr("New LTC &Reader"), Qt::CTRL | Qt::SHIFT | Qt::Key_R,
      [this](VLAppDelegate&) { mWindow.deviceWindows().addLTCReader(); });
  add(menu, "addLTCGenerator", tr("New LTC &Generator"), Qt::CTRL | Qt::SHIFT | Qt::Key_G,
      [this](VLAppDelegate&) { mWindow.deviceWindows().addLTCGenerator(); });
  add(menu, "showDestinationsWindow", tr("Show &Devices..."), Qt::CTRL | Qt::SHIFT | Qt::Key_D,
      [this](VLAppDelegate&) { mWindow.deviceWindows().showDestinationsWindow(); });
  QMenu& windows = addMenu(&menu, tr("&Windows"), "currentDevicesMenu");
  connect(&windows, &QMenu::aboutToShow, this,
          [this, &windows] { currentDevicesMenuNeedsUpdate(windows); });
}

void VLMainMenu::fillPlayback(QMenu& menu) {
  add(menu, "newPlaybackWindow", tr("&Playback Window"), Qt::CTRL | Qt::Key_P,
      [](VLAppDelegate& app) { app.newPlaybackWindow(); });
}

void VLMainMenu::fillView(QMenu& menu) {
  QAction* larger = add(menu, "larger", tr("&Larger"), Qt::CTRL | Qt::Key_Plus,
                        [this](VLAppDelegate&) { stepScale(1); });
  // On most keyboards, plus without Shift is this key.
  larger->setShortcuts({Qt::CTRL | Qt::Key_Plus, Qt::CTRL | Qt::Key_Equal});
  add(menu, "smaller", tr("&Smaller"), Qt::CTRL | Qt::Key_Minus,
      [this](VLAppDelegate&) { stepScale(-1); });
}

void VLMainMenu::stepScale(int step) {
  VLTimecodeView& view = mWindow.timecodeView();
  const auto current = std::ranges::find(kScales, view.scale());
  const auto place =
      std::clamp<std::ptrdiff_t>(current - kScales.begin() + step, 0, std::ssize(kScales) - 1);
  view.setScale(kScales[static_cast<std::size_t>(place)]);
}

void VLMainMenu::fillWindow(QMenu& menu) {
  add(menu, "popOutMainCounter", tr("&Big Timecode"), Qt::CTRL | Qt::Key_B,
      [](VLAppDelegate& app) { app.popOutMainCounter(); });
  add(menu, "showOSCSetup", tr("&OSC Setup..."), Qt::CTRL | Qt::SHIFT | Qt::Key_O,
      [](VLAppDelegate& app) { app.showOSCSetup(); });
}

void VLMainMenu::fillHelp(QMenu& menu) {
  add(menu, "openManual", tr("&Manual"), QKeySequence::HelpContents, [](VLAppDelegate&) {
    const QString page = manualPage();
    QDesktopServices::openUrl(page.isEmpty() ? QUrl(kManualAddress) : QUrl::fromLocalFile(page));
  });
  add(menu, "openFeedbackAndSupportWindow", tr("&Feedback and Support"), {},
      [this](VLAppDelegate&) { openFeedbackAndSupportWindow(); });
}

void VLMainMenu::openFeedbackAndSupportWindow() {
  if (!QDesktopServices::openUrl(QUrl(kFeedbackAddress))) {
    mWindow.presentError(
        tr("no browser can be opened; the page is %1").arg(kFeedbackAddress).toStdString());
  }
}

// --- what is built when it opens

void VLMainMenu::undoDidChange() {
  mWindow.performOnController([this](VLAppDelegate& app) {
    qt::UndoManager& manager = app.undoManager();
    mUndo->setEnabled(manager.canUndo());
    mUndo->setText(
        tr("&Undo %1").arg(titleOf(VLTranslation::text(manager.undoActionName()))).trimmed());
    mRedo->setEnabled(manager.canRedo());
    mRedo->setText(
        tr("&Redo %1").arg(titleOf(VLTranslation::text(manager.redoActionName()))).trimmed());
  });
}

void VLMainMenu::editMenuNeedsUpdate() {
  mWindow.performOnController([this](VLAppDelegate& app) {
    mCopy->setEnabled(canInvoke("copy"));
    mPaste->setEnabled(canInvoke("paste"));
    mDelete->setEnabled(isDeleteOfText() || !app.markers().controller().selectionIndexes().empty());
  });
}

void VLMainMenu::clockMenuNeedsUpdate() {
  mWindow.performOnController([this](VLAppDelegate&) {
    mArm->setChecked(mMenus->isArmed());
    mPreroll->setChecked(mMenus->isPrerollOn());
  });
}

// "Intern" stays the same item, whose key works while the menu is closed.
void VLMainMenu::syncSourceMenuNeedsUpdate(QMenu& menu) {
  mWindow.performOnController([this, &menu](VLAppDelegate&) {
    VLMenus::Items items = mMenus->syncSourceMenu();
    menu.clear();
    mIntern->setChecked(items.front().isOn);
    menu.addAction(mIntern);
    items.erase(items.begin());
    addItems(menu, items);
  });
}

void VLMainMenu::mtcDestinationsMenuNeedsUpdate(QMenu& menu) {
  mWindow.performOnController([this, &menu](VLAppDelegate&) {
    menu.clear();
    addItems(menu, mMenus->mtcDestinationsMenu());
    if (menu.isEmpty()) {
      menu.addAction(tr("No MIDI Destinations"))->setEnabled(false);
    }
  });
}

void VLMainMenu::currentDevicesMenuNeedsUpdate(QMenu& menu) {
  mWindow.performOnController([this, &menu](VLAppDelegate&) {
    menu.clear();
    addItems(menu, mMenus->currentDevicesMenu([this](const auto& device) {
      mWindow.showWindowForDevice(device);
    }),
             Marks::no);
    if (menu.isEmpty()) {
      menu.addAction(tr("No Devices"))->setEnabled(false);
    }
  });
}

void VLMainMenu::addItems(QMenu& menu, const VLMenus::Items& items, Marks marks) {
  for (const VLMenuItem& each : items) {
    if (each.title.empty() && !each.action) {
      menu.addSeparator();
      continue;
    }
    QAction* item = menu.addAction(titleOf(QString::fromStdString(each.title)));
    item->setCheckable(marks == Marks::yes);
    item->setChecked(each.isOn);
    connect(item, &QAction::triggered, this, [this, action = each.action] {
      mWindow.performOnController([&](VLAppDelegate&) { action(); });
    });
  }
}

void VLMainMenu::clockmenuFormatMenuNeedsUpdate(QMenu& menu) {
  mWindow.performOnController([this, &menu](VLAppDelegate&) {
    menu.clear();
    addItems(menu, mMenus->clockmenuFormatMenu());
  });
}

void VLMainMenu::playbackModeMenuNeedsUpdate(QMenu& menu) {
  mWindow.performOnController([this, &menu](VLAppDelegate&) {
    VLMenus::Items items = mMenus->playbackModeMenu();
    for (VLMenuItem& each : items) {
      each.title = VLMainWindow::tr(each.title.c_str()).toStdString();
    }
    menu.clear();
    addItems(menu, items);
  });
}

}  // namespace velor
