// SPDX-License-Identifier: MIT
#pragma once

#include <QGuiApplication>
#include <QRegion>
#include <QScreen>
#include <QWidget>
#include <algorithm>

namespace velor {

/// Keeps a window where its user can reach it when its screen becomes smaller or goes.
/// Queue: main.
class VLScreenFit {
 public:
  /// As long as the window lives.
  static void follow(QWidget& window) {
    const auto watch = [&window](QScreen* screen) {
      QObject::connect(screen, &QScreen::availableGeometryChanged, &window,
                       [&window] { fitToScreens(window); });
    };
    for (QScreen* screen : QGuiApplication::screens()) {
      watch(screen);
    }
    QObject::connect(qGuiApp, &QGuiApplication::screenAdded, &window, watch);
    // Queued: the toolkit gives the windows of a screen to another one after it has announced
    // that the screen goes.
    QObject::connect(
        qGuiApp, &QGuiApplication::screenRemoved, &window, [&window] { fitToScreens(window); },
        Qt::QueuedConnection);
  }

  /// Smaller than `room` as far as the window can be, and with its title within.
  static void fit(QWidget& window, const QRect& room) {
    const QSize around = window.frameGeometry().size() - window.size();
    window.resize(window.size().boundedTo(room.size() - around));
    const QRect frame = window.frameGeometry();
    window.move(
        std::clamp(frame.x(), room.x(), std::max(room.x(), room.right() - frame.width() + 1)),
        std::clamp(frame.y(), room.y(), std::max(room.y(), room.bottom() - frame.height() + 1)));
  }

  /// A window across two screens stays; of one that fills its screen the desktop takes care.
  static void fitToScreens(QWidget& window) {
    QRegion room;
    for (const QScreen* screen : QGuiApplication::screens()) {
      room += screen->availableGeometry();
    }
    if (!window.isMaximized() && !window.isFullScreen() &&
        !QRegion(window.frameGeometry()).subtracted(room).isEmpty()) {
      fit(window, window.screen()->availableGeometry());
    }
  }
};

}  // namespace velor
