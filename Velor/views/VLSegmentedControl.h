// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>
#include <cstdint>
#include <utility>
#include <vector>

class QHBoxLayout;

namespace velor {

class VLButton;

/// A row of buttons of which one is chosen. It shows what it is told, and reports what the
/// user wants. Queue: main.
class VLSegmentedControl final : public QWidget {
  Q_OBJECT

 public:
  explicit VLSegmentedControl(QWidget* parent = nullptr);

  void addSegment(const QString& title, std::uint64_t tag);
  /// One that no segment has selects none.
  void setSelectedTag(std::uint64_t tag);

 signals:
  void segmentChosen(std::uint64_t tag);

 private:
  QHBoxLayout* const mLayout;
  std::vector<std::pair<std::uint64_t, VLButton*>> mSegments;
  std::uint64_t mSelected = 0;
};

}  // namespace velor
