// SPDX-License-Identifier: MIT
#pragma once

#include <QRectF>
#include <QSizeF>
#include <algorithm>

namespace velor {

/// Places in the timecode view: the time at the top, the row of boxes below it, three small
/// times with their labels at the bottom. Logical pixels of the view.
class VLTimecodeLayout {
 public:
  /// At scale 1.
  static constexpr QSizeF kLeastSize{330, 100};

  VLTimecodeLayout(QSizeF size, double scale) : mSize(size), mScale(scale) {}

  QRectF mainTime() const {
    const double inset = kMainInset * mScale;
    return {0, inset, mSize.width(), mSize.height() / 2 - 2 * inset};
  }
  /// `column`: 0 to 2.
  QRectF smallTime(int column) const {
    const QRectF row = inside();
    return {row.x() + column * row.width() / 3,
            mSize.height() - (kCellBottom + kCellHeight) * mScale, row.width() / 3,
            kCellHeight * mScale};
  }
  /// The lower edge of the labels under the small times.
  double labelBottom() const { return mSize.height() - (kCellBottom - kLabelBelowCell) * mScale; }
  /// Of `count` boxes in the row; the first has index 0.
  QRectF box(int index, int count) const {
    const QRectF row = inside();
    const double room = mSize.height() - 2 * kStripInset * mScale;
    const double bottom = kStripInset * mScale + room / 2 - kStripBelowMiddle * mScale;
    const double width = row.width() / std::max(count, 1);
    const double inset = kBoxInset * mScale;
    return {row.x() + index * width + inset, mSize.height() - bottom - kStripHeight * mScale,
            width - 2 * inset, kStripHeight * mScale};
  }

 private:
  // At scale 1; places are from the bottom left.
  static constexpr double kMainInset = 3;
  static constexpr double kSideInset = 5;
  static constexpr double kStripInset = 3;
  static constexpr double kStripBelowMiddle = 12;
  static constexpr double kStripHeight = 8;
  static constexpr double kBoxInset = 2;
  static constexpr double kCellBottom = 18;
  static constexpr double kCellHeight = 16;
  static constexpr double kLabelBelowCell = 12;

  QRectF inside() const {
    return {kSideInset * mScale, 0, mSize.width() - 2 * kSideInset * mScale, mSize.height()};
  }

  QSizeF mSize;
  double mScale;
};

}  // namespace velor
