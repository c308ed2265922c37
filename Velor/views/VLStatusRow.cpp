// SPDX-License-Identifier: MIT
#include "Velor/views/VLStatusRow.h"

#include <QHBoxLayout>
#include <QPainter>
#include <QStringList>
#include <algorithm>
#include <array>
#include <ctime>
#include <utility>

#include "Velor/app/VLAppDelegate.h"
#include "Velor/osc/VLOSCServer.h"
#include "Velor/views/VLButton.h"
#include "Velor/views/VLElidedLabel.h"
#include "Velor/views/VLIcons.h"
#include "Velor/views/VLStyle.h"
#include "kva/KAHALAudioSystem.h"
#include "kvtimecode/SMPTEString.h"
#include "platform/audio/AudioService.h"
#include "platform/host/Host.h"
#include "platform/host/LogProblem.h"
#include "platform/midi/MIDIService.h"

namespace velor {
namespace {

// In pixels.
constexpr int kLeastOfWarning = 104;
constexpr int kMostOfWarning = 360;
constexpr int kMostOfState = 280;                     // that a text keeps; the rest gives way
constexpr int kMostOfLastRun = 136;                   // of its text, in the same way
constexpr std::uint64_t kLookInterval = 500'000'000;  // ns, for what nobody reports

QString timeOfDay() {
  const timeval now = host::current().gettimeofday();
  std::tm local{};
  localtime_r(&now.tv_sec, &local);
  std::array<char, 16> text{};
  std::strftime(text.data(), text.size(), "%H:%M:%S", &local);
  return QString::fromLatin1(text.data());
}

}  // namespace

VLStatusRow::VLStatusRow(QWidget* parent)
    : QWidget(parent),
      mLayout(new QHBoxLayout(this)),
      mServer(addText("serverStatus")),
      mSync(addText("syncStatus")),
      mOSC(addText("oscStatus")),
      mWarning(new VLButton(this)),
      mLastRun(new VLElidedLabel(this)),
      mRecover(new VLButton(this)) {
  mLayout->setContentsMargins(0, 0, 0, 0);
  mLayout->setSpacing(VLStyle::kGap);
  mLayout->addStretch(1);
  mWarning->setObjectName("lastWarning");
  mWarning->setIcon(VLIcons::icon("warningTemplate"));
  mWarning->setIconSize({VLStyle::kIcon, VLStyle::kIcon});
  mWarning->setMinimumWidth(kLeastOfWarning);
  mWarning->setMaximumWidth(kMostOfWarning);
  mWarning->setElided(true);
  connect(mWarning, &VLButton::clicked, mWarning, &QWidget::hide);
  mLayout->addWidget(mWarning, 0);
  mLastRun->setObjectName("lastRun");
  mLastRun->setFont(VLStyle::secondaryFont(font()));
  mLayout->addWidget(mLastRun, 0);
  mRecover->setObjectName("recover");
  mRecover->setText(tr("Recover"));
  mRecover->setAccessibleName(mRecover->text());
  mLayout->addWidget(mRecover, 0);
  for (QWidget* each : {static_cast<QWidget*>(mWarning), static_cast<QWidget*>(mLastRun),
                        static_cast<QWidget*>(mRecover)}) {
    each->hide();
  }
  setFixedHeight(VLStyle::kControlHeight);
}

VLStatusRow::~VLStatusRow() = default;

VLElidedLabel* VLStatusRow::addText(const char* name) {
  if (mLayout->count() > 0) {
    mLayout->addSpacing(VLStyle::kGap);  // with a line in its middle
  }
  auto* label = new VLElidedLabel(this);
  label->setObjectName(name);
  label->setFont(VLStyle::secondaryFont(font()));
  mLayout->addWidget(label);
  return label;
}

void VLStatusRow::show(VLElidedLabel& label, const QString& text, int kept) {
  label.setText(text);
  label.setMinimumWidth(std::min(label.sizeHint().width(), kept));
}

void VLStatusRow::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setPen(VLStyle::line(palette()));
  for (const QWidget* each : {mSync, mOSC}) {
    const int x = each->x() - VLStyle::kGap;
    painter.drawLine(x, (height() - VLStyle::kIcon) / 2, x, (height() + VLStyle::kIcon) / 2);
  }
}

void VLStatusRow::follow(const std::shared_ptr<VLAppDelegate>& controller,
                         std::function<void()> recover) {
  mController = controller;
  mWarningShown = host::lastLogProblem().number;
  connect(mRecover, &VLButton::clicked, this, [this, recover = std::move(recover)] {
    recover();
    refresh();
  });
  const auto later = [job = mSelf.job([](VLStatusRow& self) { self.refresh(); })](const auto&) {
    host::current().mainQueue().async(job);
  };
  for (const char* key : {"status", "smpteFormat", "MIDISyncSource"}) {
    mTokens.push_back(controller->clock().addObserver(key, later));
  }
  mTokens.push_back(KAHALAudioSystem::defaultSystem().addObserver("serverStatus", later));
  mTokens.push_back(controller->server().addObserver("running", later));
  lookAgain();
}

// Nobody reports warnings, the MIDI server, nor a port that OSC cannot have.
void VLStatusRow::lookAgain() {
  refresh();
  showWarning();
  host::current().mainQueue().after(kLookInterval,
                                    mSelf.job([](VLStatusRow& self) { self.lookAgain(); }));
}

QString VLStatusRow::serverText() {
  const QString audioText = audioServerText();
  return midi::service().isConnected() ? audioText : tr("No MIDI server") + " · " + audioText;
}

QString VLStatusRow::audioServerText() {
  const audio::AudioServerStatus status = KAHALAudioSystem::defaultSystem().serverStatus();
  const QString name = QString::fromStdString(audio::service().serverDescription());
  if (status.sampleRate <= 0) {
    return name;
  }
  // What follows the comma says the rate again.
  return tr("%1 %2 kHz / %3 · %4 xruns", "the server, its sample rate, its period")
      .arg(name.section(',', 0, 0), QString::number(status.sampleRate / 1000),
           QString::number(status.period), QString::number(status.xruns));
}

QString VLStatusRow::syncText(const VLAppDelegate& controller) const {
  const auto source = controller.syncSource();
  if (source == nullptr) {
    return tr("MTC in: none");
  }
  const QString name = QString::fromStdString(source->displayName().value_or(""));
  const QString format =
      QString::fromStdString(stringFromSMPTEFormat(controller.clock().smpteFormat()));
  switch (controller.clock().status()) {
    case VLClockChasing:
      return tr("MTC in: %1, %2, chasing").arg(name, format);
    case VLClockArmed:
      return tr("MTC in: %1, %2, waiting").arg(name, format);
    case VLClockArmedWrongFormat:
      return tr("MTC in: %1, wrong format").arg(name);
    default:
      return tr("MTC in: %1, not armed").arg(name);
  }
}

QString VLStatusRow::oscText() {
  const VLOSCServer& server = VLOSCServer::sharedServer();
  if (server.running()) {
    return tr("OSC %1").arg(server.port());
  }
  const auto refused = server.refusedPort();
  return refused ? tr("OSC: port %1 is not available").arg(*refused) : tr("OSC off");
}

void VLStatusRow::showWarning() {
  const host::LogProblem problem = host::lastLogProblem();
  if (problem.number == mWarningShown) {
    return;
  }
  mWarningShown = problem.number;
  const QString whole = timeOfDay() + "  " + QString::fromStdString(problem.line);
  mWarning->setText(whole.simplified());
  mWarning->setAccessibleName(whole);
  mWarning->setToolTip(whole + "\n" + tr("Click to dismiss"));
  mWarning->show();
}

void VLStatusRow::showLastRun(VLAppDelegate& controller) {
  const VLRecovery& recovery = controller.documents().recovery();
  const bool canRecover = recovery.leftBehind().has_value() && !recovery.isBesideAnother();
  const auto& lastStateError = controller.documents().lastStateError();
  const QString error = lastStateError ? QString::fromStdString(lastStateError->text) : QString();
  const auto& reports = controller.documents().crashReports();
  show(*mLastRun,
       !reports.empty()  ? tr("Crash report: %1").arg(QString::fromStdString(reports.back()))
       : canRecover      ? tr("Last run interrupted")
       : error.isEmpty() ? QString()
                         : tr("Last state not restored: %1").arg(error),
       kMostOfLastRun);
  mLastRun->setVisible(!mLastRun->text().isEmpty());
  mRecover->setVisible(canRecover);
}

void VLStatusRow::refresh() {
  const auto controller = mController.lock();
  if (controller == nullptr) {
    return;
  }
  show(*mServer, serverText(), kMostOfState);
  mSync->setText(syncText(*controller));
  show(*mOSC, oscText(), kMostOfState);
  showLastRun(*controller);
}

QString VLStatusRow::stringValue() const {
  QStringList texts{mServer->text(), mSync->text(), mOSC->text()};
  if (mWarning->isVisibleTo(this)) {
    texts.push_back(mWarning->accessibleName());
  }
  if (mLastRun->isVisibleTo(this)) {
    texts.push_back(mLastRun->text());
  }
  return texts.join(" | ");
}

}  // namespace velor
