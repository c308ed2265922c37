// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cmath>

namespace velor {

/// The length between neighbours in rows of places that should be evenly spaced, by least
/// squares: one length for all rows, which may begin anywhere. Sums are about the mean, so
/// that long rows keep their digits.
class KVLineFit {
 public:
  void startRow() {
    mAll.n += mRow.n;
    mAll.xx += mRow.xx;
    mAll.xy += mRow.xy;
    mAll.yy += mRow.yy;
    mRows += 1;
    mRow = {};
  }
  /// The place with this number in its row.
  void add(double number, double place) {
    mRow.n += 1;
    const double dx = number - mRow.x;
    const double dy = place - mRow.y;
    mRow.x += dx / mRow.n;
    mRow.y += dy / mRow.n;
    mRow.xx += dx * (number - mRow.x);
    mRow.xy += dx * (place - mRow.y);
    mRow.yy += dy * (place - mRow.y);
  }

  bool hasLength() const { return mAll.xx + mRow.xx > 0; }
  double length() const { return (mAll.xy + mRow.xy) / (mAll.xx + mRow.xx); }
  /// Of the places, about their lines, rms; 0 with too few of them.
  double scatter() const {
    const double free = mAll.n + mRow.n - mRows - 2;
    const double squares = mAll.yy + mRow.yy - length() * (mAll.xy + mRow.xy);
    return free > 0 ? std::sqrt(std::max(0.0, squares) / free) : 0;
  }
  /// Standard deviation of the length.
  double uncertainty() const { return scatter() / std::sqrt(mAll.xx + mRow.xx); }
  double count() const { return mRow.n; }
  /// Where the row's line has this number.
  double at(double number) const { return mRow.y + length() * (number - mRow.x); }

 private:
  struct Sums {
    double n = 0, x = 0, y = 0, xx = 0, xy = 0, yy = 0;
  };
  Sums mRow;
  Sums mAll;
  double mRows = 0;
};

}  // namespace velor
