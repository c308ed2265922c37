// SPDX-License-Identifier: MIT
#include "Velor/views/VLSplitView.h"

#include <QMouseEvent>
#include <QSplitterHandle>
#include <algorithm>
#include <utility>

namespace velor {
namespace {

class Handle final : public QSplitterHandle {
 public:
  explicit Handle(VLSplitView& view) : QSplitterHandle(Qt::Horizontal, &view), mView(view) {}

 protected:
  void mouseDoubleClickEvent(QMouseEvent* /*event*/) override { mView.toggleFirst(); }

 private:
  VLSplitView& mView;
};

}  // namespace

VLSplitView::VLSplitView(QWidget* parent) : QSplitter(Qt::Horizontal, parent) {
  setChildrenCollapsible(true);
  connect(this, &QSplitter::splitterMoved, this, [this](int position) { constrain(position); });
}

QSplitterHandle* VLSplitView::createHandle() {
  return new Handle(*this);
}

int VLSplitView::constrained(int proposed, int windowWidth) {
  return std::max(std::min(proposed, windowWidth - kLeastSecond), kLeastFirst);
}

void VLSplitView::constrain(int position) {
  const int allowed = constrained(position, window()->width());
  if (allowed != position && position != 0) {
    const QList<int> now = sizes();
    setSizes({allowed, std::max(0, now[0] + now[1] - allowed)});
  }
}

void VLSplitView::toggleFirst() {
  const QList<int> now = sizes();
  const int all = now[0] + now[1];
  const int first = now[0] == 0 ? constrained(mFormer, window()->width()) : 0;
  mFormer = now[0];
  setSizes({first, all - first});
}

}  // namespace velor
