// SPDX-License-Identifier: MIT
#pragma once

#include <QSplitter>

namespace velor {

/// Two halves side by side, of which the second takes what the window gains. A double click
/// on the divider closes the first one, or opens it again. Queue: main.
class VLSplitView final : public QSplitter {
  Q_OBJECT

 public:
  static constexpr int kLeastFirst = 170;
  static constexpr int kLeastSecond = 415;  // left and right edge of the window included

  explicit VLSplitView(QWidget* parent = nullptr);

  /// Where the divider may stand that is dragged to `proposed`. The first half keeps its
  /// least width where there is no room for both.
  static int constrained(int proposed, int windowWidth);
  void toggleFirst();

 protected:
  QSplitterHandle* createHandle() override;

 private:
  void constrain(int position);

  int mFormer = 0;  // width of the first half before it was closed
};

}  // namespace velor
