// SPDX-License-Identifier: MIT
#include "Velor/views/VLMediaScreen.h"

#include <QCloseEvent>
#include <QGuiApplication>
#include <QScreen>
#include <QShortcut>
#include <QStringList>
#include <utility>

#include "Velor/views/VLVideoView.h"
#include "platform/host/Log.h"

namespace velor {

VLMediaScreen::VLMediaScreen(QScreen& screen, std::function<void()> closed)
    : QWidget(nullptr, Qt::FramelessWindowHint), mName(screen.name()), mClosed(std::move(closed)) {
  setObjectName("mediaScreen");
  setWindowTitle("Velor");
  setCursor(Qt::BlankCursor);
  QPalette black;
  black.setColor(QPalette::Window, Qt::black);
  setPalette(black);
  auto* quit = new QShortcut(QKeySequence::Quit, this);
  connect(quit, &QShortcut::activated, this, [this] { close(); });
  connect(qGuiApp, &QGuiApplication::screenAdded, this, &VLMediaScreen::screenCame);
  connect(qGuiApp, &QGuiApplication::screenRemoved, this, &VLMediaScreen::screenWent);
  showOn(screen);
}

QScreen* VLMediaScreen::screenOf(const QString& text) {
  const auto screens = QGuiApplication::screens();
  for (QScreen* screen : screens) {
    if (screen->name() == text) {
      return screen;
    }
  }
  return screens.value(text.isEmpty() ? 0 : text.toInt() - 1);
}

QString VLMediaScreen::screens() {
  QStringList texts;
  for (const QScreen* screen : QGuiApplication::screens()) {
    texts << QString("%1 '%2'").arg(texts.size() + 1).arg(screen->name());
  }
  return texts.join(", ");
}

VLVideoView& VLMediaScreen::addView() {
  auto* view = new VLVideoView(this);
  view->setGeometry(rect());
  view->show();
  mViews << view;
  return *view;
}

void VLMediaScreen::setRunning(VLVideoView& view, bool isRunning) {
  if (isRunning == mRunning.contains(&view)) {
    return;
  }
  isRunning ? mRunning.append(&view) : static_cast<void>(mRunning.removeOne(&view));
  for (auto each = mViews.rbegin(); each != mViews.rend(); ++each) {
    if (mRunning.contains(*each)) {
      (*each)->raise();
      return;
    }
  }
}

// --- the screen

// Without a window manager nobody but this gives the window its place and its size.
void VLMediaScreen::showOn(QScreen& screen) {
  mScreen = &screen;
  connect(&screen, &QScreen::geometryChanged, this,
          [this](const QRect& geometry) { setGeometry(geometry); });
  setScreen(&screen);
  setGeometry(screen.geometry());
  showFullScreen();
}

void VLMediaScreen::screenCame(QScreen* screen) {
  if (mScreen == nullptr && screen->name() == mName) {
    VELOR_LOG_INFO("the screen '%s' is back", mName.toUtf8().constData());
    showOn(*screen);
  }
}

void VLMediaScreen::screenWent(QScreen* screen) {
  if (screen == mScreen) {
    VELOR_LOG_WARNING("the screen '%s' is missing; its video is hidden until it returns",
                      mName.toUtf8().constData());
    mScreen = nullptr;
    hide();
  }
}

void VLMediaScreen::closeEvent(QCloseEvent* event) {
  event->ignore();  // the end of the program hides it
  mClosed();
}

void VLMediaScreen::resizeEvent(QResizeEvent* /*event*/) {
  for (VLVideoView* view : mViews) {
    view->setGeometry(rect());
  }
}

}  // namespace velor
