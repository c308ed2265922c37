// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

namespace velor {

/// The frames of windows and the places of their parts, by name, as they outlive a run.
/// Queue: main.
class VLWindowFrames {
 public:
  virtual ~VLWindowFrames() = default;

  /// As the toolkit gives it, for example QWidget::saveGeometry; empty: none is saved.
  virtual QByteArray frame(const QString& name) const = 0;
  virtual void saveFrame(const QString& name, const QByteArray& frame) = 0;
};

}  // namespace velor
