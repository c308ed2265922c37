// SPDX-License-Identifier: MIT
#pragma once

#include <QPainter>
#include <QSlider>

#include "Velor/views/VLStyle.h"

namespace velor {

/// A fader whose focus can be seen. Queue: main.
class VLSlider final : public QSlider {
  Q_OBJECT

 public:
  explicit VLSlider(QWidget* parent = nullptr) : QSlider(parent) {}

 protected:
  void paintEvent(QPaintEvent* event) override {
    QSlider::paintEvent(event);
    if (hasFocus()) {
      QPainter painter(this);
      painter.setRenderHint(QPainter::Antialiasing);
      VLStyle::drawFocus(painter, rect(), palette());
    }
  }
};

}  // namespace velor
