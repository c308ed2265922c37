// SPDX-License-Identifier: MIT
#include "Velor/views/VLPaneSplitView.h"

#include <QChildEvent>
#include <algorithm>

namespace velor {

VLPaneSplitView::VLPaneSplitView(QWidget* parent) : QSplitter(Qt::Vertical, parent) {
  setChildrenCollapsible(false);
}

void VLPaneSplitView::childEvent(QChildEvent* event) {
  QSplitter::childEvent(event);
  for (int i = 0; i < count(); ++i) {
    widget(i)->setMinimumHeight(i == 0 ? kLeastUpper : kLeastLower);
  }
}

std::pair<int, int> VLPaneSplitView::resized(int upper, int lower, int total) {
  const int change = total - upper - lower;
  const bool upperTakes = upper > kLeastUpper;
  const bool lowerTakes = lower > kLeastLower;
  const int ofUpper = upperTakes == lowerTakes ? change * upper / std::max(upper + lower, 1)
                      : upperTakes             ? change
                                               : 0;
  const int wanted = std::max(upper + ofUpper, kLeastUpper);
  const int least = std::max(std::min(wanted, total - kLeastLower), kLeastUpper);
  return {least, total - least};
}

void VLPaneSplitView::resizeEvent(QResizeEvent* event) {
  const QList<int> before = sizes();
  QSplitter::resizeEvent(event);
  const QList<int> now = sizes();
  if (now.size() == 2 && before[0] > 0 && before[1] > 0) {
    const auto [upper, lower] = resized(before[0], before[1], now[0] + now[1]);
    setSizes({upper, lower});
  }
}

}  // namespace velor
