// SPDX-License-Identifier: MIT
#pragma once

#include <QSplitter>
#include <utility>

namespace velor {

/// Two panes, one above the other. Neither gets smaller than its least height, neither
/// collapses, and both share what the window gains or loses; one that has its least height
/// keeps it. Queue: main.
class VLPaneSplitView final : public QSplitter {
  Q_OBJECT

 public:
  static constexpr int kLeastUpper = 200;
  static constexpr int kLeastLower = 100;

  explicit VLPaneSplitView(QWidget* parent = nullptr);

  /// The heights for `total`, after `upper` and `lower`.
  static std::pair<int, int> resized(int upper, int lower, int total);

 protected:
  void childEvent(QChildEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
};

}  // namespace velor
