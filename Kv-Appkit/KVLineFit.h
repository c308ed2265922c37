// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cmath>

namespace velor {

/// Fits straight lines through rows of places that should be evenly spaced, by least squares.
/// All lines have the same slope, the length from one place to the next; each row may begin
/// anywhere. The sums are those of deviations from the mean and from the first length, so that
/// long rows keep their digits.
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
  /// Adds a place, with its number in the row.
  void add(double number, double place) {
    if (mRow.n == 0) {
      mFirst = place;
      mFirstNumber = number;
    } else if (!mHasReference && number != mFirstNumber) {
      mReference = (place - mFirst) / (number - mFirstNumber);
      mHasReference = true;
    }
    const double away = place - mFirst - mReference * (number - mFirstNumber);
    mRow.n += 1;
    const double dx = number - mRow.x;
    const double dy = away - mRow.y;
    mRow.x += dx / mRow.n;
    mRow.y += dy / mRow.n;
    mRow.xx += dx * (number - mRow.x);
    mRow.xy += dx * (away - mRow.y);
    mRow.yy += dy * (away - mRow.y);
  }

  bool hasLength() const { return mAll.xx + mRow.xx > 0; }
  double length() const { return mReference + slope(); }
  /// Whether there are more places than the lines need, so that scatter() means something.
  bool hasScatter() const { return hasLength() && free() > 0; }
  /// How far the places are from their lines, rms.
  double scatter() const {
    const double squares = mAll.yy + mRow.yy - slope() * (mAll.xy + mRow.xy);
    return hasScatter() ? std::sqrt(std::max(0.0, squares) / free()) : 0;
  }
  /// Standard deviation of the length.
  double uncertainty() const { return scatter() / std::sqrt(mAll.xx + mRow.xx); }
  /// The place on the line of the last row that has this number.
  double at(double number) const {
    return mFirst + mReference * (number - mFirstNumber) + mRow.y + slope() * (number - mRow.x);
  }

 private:
  struct Sums {
    double n = 0, x = 0, y = 0, xx = 0, xy = 0, yy = 0;
  };
  double slope() const { return (mAll.xy + mRow.xy) / (mAll.xx + mRow.xx); }
  // Degrees of freedom: each row has a begin of its own, and all share one length.
  double free() const { return mAll.n + mRow.n - mRows - 2; }

  Sums mRow;
  Sums mAll;
  double mRows = 0;  // rows that have ended
  double mFirst = 0;
  double mFirstNumber = 0;
  double mReference = 0;
  bool mHasReference = false;
};

}  // namespace velor
