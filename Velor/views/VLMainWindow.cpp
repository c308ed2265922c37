// SPDX-License-Identifier: MIT
#include "Velor/views/VLMainWindow.h"

#include <ui_VLMainWindow.h>

#include <QActionGroup>
#include <QCloseEvent>
#include <QLocale>
#include <algorithm>
#include <utility>

#include "Velor/app/VLAppDelegate.h"
#include "Velor/views/VLBigTimecodeWindowController.h"
#include "Velor/views/VLEventModifiers.h"
#include "Velor/views/VLIcons.h"
#include "Velor/views/VLMainMenu.h"
#include "Velor/views/VLMediaPlaybackWindow.h"
#include "Velor/views/VLOSCSetupWindowController.h"
#include "Velor/views/VLSegmentedControl.h"
#include "Velor/views/VLStyle.h"
#include "Velor/views/VLTimecodeAccessible.h"
#include "Velor/views/VLTimecodeView.h"
#include "Velor/views/VLTranslation.h"
#include "Velor/views/VLWindowPlaces.h"
#include "platform/host/Host.h"

namespace velor {
namespace {

enum MarkerSegment { kPrevSegment, kAddSegment, kNextSegment };

constexpr QSize kFirstSize(960, 560);
constexpr int kFirstDestinations = 380;
constexpr int kRateDecimals = 2;
constexpr const char* kScaleName = "timecodeView.scale";
constexpr double kMostScale = 3;

QString textOf(std::string_view text) {
  return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

// Of the form, which makes what the other members stand on.
Ui::VLMainWindow* madeForm(VLMainWindow& window) {
  // A screen reader that runs asks for the form's controls while they are made.
  VLTimecodeAccessible::install();
  auto* form = new Ui::VLMainWindow;
  form->setupUi(&window);
  return form;
}

VLMainWindow::Choices choicesOf(std::span<const VLChoice> given,
                                const VLMainWindow::Chosen& chosen) {
  VLMainWindow::Choices choices{{}, chosen};
  for (const VLChoice& each : given) {
    choices.rows.push_back({VLTranslation::text(each.title), each.tag});
  }
  return choices;
}

}  // namespace

VLMainWindow::VLMainWindow()
    : mForm(madeForm(*this)),
      mTimecodeView(new VLTimecodeView(this)),
      mFrames(std::make_shared<VLSavedWindowFrames>()),
      mSheets(*this),
      mPanels(*this, mSheets),
      mMarkers(*mForm->markerTable, mSheets.performer()),
      mDestinations(*mForm->mtcDestinationsTable, mSheets.performer()),
      mDeviceWindows(mSheets.performer(), mFrames),
      mMenu(new VLMainMenu(*this)) {
  mForm->timecodeViewPlace->addWidget(mTimecodeView);
  // Screen readers read in this order.
  mTimecodeView->lower();
  mForm->destinationsContainer->lower();
  mForm->startButton->setFocus();
  setUpTransport();
  setUpMarkers();
  mForm->mainSplitView->setStretchFactor(0, 0);
  mForm->mainSplitView->setStretchFactor(1, 1);
  resize(kFirstSize);
  mForm->mainSplitView->setSizes({kFirstDestinations, kFirstSize.width() - kFirstDestinations});
}

VLMainWindow::~VLMainWindow() = default;

void VLMainWindow::connectButton(VLButton& button, std::function<void(VLAppDelegate&)> action,
                                 const QString& toolTip) {
  button.setToolTip(toolTip);
  connect(&button, &VLButton::clicked, this,
          [this, action = std::move(action)] { performOnController(action); });
}

void VLMainWindow::setUpTransport() {
  connectButton(
      *mForm->startButton, [](VLAppDelegate& app) { app.play(); }, tr("Play (Space)"));
  connectButton(
      *mForm->stopButton, [](VLAppDelegate& app) { app.stop(); },
      tr("Stop (Space); again: back to the start; with Ctrl: to zero"));
  connectButton(
      *mForm->armButton, [](VLAppDelegate& app) { app.arm(); },
      tr("Follow the sync source (Ctrl+Shift+A)"));
  connectButton(
      *mForm->prerollButton, [](VLAppDelegate& app) { app.togglePreroll(); },
      tr("Start early by the pre-roll time (Ctrl+Shift+P)"));
  connect(mForm->prerollButton, &VLButton::clicked, this, [this] { showClock(); });
  for (VLButton* each : transportButtons()) {
    each->setElided(true);
  }
  mForm->prerollButton->setIcon(VLIcons::icon("prerollTemplate"));
  connectButton(
      *mForm->playRateButton, [](VLAppDelegate& app) { app.openPlaybackRateSheet(); },
      tr("Play rate, as a difference to the normal speed (Ctrl+R)"));
  connect(mForm->formatPopupButton, &QComboBox::activated, this, [this](int index) {
    mSheets.perform(
        [&] { mFormats.chosen(mForm->formatPopupButton->itemData(index).toULongLong()); });
    setSelectedFormat(mSelectedFormat);  // a clock that runs keeps its format
  });
}

void VLMainWindow::setUpMarkers() {
  mForm->markerTable->addAction(&mMenu->deleteMenuItem());
  struct Row {
    VLButton* button;
    const char* icon;
    MarkerSegment segment;
    QString toolTip;
  };
  const Row rows[] = {
      {mForm->previousMarkerButton, "previousTemplate", kPrevSegment,
       tr("Previous marker (Ctrl+Left)")},
      {mForm->addMarkerButton, "addTemplate", kAddSegment, tr("Add a marker here (Ctrl+M)")},
      {mForm->nextMarkerButton, "nextTemplate", kNextSegment, tr("Next marker (Ctrl+Right)")}};
  for (const Row& row : rows) {
    row.button->setIcon(VLIcons::icon(row.icon));
    connectButton(
        *row.button, [segment = row.segment](VLAppDelegate& app) { app.moveToMarker(segment); },
        row.toolTip);
  }
}

void VLMainWindow::setController(const std::shared_ptr<VLAppDelegate>& controller) {
  mController = controller;
  mFrames->setController(controller);
  mMenu->setController(*controller);
  mMarkers.setController(controller);
  mDestinations.follow();
  mDeviceWindows.follow();
  controller->undoManager().setChanged(
      mSelf.job([](VLMainWindow& self) { self.mMenu->undoDidChange(); }));
  followClock(*controller);
}

void VLMainWindow::didLaunch() {
  bool isNumber = false;
  const double scale = mFrames->frame(kScaleName).toDouble(&isNumber);
  if (isNumber) {
    mTimecodeView->setScale(std::clamp(scale, 1.0, kMostScale));
  }
  VLWindowPlaces::keep(*this, "mainWindow", mFrames);
  mForm->statusRow->follow(mController.lock(), [this] {
    performOnController([this](VLAppDelegate& app) {
      if (const auto recovered = app.documents().recover(); !recovered) {
        presentError(recovered.error().text);
      }
    });
  });
}

void VLMainWindow::followClock(VLAppDelegate& controller) {
  const auto later = [job = mSelf.job([](VLMainWindow& self) { self.showClock(); })](const auto&) {
    host::current().mainQueue().async(job);
  };
  for (const char* key : {"playRate", "preroll"}) {
    mTokens.push_back(controller.clock().addObserver(key, later));
  }
  showClock();
}

void VLMainWindow::showClock() {
  performOnController([this](VLAppDelegate& app) {
    const double percent = app.clock().playRatePercent();
    mForm->playRateButton->setText((percent > 0 ? "+" : "") +
                                   QLocale::c().toString(percent, 'f', kRateDecimals) + " %");
    mForm->prerollButton->setChecked(app.clock().preroll());
  });
}

// --- what the user does

void VLMainWindow::performOnController(const std::function<void(VLAppDelegate&)>& action) {
  if (const auto controller = mController.lock()) {
    mSheets.perform([&] { action(*controller); });
  }
}

void VLMainWindow::quit() {
  if (mIsAskingToQuit) {
    mSheets.raise();
    return;
  }
  const auto controller = mController.lock();
  if (controller == nullptr ||
      controller->applicationShouldTerminate() == VLAppDelegate::TerminateReply::now) {
    host::current().mainQueue().stop();
    return;
  }
  mIsAskingToQuit = true;
}

void VLMainWindow::closeEvent(QCloseEvent* event) {
  event->ignore();
  quit();
}

void VLMainWindow::hideEvent(QHideEvent* event) {
  QMainWindow::hideEvent(event);
  mFrames->saveFrame(kScaleName, QByteArray::number(mTimecodeView->scale()));
}

void VLMainWindow::resizeEvent(QResizeEvent* event) {
  QMainWindow::resizeEvent(event);
  fitTransport();
}

std::array<VLButton*, 4> VLMainWindow::transportButtons() const {
  return {mForm->startButton, mForm->stopButton, mForm->armButton, mForm->prerollButton};
}

// In a narrow window the icons have to do.
void VLMainWindow::fitTransport() {
  const auto buttons = transportButtons();
  int missing = -width() + 2 * VLStyle::kEdge;
  for (VLButton* each : buttons) {
    each->setTextVisible(true);
  }
  missing += mForm->transportRow->sizeHint().width();
  for (VLButton* each : buttons) {
    each->setTextVisible(missing <= 0);
  }
  // The request for a layout is lost when the window grows within one.
  mForm->mainLayout->invalidate();
  mForm->mainLayout->activate();
}

// --- what the controller shows

void VLMainWindow::setStartImage(const Image& image) {
  mForm->startButton->setIcon(VLIcons::icon(image.name, image.tint));
}

void VLMainWindow::setStopImage(const Image& image) {
  mForm->stopButton->setIcon(VLIcons::icon(image.name, image.tint));
}

void VLMainWindow::setArmImage(const Image& image, bool on) {
  mForm->armButton->setIcon(VLIcons::icon(image.name, image.tint));
  mForm->armButton->setCheckable(on);
  mForm->armButton->setChecked(on);
}

void VLMainWindow::setTogglePlayKey(std::string_view keyEquivalent) {
  mMenu->togglePlayMenuItem().setShortcut(
      keyEquivalent == " " ? QKeySequence(Qt::Key_Space) : QKeySequence(textOf(keyEquivalent)));
}

void VLMainWindow::setPlayModes(std::span<const VLChoice> modes, const Chosen& chosen) {
  mPlayModes = choicesOf(modes, chosen);
  auto* control = new VLSegmentedControl(this);
  control->setObjectName("playbackModeControl");
  control->setAccessibleName(tr("Play Mode"));
  for (const Choices::Choice& each : mPlayModes.rows) {
    control->addSegment(each.title, each.tag);
  }
  connect(control, &VLSegmentedControl::segmentChosen, this,
          [this](std::uint64_t tag) { mSheets.perform([&] { mPlayModes.chosen(tag); }); });
  delete std::exchange(playbackModeControl, control);
  mForm->modePlace->addWidget(control);
  control->stackUnder(mForm->formatLabel);
  setTabs();
  fitTransport();
}

// The keyboard goes from the counters on, as people read.
void VLMainWindow::setTabs() {
  QWidgetList order{mTimecodeView};
  for (VLButton* each : transportButtons()) {
    order.push_back(each);
  }
  for (VLButton* each : playbackModeControl->findChildren<VLButton*>()) {
    order.push_back(each);
  }
  order += {mForm->formatPopupButton,    mForm->playRateButton,  mForm->mtcDestinationsTable,
            mForm->previousMarkerButton, mForm->addMarkerButton, mForm->nextMarkerButton,
            mForm->markerTable};
  for (VLButton* each : mForm->statusRow->findChildren<VLButton*>()) {
    order.push_back(each);
  }
  for (qsizetype i = 1; i < order.size(); ++i) {
    setTabOrder(order[i - 1], order[i]);
  }
}

void VLMainWindow::setSelectedPlayMode(std::uint64_t playMode) {
  if (playbackModeControl != nullptr) {
    playbackModeControl->setSelectedTag(playMode);
  }
}

void VLMainWindow::setFormats(std::span<const VLChoice> formats, const Chosen& chosen) {
  mFormats = choicesOf(formats, chosen);
  fillFormatPopup(*mForm->formatPopupButton);
}

void VLMainWindow::fillFormatPopup(QComboBox& popup) {
  popup.clear();
  for (const Choices::Choice& each : mFormats.rows) {
    popup.addItem(each.title, QVariant::fromValue<qulonglong>(each.tag));
  }
  popup.setCurrentIndex(popup.findData(QVariant::fromValue<qulonglong>(mSelectedFormat)));
}

void VLMainWindow::setSelectedFormat(std::uint32_t format) {
  mSelectedFormat = format;
  const QVariant tag = QVariant::fromValue<qulonglong>(format);
  mForm->formatPopupButton->setCurrentIndex(mForm->formatPopupButton->findData(tag));
  if (playrateSheet != nullptr) {
    QComboBox& popup = playrateSheet->formatPopupButton2();
    popup.setCurrentIndex(popup.findData(tag));
  }
}

void VLMainWindow::setNeedsDisplay() {
  centralWidget()->update();
}

std::shared_ptr<VLBigTimecodeOutlet> VLMainWindow::makeBigTimecodeWindow() {
  const auto bigWindow = std::make_shared<VLBigTimecodeWindowController>();
  VLWindowPlaces::keep(bigWindow->window(), bigWindow->window().objectName(), mFrames);
  return bigWindow;
}

std::shared_ptr<VLMediaPlaybackWindowOutlet> VLMainWindow::makeMediaPlaybackWindow(
    const std::shared_ptr<VLMediaPlaybackWindowController>& controller) {
  auto window = std::make_shared<VLMediaPlaybackWindow>(controller);
  VLWindowPlaces::keep(*window, window->objectName(), mFrames);
  return window;
}

void VLMainWindow::makeKeyAndOrderFront() {
  show();
  raise();
  activateWindow();
}

void VLMainWindow::showOSCSetup() {
  if (mOSCSetupWindow == nullptr) {
    mOSCSetupWindow = std::make_unique<VLOSCSetupWindowController>(mController.lock());
    VLWindowPlaces::keep(*mOSCSetupWindow, "oscSetupWindow", mFrames);
  }
  mOSCSetupWindow->showWindow();
}

void VLMainWindow::beginPlayRateSheet(double percent) {
  if (playrateSheet != nullptr) {
    mSheets.raise();
    return;
  }
  playrateSheet = new VLPlayRateSheet(
      percent,
      [this](double typed) {
        double current = typed;
        performOnController([&](VLAppDelegate& app) {
          app.clock().setPlayRatePercent(typed);
          current = app.clock().playRatePercent();
        });
        return current;
      },
      this);
  QComboBox& popup = playrateSheet->formatPopupButton2();
  fillFormatPopup(popup);
  connect(&popup, &QComboBox::activated, this, [this, &popup](int index) {
    mSheets.perform([&] { mFormats.chosen(popup.itemData(index).toULongLong()); });
    setSelectedFormat(mSelectedFormat);
  });
  mSheets.begin(*playrateSheet, nullptr);
}

void VLMainWindow::endPlayRateSheet() {
  if (playrateSheet != nullptr) {
    playrateSheet->accept();
  }
}

bool VLMainWindow::isControlKeyHeld() const {
  return VLEventModifiers::isControlHeld();
}

void VLMainWindow::presentAlert(const VLAlert& alert, VLAlert::Answer answer) {
  if (const auto given = mAnswerTo ? mAnswerTo(alert) : std::nullopt) {
    host::current().mainQueue().async(
        [answer = std::move(answer), isDefault = *given] { answer(isDefault); });
    return;
  }
  const auto text = [](const std::string& each) { return VLTranslation::text(each).toStdString(); };
  mSheets.ask(
      {text(alert.title), text(alert.message), text(alert.defaultButton), text(alert.otherButton)},
      [this, kind = alert.kind, answer = std::move(answer)](bool isDefault) {
        // The format may have been set, or the clock disarmed, while the question stood.
        const auto controller = mController.lock();
        const bool hasPassed = kind == VLAlert::Kind::wrongFormat && controller != nullptr &&
                               controller->clock().status() != VLClockArmedWrongFormat;
        if (!hasPassed && answer) {
          answer(isDefault);
        }
      });
}

void VLMainWindow::presentError(const std::string& text) {
  mSheets.presentError(text);
}

void VLMainWindow::beginSavePanel(std::string_view fileType, FileChosen chosen) {
  mPanels.beginSave(fileType, std::move(chosen));
}

void VLMainWindow::beginOpenPanel(std::string_view fileType, FileChosen chosen) {
  mPanels.beginOpen(fileType, std::move(chosen));
}

void VLMainWindow::replyToApplicationShouldTerminate(bool terminate) {
  mIsAskingToQuit = false;
  if (terminate) {
    host::current().mainQueue().stop();
  }
}

}  // namespace velor
