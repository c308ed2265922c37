// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>
#include <QTimer>
#include <QWidget>
#include <memory>

#include "Velor/views/VLWindowFrames.h"

namespace velor {

/// What the user has arranged in a window, from run to run: its frame, its dividers and its
/// columns. Queue: main.
class VLWindowPlaces final : public QObject {
 public:
  /// Arranges the window as it was saved under `name`, before it is shown, and saves it each
  /// time it is hidden. What is missing or cannot be read stays as it is. The window is kept
  /// within the screens, those of today and those that come and go.
  static void keep(QWidget& window, const QString& name,
                   const std::shared_ptr<VLWindowFrames>& frames);

 protected:
  bool eventFilter(QObject* object, QEvent* event) override;

 private:
  VLWindowPlaces(QWidget& window, QString name, std::shared_ptr<VLWindowFrames> frames);

  void restore();
  void save();
  QString nameOf(const QObject& part) const { return mName + "." + part.objectName(); }

  QWidget& mWindow;  // the owner
  const QString mName;
  const std::shared_ptr<VLWindowFrames> mFrames;
  bool mIsBeingPlaced = false;
  QTimer mPlaced;  // fires once the window has been placed
};

}  // namespace velor
