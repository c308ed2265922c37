// SPDX-License-Identifier: MIT
#pragma once

#include <QComboBox>
#include <QString>
#include <QWheelEvent>
#include <cstdint>
#include <optional>
#include <vector>

namespace velor {

/// A pop-up that Return opens, since Space belongs to the transport. A choice that does not
/// fit ends in an ellipsis, with the whole as its tooltip. Queue: main.
class VLPopupButton final : public QComboBox {
  Q_OBJECT

 public:
  struct Choice {
    QString title;
    std::int64_t tag;  // its data
  };

  explicit VLPopupButton(QWidget* parent = nullptr) : QComboBox(parent) {}

  /// Also while it is open: what stays keeps its place under the pointer as far as it can.
  void setChoices(const std::vector<Choice>& choices, std::optional<std::int64_t> current);

 protected:
  bool event(QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  // A wheel that turns over it by chance must not choose another device or format.
  void wheelEvent(QWheelEvent* event) override { event->ignore(); }

 private:
  QString shownText() const;
};

}  // namespace velor
