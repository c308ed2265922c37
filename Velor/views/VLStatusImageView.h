// SPDX-License-Identifier: MIT
#pragma once

#include <QIcon>
#include <QString>
#include <QWidget>

#include "Velor/devices/VLDeviceStatusImageTransformer.h"

namespace velor {

/// The lamp of a device: each state has a shape and a word beside its colour. Queue: main.
class VLStatusImageView final : public QWidget {
  Q_OBJECT

 public:
  explicit VLStatusImageView(QWidget* parent = nullptr);

  static QIcon icon(VLStatusImage image);
  static QString word(VLStatusImage image);

  QString stringValue() const { return word(mImage); }
  VLStatusImage image() const { return mImage; }
  void setImage(VLStatusImage image);

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  VLStatusImage mImage = VLStatusImage::none;
};

}  // namespace velor
