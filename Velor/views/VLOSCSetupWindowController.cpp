// SPDX-License-Identifier: MIT
#include "Velor/views/VLOSCSetupWindowController.h"

#include <ui_VLOSCSetupWindowController.h>

#include <QAction>
#include <QButtonGroup>
#include <QEvent>
#include <string>

#include "CocoaAsyncSocket/GCDAsyncUdpSocketError.h"
#include "Kv-Appkit/KVAssert.h"
#include "Velor/app/VLAppDelegate.h"
#include "Velor/osc/VLOSCServer.h"
#include "Velor/views/VLIcons.h"
#include "Velor/views/VLStyle.h"
#include "platform/host/Host.h"

namespace velor {
namespace {

constexpr QSize kFirstSize(560, 560);
constexpr const char* kErrorDomain = "Velor.OSC.Error";
constexpr int kStartError = -51000;

// Of the form, which makes what the other members stand on.
Ui::VLOSCSetupWindowController* madeForm(VLOSCSetupWindowController& window) {
  auto* form = new Ui::VLOSCSetupWindowController;
  form->setupUi(&window);
  form->serverView->lower();  // screen readers read it first
  return form;
}

}  // namespace

VLOSCSetupWindowController::VLOSCSetupWindowController(
    const std::shared_ptr<VLAppDelegate>& controller)
    : mForm(madeForm(*this)),
      mController(controller),
      mSheets(*this),
      mHosts(*mForm->allowedHostsTableView, mSheets.performer()),
      mTargets(*mForm->clientsTableView, mSheets) {
  mObserveRunningToken = VLOSCServer::sharedServer().addObserver(
      "running", [changed = mSelf.job([](VLOSCSetupWindowController& self) {
        self.runningChanged();
      })](const auto&) { host::current().mainQueue().async(changed); });
  windowDidLoad();
}

VLOSCSetupWindowController::~VLOSCSetupWindowController() {
  // An open editor ends with its model; otherwise it would commit to what has ended.
  mForm->allowedHostsTableView->setModel(nullptr);
  mForm->clientsTableView->setModel(nullptr);
}

void VLOSCSetupWindowController::windowDidLoad() {
  resize(kFirstSize);
  setUpFilterMode();
  mForm->stateLabel->setFont(VLStyle::secondaryFont(font()));
  runningChanged();
  if (!VLOSCServer::sharedServer().running()) {
    mForm->portField->setText(QString::number(VLOSCServer::kDefaultPort));
  }
  mForm->addTargetButton->setIcon(VLIcons::icon("addTemplate"));
  connect(mForm->startStopButton, &VLButton::clicked, this, [this] { changeServerStatus(); });
  connect(mForm->portField, &QLineEdit::returnPressed, this, [this] { changeServerStatus(); });
  connect(mForm->addTargetButton, &VLButton::clicked, this, [this] { addClientEntry(); });
  auto* remove = new QAction(this);
  remove->setObjectName("delete");
  remove->setShortcuts({Qt::Key_Delete, Qt::Key_Backspace});
  connect(remove, &QAction::triggered, this, [this] { deleteRows(); });
  addAction(remove);
}

void VLOSCSetupWindowController::setUpFilterMode() {
  if (mForm->filterModematrix == nullptr) {
    KVAssertionFailed("filterModeMatrix is nil", __FILE__, __LINE__);
  }
  QButtonGroup& matrix = *mForm->filterModematrix;
  matrix.setId(mForm->allowAllButton, VLOSCServer::kPromiscuousMode);
  matrix.setId(mForm->allowTickedButton, VLOSCServer::kFilteringMode);
  connect(&matrix, &QButtonGroup::idClicked, this, [this](int mode) {
    mSheets.perform([mode] { VLOSCServer::sharedServer().setFilterMode(mode); });
  });
  mObserveFilterModeToken = VLOSCServer::sharedServer().addObserver(
      "filterMode", [changed = mSelf.job([](VLOSCSetupWindowController& self) {
        self.filterModeChanged();
      })](const auto&) { host::current().mainQueue().async(changed); });
  filterModeChanged();
}

void VLOSCSetupWindowController::changeEvent(QEvent* event) {
  if (event->type() == QEvent::PaletteChange) {
    setColors();
  }
  QWidget::changeEvent(event);
}

// The port is read while it cannot be edited.
void VLOSCSetupWindowController::setColors() {
  QPalette field = palette();
  field.setColor(QPalette::Disabled, QPalette::Text, VLStyle::secondaryText(field));
  mForm->portField->setPalette(field);
  QPalette state = palette();
  if (VLOSCServer::sharedServer().running()) {
    state.setColor(QPalette::WindowText, VLStyle::color(VLStyle::State::running, state));
  }
  mForm->stateLabel->setPalette(state);
}

void VLOSCSetupWindowController::showWindow() {
  show();
  raise();
  activateWindow();
}

// --- the server

void VLOSCSetupWindowController::changeServerStatus() {
  mSheets.perform([this] {
    VLOSCServer& server = VLOSCServer::sharedServer();
    server.running() ? server.stop() : startAtPortOfField();
  });
}

void VLOSCSetupWindowController::startAtPortOfField() {
  const QString text = mForm->portField->text().trimmed();
  bool isNumber = false;
  const qlonglong number = text.toLongLong(&isNumber);
  if (!isNumber) {
    mSheets.presentError(tr("'%1' is not a port; expected a number").arg(text).toStdString());
    return;
  }
  const auto port = static_cast<std::uint16_t>(number);
  const auto started = VLOSCServer::sharedServer().startUdPServerAtPort(port);
  if (started) {
    return;
  }
  const GCDAsyncUdpSocketError error =
      !started.error().text.empty()
          ? started.error()
          : GCDAsyncUdpSocketError{kErrorDomain, kStartError, "Error starting OSC Server", ""};
  mSheets.presentError(tr("OSC cannot use port %1: %2")
                           .arg(port)
                           .arg(QString::fromStdString(error.description()))
                           .toStdString());
}

void VLOSCSetupWindowController::runningChanged() {
  const VLOSCServer& server = VLOSCServer::sharedServer();
  const bool isRunning = server.running();
  mForm->portField->setReadOnly(isRunning);
  mForm->portField->setEnabled(!isRunning);
  if (isRunning) {
    mForm->portField->setText(QString::number(server.port()));
  }
  mForm->startStopButton->setText(isRunning ? tr("Stop") : tr("Start"));
  mForm->startStopButton->setIcon(VLIcons::icon(isRunning ? "stopTemplate" : "playTemplate"));
  mForm->stateLabel->setText(isRunning ? tr("running") : tr("stopped"));
  setColors();
}

void VLOSCSetupWindowController::filterModeChanged() {
  const bool isOpen = VLOSCServer::sharedServer().filterMode() == VLOSCServer::kPromiscuousMode;
  (isOpen ? mForm->allowAllButton : mForm->allowTickedButton)->setChecked(true);
}

// --- the tables

void VLOSCSetupWindowController::addClientEntry() {
  if (const auto controller = mController.lock()) {
    mSheets.perform([&] { mTargets.addClientEntry(*controller); });
  }
}

void VLOSCSetupWindowController::deleteRows() {
  mSheets.perform([this] {
    if (mForm->clientsTableView->hasFocus()) {
      mTargets.remove();
    } else if (mForm->allowedHostsTableView->hasFocus()) {
      mHosts.remove();
    }
  });
}

}  // namespace velor
