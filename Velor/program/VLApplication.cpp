// SPDX-License-Identifier: MIT
#include "Velor/program/VLApplication.h"

#include <QIcon>
#include <array>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <utility>

#include "platform/host/Log.h"

namespace velor {
namespace {

// Qt keeps references to them. It gets none of the arguments: all of them are ours.
int gArgumentCount = 1;
std::array<char, 6> gName{"velor"};
std::array<char*, 2> gArguments{gName.data(), nullptr};

VLApplication::NoDisplay gNoDisplay = nullptr;  // until a display is open

bool isSet(const char* name) {
  return !qEnvironmentVariableIsEmpty(name);
}

// A display that cannot be opened is reported in no other way, and Qt aborts when this
// returns from a fatal message.
void takeMessage(QtMsgType type, const QMessageLogContext& /*context*/, const QString& message) {
  const QByteArray text = message.toUtf8();
  if (type == QtFatalMsg && gNoDisplay != nullptr) {
    const int status = std::exchange(gNoDisplay, nullptr)();
    std::fflush(nullptr);
    std::_Exit(status);
  }
  if (type == QtFatalMsg || type == QtCriticalMsg) {
    VELOR_LOG_ERROR("Qt: %s", text.constData());
  } else if (type == QtWarningMsg) {
    // Not a warning to the user, who can do nothing about it.
    VELOR_LOG_INFO("Qt: %s", text.constData());
  } else {
    VELOR_LOG_DEBUG("Qt: %s", text.constData());
  }
}

// Before the application object, which reads it.
int& prepare(VLApplication::NoDisplay noDisplay) {
  gNoDisplay = noDisplay;
  qInstallMessageHandler(&takeMessage);
  if (!isSet("QT_QPA_PLATFORM") && !isSet("DISPLAY") && isSet("WAYLAND_DISPLAY")) {
    qputenv("QT_QPA_PLATFORM", "wayland");  // Qt would try X11 alone
  }
  QCoreApplication::setApplicationName("velor");
  QGuiApplication::setDesktopFileName("velor");
  return gArgumentCount;
}

}  // namespace

bool VLApplication::isDisplayNamed() {
  return isSet("DISPLAY") || isSet("WAYLAND_DISPLAY") || isSet("QT_QPA_PLATFORM");
}

VLApplication::VLApplication(NoDisplay noDisplay)
    : QApplication(prepare(noDisplay), gArguments.data()) {
  gNoDisplay = nullptr;
  // Qt has taken the user's locale. Times and rates have a decimal point in all of them.
  std::setlocale(LC_NUMERIC, "C");
  setQuitOnLastWindowClosed(false);
  setWindowIcon(QIcon::fromTheme("velor"));  // where the desktop does not take it from the entry
}

VLApplication::~VLApplication() {
  qInstallMessageHandler(nullptr);
}

void VLApplication::setPresentError(std::function<void(const std::string& text)> presentError) {
  mPresentError = std::move(presentError);
}

bool VLApplication::notify(QObject* receiver, QEvent* event) {
  try {
    return QApplication::notify(receiver, event);
  } catch (const std::exception& failure) {
    VELOR_LOG_ERROR("%s", failure.what());
    if (mPresentError) {
      mPresentError(failure.what());
    }
    return true;
  }
}

}  // namespace velor
