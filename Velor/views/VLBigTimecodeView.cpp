// SPDX-License-Identifier: MIT
#include "Velor/views/VLBigTimecodeView.h"

#include <QApplication>
#include <QPaintEvent>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "Velor/clock/VLClock.h"
#include "Velor/views/VLClockStatusText.h"
#include "Velor/views/VLTimecodeAccessible.h"
#include "kvtimecode/SMPTEString.h"

namespace velor {
namespace {

constexpr QColor kDialColor(85, 85, 85);
constexpr double kMargin = 50;           // of the dial, both sides together
constexpr double kRoomAroundText = 120;  // the same, within the dial
constexpr int kLargestFont = 120;
constexpr int kSmallestFont = 18;
constexpr int kFontStep = 4;
constexpr double kRingWidth = 16;
constexpr double kTickWidth = 6;
constexpr double kLongTick = 60;
constexpr double kShortTick = 30;

QFont boldFont(int pixelSize) {
  QFont font = QApplication::font();
  font.setBold(true);
  font.setPixelSize(pixelSize);
  return font;
}

// A line from the ring inward, clockwise from the left.
void drawRadially(QPainter& painter, double radius, double degrees, double begin, double length,
                  const QPen& pen) {
  painter.save();
  painter.setPen(pen);
  painter.rotate(degrees);
  painter.drawLine(QPointF(begin - radius, 0), QPointF(begin - radius + length, 0));
  painter.restore();
}

QPen penOf(const QColor& color, double width) {
  return {color, width, Qt::SolidLine, Qt::FlatCap};
}

}  // namespace

VLBigTimecodeView::VLBigTimecodeView(QWidget* parent) : QWidget(parent) {
  VLTimecodeAccessible::install();
  setAccessibleName(tr("Big Timecode"));
  setAttribute(Qt::WA_OpaquePaintEvent);
  updateTextAttributes();
}

void VLBigTimecodeView::setMainTime(const SMPTETime& time) {
  const bool isSameSecond = time.mSeconds == mMainTime.mSeconds;
  mMainTime = time;
  if (isSameSecond && (mClockStatus & kVLClockMovingBit) != 0) {
    update(mMainTextFrame.toAlignedRect());
  } else {
    update();
  }
}

void VLBigTimecodeView::setClockStatus(VLClockStatus status) {
  mClockStatus = status;
  updateTextAttributes();
  update();
}

void VLBigTimecodeView::setBackgroundColor(const QColor& color) {
  mBackgroundColor = color;
  update();
}

QString VLBigTimecodeView::stringValue() const {
  return QString::fromStdString(stringFromSMPTETime(mMainTime));
}

QColor VLBigTimecodeView::statusColor() const {
  return VLQColor(VLClock::colorForClockState(mClockStatus));
}

double VLBigTimecodeView::dialRadius() const {
  return (std::min(width(), height()) - kMargin) * 0.5;
}

int VLBigTimecodeView::calculateFontSize() const {
  const double limit = 2 * dialRadius() - kRoomAroundText;
  VLTimecodeGlyphs glyphs;
  int size = kLargestFont;
  for (; size >= kSmallestFont; size -= kFontStep) {
    glyphs.prepare(boldFont(size), Qt::white, devicePixelRatioF());
    if (limit > glyphs.width(VLTimecodeGlyphs::sample())) {
      break;
    }
  }
  return size;
}

void VLBigTimecodeView::updateTextAttributes() {
  mFont = boldFont(calculateFontSize());
  mGlyphs.prepare(mFont, statusColor(), devicePixelRatioF());
}

bool VLBigTimecodeView::hasDial() const {
  return 2 * dialRadius() > mMainTextFrame.width() + kRoomAroundText;
}

void VLBigTimecodeView::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  updateTextAttributes();
  const QString& text = VLTimecodeGlyphs::sample();
  const QPointF origin = mGlyphs.origin(QRectF(rect()), Qt::AlignHCenter, text);
  mMainTextFrame = mGlyphs.frameOf(origin, text, 0, text.size());
  mDial = {};
}

void VLBigTimecodeView::paintEvent(QPaintEvent* event) {
  mGlyphs.prepare(mFont, statusColor(), devicePixelRatioF());
  QPainter painter(this);
  painter.fillRect(event->rect(), mBackgroundColor);
  if (hasDial() && !mMainTextFrame.toAlignedRect().contains(event->rect())) {
    drawDial(painter);
  }
  mGlyphs.draw(painter, mMainTextFrame.topLeft(), stringValue());
}

void VLBigTimecodeView::drawDial(QPainter& painter) {
  if (mDial.devicePixelRatio() != devicePixelRatioF() || mDial.isNull()) {
    mDial = dial();
  }
  const double radius = dialRadius();
  const double side = radius + kRingWidth;
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(QRectF(rect()).center());
  painter.drawPixmap(QPointF(-side, -side), mDial);
  painter.setPen(penOf(statusColor(), kRingWidth));
  const QRectF ring(-radius, -radius, 2 * radius, 2 * radius);
  if (mMainTime.mSeconds == 0) {
    painter.drawEllipse(ring);
  } else {
    constexpr int kUnitsPerDegree = 16;
    painter.drawArc(ring, 90 * kUnitsPerDegree, -6 * mMainTime.mSeconds * kUnitsPerDegree);
  }
  drawRadially(painter, radius, 90 + 6.0 * mMainTime.mMinutes, 10, 50, penOf(statusColor(), 2));
  drawRadially(painter, radius, 90 + 30.0 * mMainTime.mHours, 30, 30, penOf(statusColor(), 6));
  painter.restore();
}

QPixmap VLBigTimecodeView::dial() const {
  const double radius = dialRadius();
  const double side = radius + kRingWidth;
  const double ratio = devicePixelRatioF();
  const int pixels = static_cast<int>(std::ceil(2 * side * ratio));
  QPixmap pixmap(pixels, pixels);
  pixmap.setDevicePixelRatio(ratio);
  pixmap.fill(Qt::transparent);
  QPainter painter(&pixmap);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.translate(side, side);
  painter.setPen(penOf(kDialColor, kRingWidth));
  painter.drawEllipse(QPointF(), radius, radius);
  for (int i = 0; i <= 60; i += 5) {
    drawRadially(painter, radius, 6.0 * i, 0, i % 15 == 0 ? kLongTick : kShortTick,
                 penOf(kDialColor, kTickWidth));
  }
  return pixmap;
}

}  // namespace velor
