// SPDX-License-Identifier: MIT
#pragma once

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>
#include <algorithm>

namespace velor {

/// Keeps a window where its user can reach it when its screen becomes smaller. Queue: main.
class VLScreenFit {
 public:
  /// As long as the window lives.
  static void follow(QWidget& window) {
    const auto watch = [&window](QScreen* screen) {
      QObject::connect(screen, &QScreen::availableGeometryChanged, &window,
                       [&window] { fit(window, window.screen()->availableGeometry()); });
    };
    for (QScreen* screen : QGuiApplication::screens()) {
      watch(screen);
    }
    QObject::connect(qGuiApp, &QGuiApplication::screenAdded, &window, watch);
  }

  /// Smaller than `room` as far as the window can be, and with its title within.
  static void fit(QWidget& window, const QRect& room) {
    if (room.contains(window.frameGeometry())) {
      return;
    }
    const QSize around = window.frameGeometry().size() - window.size();
    window.resize(window.size().boundedTo(room.size() - around));
    const QRect frame = window.frameGeometry();
    window.move(
        std::clamp(frame.x(), room.x(), std::max(room.x(), room.right() - frame.width() + 1)),
        std::clamp(frame.y(), room.y(), std::max(room.y(), room.bottom() - frame.height() + 1)));
  }
};

}  // namespace velor
