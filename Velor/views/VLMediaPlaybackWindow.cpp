// SPDX-License-Identifier: MIT
#include "Velor/views/VLMediaPlaybackWindow.h"

#include <ui_VLMediaPlaybackWindow.h>

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QMenu>
#include <QSignalBlocker>
#include <QVBoxLayout>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <string>
#include <vector>

#include "Velor/views/VLIcons.h"
#include "Velor/views/VLStyle.h"
#include "kva/KAHALAudioDevice.h"
#include "kva/KAHALAudioSystem.h"
#include "kvtimecode/SMPTEString.h"
#include "platform/audio/builtin/BuiltinAudio.h"
#include "platform/host/Host.h"

namespace velor {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

constexpr QSize kFirstSize(800, 640);
constexpr int kCascade = 32;  // between windows that would cover each other
constexpr std::uint64_t kPositionInterval = 100'000'000;  // ns

// Of the form, which makes what the other members stand on.
Ui::VLMediaPlaybackWindow* madeForm(VLMediaPlaybackWindow& window) {
  auto* form = new Ui::VLMediaPlaybackWindow;
  form->setupUi(&window);
  return form;
}

int millisecondsOf(media::MediaTime time) {
  return static_cast<int>(duration_cast<milliseconds>(time).count());
}

QString minutesOf(media::MediaTime time) {
  const auto seconds = std::max<std::int64_t>(duration_cast<std::chrono::seconds>(time).count(), 0);
  return QString("%1:%2").arg(seconds / 60, 2, 10, QChar('0')).arg(seconds % 60, 2, 10, QChar('0'));
}

std::size_t channelsOf(const media::Player& player) {
  std::size_t channels = 0;
  for (std::size_t track = 0; track < player.audioTrackCount(); ++track) {
    channels = std::max(channels, player.audioChannelCount(track));
  }
  return channels;
}

}  // namespace

VLMediaPlaybackWindow::VLMediaPlaybackWindow(const std::shared_ptr<Controller>& controller)
    : mForm(madeForm(*this)),
      mController(controller),
      mSheets(*this),
      mPanels(*this, mSheets),
      mActionMenu(new QMenu(this)),
      mLeaveFullScreen(new QAction(this)),
      mChooseButton(new VLButton(mForm->playerView)),
      mPositionTimer(host::current().mainQueue(),
                     mSelf.job([](VLMediaPlaybackWindow& self) { self.showPosition(); })) {
  resize(kFirstSize);
  setUpTransport();
  setUpSettings();
  setUpActionMenu();
  setUpFullScreen();
  setUpChooseButton();
  mAudioToken = KAHALAudioSystem::defaultSystem().addObserver(
      "defaultOutputDevice", [job = mSelf.job([](VLMediaPlaybackWindow& self) {
        self.showNotice();
      })](const auto&) { host::current().mainQueue().async(job); });
  showNotice();
  playerDidChange();
}

VLMediaPlaybackWindow::~VLMediaPlaybackWindow() = default;

template <class Action>
void VLMediaPlaybackWindow::perform(Action action) {
  if (const auto controller = mController.lock()) {
    mSheets.perform([&] { action(*controller); });
  }
}

void VLMediaPlaybackWindow::setUpTransport() {
  mForm->positionLabel->setFont(VLStyle::timeFont(font()));
  mForm->previousFrameButton->setIcon(VLIcons::icon("stepBackTemplate"));
  mForm->nextFrameButton->setIcon(VLIcons::icon("stepForwardTemplate"));
  mForm->fullScreenButton->setIcon(VLIcons::icon("fullScreenTemplate"));
  for (VLButton* each :
       {mForm->previousFrameButton, mForm->nextFrameButton, mForm->fullScreenButton}) {
    each->setTextVisible(false);
  }
  connect(mForm->playButton, &VLButton::clicked, this, [this] {
    perform([](Controller& controller) {
      VLMediaPlayer& player = *controller.mediaPlayer();
      player.player().rate() == 0 ? player.play() : player.pause();
    });
    playerDidChange();
  });
  const auto connectStep = [this](VLButton& button, int frames) {
    connect(&button, &VLButton::clicked, this, [this, frames] {
      perform([frames](Controller& controller) {
        VLMediaPlayer& player = *controller.mediaPlayer();
        if (player.player().rate() != 0) {
          player.pause();
        }
        player.player().stepByCount(frames);
      });
    });
  };
  connectStep(*mForm->previousFrameButton, -1);
  connectStep(*mForm->nextFrameButton, 1);
  connect(mForm->positionSlider, &QSlider::valueChanged, this, [this](int place) {
    perform([place](Controller& controller) {
      controller.mediaPlayer()->player().seekToTime(milliseconds(place), [](bool /*finished*/) {});
    });
  });
  connect(mForm->positionSlider, &QSlider::sliderReleased, this, [this] { showPosition(); });
}

void VLMediaPlaybackWindow::setUpSettings() {
  connect(mForm->volumeSlider, &QSlider::valueChanged, this, [this](int place) {
    perform([&](Controller& controller) {
      controller.setVolume(static_cast<float>(place) /
                           static_cast<float>(mForm->volumeSlider->maximum()));
    });
  });
  connect(mForm->audioPopUpButton, &QComboBox::activated, this, [this](int index) {
    perform([&](Controller& controller) {
      controller.setAudioSumMode(mForm->audioPopUpButton->itemData(index).toInt());
    });
  });
  connect(mForm->onlineButton, &VLButton::clicked, this, [this](bool isOnline) {
    perform([isOnline](Controller& controller) { controller.setOnline(isOnline); });
  });
  mForm->clipStartTimeField->setDelegate(mSelf);
}

void VLMediaPlaybackWindow::setUpActionMenu() {
  mActionMenu->setTitle(tr("Action"));
  const auto add = [this](const char* name, const QString& text, void (Controller::*set)(bool)) {
    QAction* item = mActionMenu->addAction(text);
    item->setObjectName(name);
    item->setCheckable(true);
    connect(item, &QAction::triggered, this, [this, set](bool isOn) {
      perform([set, isOn](Controller& controller) { (controller.*set)(isOn); });
    });
    return item;
  };
  mControlMasterClock =
      add("controlMasterClock", tr("control master clock"), &Controller::setControlMasterClock);
  mAdjustSpeed = add("adjustSpeed", tr("adjust playback speed"), &Controller::setAdjustSpeed);
  mActionMenu->addSeparator();
  QAction* choose = mActionMenu->addAction(tr("Choose Another Clip ..."));
  choose->setObjectName("chooseClip");
  connect(choose, &QAction::triggered, this,
          [this] { perform([](Controller& controller) { controller.runOpenPanel(); }); });
  // The button's own way to show a menu runs a loop of its own.
  connect(mForm->actionButton, &VLButton::clicked, this, [this] {
    const QSize size = mActionMenu->sizeHint();
    const VLButton& button = *mForm->actionButton;
    mActionMenu->popup(button.mapToGlobal(QPoint(button.width() - size.width(), -size.height())));
  });
}

void VLMediaPlaybackWindow::setUpFullScreen() {
  mLeaveFullScreen->setShortcut(Qt::Key_Escape);
  mLeaveFullScreen->setEnabled(false);
  addAction(mLeaveFullScreen);
  connect(mLeaveFullScreen, &QAction::triggered, this, [this] { toggleFullScreen(); });
  connect(mForm->fullScreenButton, &VLButton::clicked, this, [this] { toggleFullScreen(); });
  connect(mForm->playerView, &VLVideoView::doubleClicked, this, [this] { toggleFullScreen(); });
}

void VLMediaPlaybackWindow::toggleFullScreen() {
  setWindowState(windowState() ^ Qt::WindowFullScreen);
}

// For a clip that cannot be played: its reason is above.
void VLMediaPlaybackWindow::setUpChooseButton() {
  mChooseButton->setObjectName("chooseClipButton");
  mChooseButton->setText(tr("Choose Another Clip ..."));
  mChooseButton->hide();
  auto* layout = new QVBoxLayout(mForm->playerView);
  layout->setContentsMargins(VLStyle::kEdge, VLStyle::kEdge, VLStyle::kEdge, VLStyle::kEdge);
  layout->addStretch();
  layout->addWidget(mChooseButton, 0, Qt::AlignHCenter);
  connect(mChooseButton, &VLButton::clicked, this,
          [this] { perform([](Controller& controller) { controller.runOpenPanel(); }); });
}

// The user's window manager can do it, too.
void VLMediaPlaybackWindow::showFullScreenState() {
  mForm->controls->setVisible(!isFullScreen());
  mForm->playerView->setCursor(isFullScreen() ? Qt::BlankCursor : Qt::ArrowCursor);
  mLeaveFullScreen->setEnabled(isFullScreen());
}

// --- the window

void VLMediaPlaybackWindow::showWindow() {
  if (!mIsOpen) {
    setWindowState(windowState() & ~Qt::WindowFullScreen);  // of the run before
    moveBesideOthers();
  }
  mIsOpen = true;
  show();
  raise();
  activateWindow();
}

void VLMediaPlaybackWindow::moveBesideOthers() {
  const QWidgetList all = QApplication::topLevelWidgets();
  const auto isCovered = [&] {
    return std::ranges::any_of(all, [this](const QWidget* each) {
      return each != this && each->isVisible() && each->objectName() == objectName() &&
             each->pos() == pos();
    });
  };
  while (isCovered()) {
    move(pos() + QPoint(kCascade, kCascade));
  }
}

void VLMediaPlaybackWindow::changeEvent(QEvent* event) {
  if (event->type() == QEvent::WindowStateChange) {
    showFullScreenState();
  } else if (event->type() == QEvent::PaletteChange) {
    setColors();
  }
  QWidget::changeEvent(event);
}

void VLMediaPlaybackWindow::closeEvent(QCloseEvent* event) {
  QWidget::closeEvent(event);
  mIsOpen = false;
  if (const auto controller = mController.lock()) {
    controller->windowWillClose();
    // It owns the window, which is still needed until the event is over.
    host::current().mainQueue().async([controller] {});
  }
}

// --- what the controller shows

void VLMediaPlaybackWindow::setTitle(const std::string& text) {
  const QString title = QString::fromStdString(text);
  setWindowTitle(title);
  mForm->clipTitleField->setText(title);
  mForm->clipTitleField->setCursorPosition(0);
}

void VLMediaPlaybackWindow::setMTCIn(const std::string& text) {
  mForm->mtcInField->setText(QString::fromStdString(text));
}

void VLMediaPlaybackWindow::setMTCInStatus(VLClockStatus status) {
  mStatus = status;
  mHasStarted = true;
  setColors();
}

void VLMediaPlaybackWindow::setDeviation(const std::string& text) {
  mForm->deviationField->setText(QString::fromStdString(text));
}

void VLMediaPlaybackWindow::settingsDidChange() {
  const auto controller = mController.lock();
  if (controller == nullptr) {
    return;
  }
  mForm->onlineButton->setChecked(controller->online());
  mForm->onlineButton->setIcon(controller->online()
                                   ? VLIcons::icon("clockTemplate", VLStyle::State::armed)
                                   : VLIcons::icon("clockTemplate"));
  mControlMasterClock->setChecked(controller->controlMasterClock());
  mAdjustSpeed->setChecked(controller->adjustSpeed());
  // What is being typed stays.
  const VLTimecodeField& field = *mForm->clipStartTimeField;
  const KVSMPTETime& start = controller->clipStartTime();
  if (field.timecodeType() != start.type() ||
      stringFromSMPTETime(field.smpteTime()) != start.stringValue()) {
    mForm->clipStartTimeField->setSmpteTime(start.timeStamp());
  }
  const QSignalBlocker isShown(mForm->volumeSlider);
  mForm->volumeSlider->setValue(static_cast<int>(
      std::lround(controller->volume() * static_cast<float>(mForm->volumeSlider->maximum()))));
  showAudioChoices(*controller);
  setColors();
}

void VLMediaPlaybackWindow::showAudioChoices(const Controller& controller) {
  std::vector<VLPopupButton::Choice> choices{{tr("All channels"), VLMonoSumTap::kNoSumming}};
  const std::size_t channels =
      controller.isReady() ? channelsOf(controller.mediaPlayer()->player()) : 0;
  for (std::size_t channel = 0; channel < channels; ++channel) {
    choices.push_back({tr("Mono on %1").arg(channel + 1), static_cast<std::int64_t>(channel)});
  }
  mForm->audioPopUpButton->setChoices(choices, controller.audioSumMode());
  mForm->audioPopUpButton->setEnabled(channels > 0);
}

void VLMediaPlaybackWindow::timecodeFieldDidChangeTimecode(VLTimecodeField& field) {
  perform([&field](Controller& controller) { controller.setClipStartTime(field.smpteTime()); });
}

void VLMediaPlaybackWindow::playerDidChange() {
  const auto controller = mController.lock();
  if (controller == nullptr) {
    return;
  }
  const bool isReady = controller->isReady();
  for (QWidget* each : std::initializer_list<QWidget*>{
           mForm->playButton, mForm->previousFrameButton, mForm->nextFrameButton,
           mForm->positionSlider, mForm->volumeSlider}) {
    each->setEnabled(isReady);
  }
  const bool isRunning = isReady && controller->mediaPlayer()->player().rate() != 0;
  mForm->playButton->setIcon(isRunning ? VLIcons::icon("pauseTemplate", VLStyle::State::running)
                                       : VLIcons::icon("playTemplate"));
  mForm->playButton->setCheckable(isRunning);
  mForm->playButton->setChecked(isRunning);
  if (!isReady) {
    mForm->playerView->setFrame(nullptr);
    mHasStarted = false;
  }
  setColors();
  mForm->playerView->setText(textWithoutPicture(*controller));
  mChooseButton->setVisible(!controller->error().empty());
  showPosition();
}

QString VLMediaPlaybackWindow::textWithoutPicture(const Controller& controller) const {
  if (!controller.error().empty()) {
    return QString::fromStdString(controller.error());
  }
  if (controller.mediaPlayer() == nullptr) {
    return tr("No clip.");
  }
  if (!controller.isReady()) {
    return tr("Opening the clip ...");
  }
  return std::isnan(controller.mediaPlayer()->player().nominalFrameRate())
             ? tr("This clip has no picture.")
             : QString();
}

void VLMediaPlaybackWindow::playerHasFrame() {
  const auto controller = mController.lock();
  if (controller == nullptr || controller->mediaPlayer() == nullptr) {
    return;
  }
  if (auto frame = controller->mediaPlayer()->player().takeFrame()) {
    mForm->playerView->setFrame(std::move(frame));
  }
}

// Again and again while the clip runs.
void VLMediaPlaybackWindow::showPosition() {
  const auto controller = mController.lock();
  if (controller == nullptr || !controller->isReady()) {
    mForm->positionLabel->setText("--:-- / --:--");
    return;
  }
  const media::Player& player = controller->mediaPlayer()->player();
  const QSignalBlocker isShown(mForm->positionSlider);
  mForm->positionSlider->setMaximum(millisecondsOf(player.duration()));
  if (!mForm->positionSlider->isSliderDown()) {
    mForm->positionSlider->setValue(millisecondsOf(player.currentTime()));
  }
  mForm->positionLabel->setText(minutesOf(player.currentTime()) + " / " +
                                minutesOf(player.duration()));
  if (player.rate() != 0) {
    mPositionTimer.setDeadline(host::current().AudioGetCurrentHostTime() + kPositionInterval);
    mPositionTimer.resume();
  }
}

void VLMediaPlaybackWindow::showNotice() {
  const auto output = KAHALAudioSystem::defaultSystem().defaultOutputDevice();
  const std::string loopback = audio::BuiltinAudio::loopback().name;
  const bool isHeard = output != nullptr && output->name() != loopback;
  mForm->noticeLabel->setText(
      tr("No sound server: the sound plays on \"%1\", where nobody hears it.")
          .arg(QString::fromStdString(loopback)));
  mForm->noticeLabel->setVisible(!isHeard);
}

// A state is told by its word as well. The colour of the time is that of the chase, which does
// not hear of a clip that came to its end or was paused; the word is that of the clip.
void VLMediaPlaybackWindow::setColors() {
  const QPalette plain = palette();
  const auto controller = mController.lock();
  const bool isReady = controller != nullptr && controller->isReady();
  const bool isRunning = isReady && controller->mediaPlayer()->player().rate() != 0;
  const bool isBroken = controller != nullptr && !controller->error().empty();
  const bool isInStep = mHasStarted && mStatus == VLClockRolling;
  const auto colored = [&](bool isGood) {
    QPalette palette = plain;
    if (mHasStarted) {
      const auto state = isGood ? VLStyle::State::running : VLStyle::State::stopped;
      palette.setColor(QPalette::Text, VLStyle::color(state, plain));
      palette.setColor(QPalette::WindowText, VLStyle::color(state, plain));
    }
    return palette;
  };
  const bool isOnline = controller == nullptr || controller->online();
  mForm->chaseLabel->setText(isBroken                ? QString()
                             : isInStep && isRunning ? tr("in step with MTC")
                             : !isOnline             ? tr("off line")
                             : mHasStarted           ? tr("stopped")
                                                     : tr("waiting for MTC"));
  mForm->chaseLabel->setPalette(colored(isInStep && isRunning));
  // The texts stand on the window and not in a field.
  for (QLineEdit* each : std::initializer_list<QLineEdit*>{
           mForm->clipTitleField, mForm->deviationField, mForm->mtcInField}) {
    QPalette onWindow = each == mForm->mtcInField ? colored(isInStep) : plain;
    onWindow.setColor(QPalette::Base, Qt::transparent);
    each->setPalette(onWindow);
  }
  QPalette notice = plain;
  notice.setColor(QPalette::WindowText, VLStyle::color(VLStyle::State::warning, plain));
  mForm->noticeLabel->setPalette(notice);
}

}  // namespace velor
