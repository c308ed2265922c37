// SPDX-License-Identifier: MIT
#pragma once

#include <QCheckBox>

namespace velor {

/// A check box that Return turns, since Space belongs to the transport; its outline can be
/// seen in the dark. Queue: main.
class VLCheckBox final : public QCheckBox {
  Q_OBJECT

 public:
  explicit VLCheckBox(QWidget* parent = nullptr) : QCheckBox(parent) {}

 protected:
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
};

}  // namespace velor
