// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QPaintEvent>
#include <QTest>
#include <QVBoxLayout>
#include <QWidget>
#include <string>
#include <utility>

#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "sim/SimulatedHost.h"

namespace velor {

inline SMPTETime timeOf(const std::string& text, std::uint32_t format = kSMPTETimeType25) {
  SMPTETime time{};
  EXPECT_TRUE(parseSmpteTime(text, time, format)) << text;
  ltc_normalize(time);
  return time;
}

/// Gathers what is painted of a widget.
class Painted final : public QObject {
 public:
  explicit Painted(QWidget& widget) { widget.installEventFilter(this); }
  QRegion take() { return std::exchange(mRegion, {}); }

 private:
  bool eventFilter(QObject* /*watched*/, QEvent* event) override {
    if (event->type() == QEvent::Paint) {
      mRegion += static_cast<QPaintEvent*>(event)->region();
    }
    return false;
  }

  QRegion mRegion;
};

/// A window on a screen of no colour but the toolkit's, over simulated time.
class ViewFixture : public testing::Test {
 protected:
  /// The views of a window in a column.
  void show(std::initializer_list<QWidget*> views, QSize size) {
    auto* column = new QVBoxLayout(&mWindow);
    column->setContentsMargins({});
    column->setSpacing(0);
    for (QWidget* view : views) {
      column->addWidget(view);
    }
    mWindow.resize(size);
    mWindow.show();
    QApplication::setActiveWindow(&mWindow);
    settle();
  }
  /// Until neither the toolkit nor the main queue has anything to do.
  void settle() {
    QApplication::processEvents();
    mHost.settle();
    QApplication::processEvents();
  }
  void click(QWidget& view, QPointF place) {
    QTest::mouseClick(&view, Qt::LeftButton, {}, place.toPoint());
    settle();
  }
  /// To whatever has the focus.
  void press(Qt::Key key, Qt::KeyboardModifiers modifiers = {}) {
    QWidget* focus = QApplication::focusWidget();
    QTest::keyClick(focus != nullptr ? focus : &mWindow, key, modifiers);
    settle();
  }
  void type(const char* keys) {
    for (; *keys != 0; ++keys) {
      press(static_cast<Qt::Key>(Qt::Key_0 + (*keys - '0')));
    }
  }

  host::SimulatedHost mHost;
  QWidget mWindow;
};

}  // namespace velor
