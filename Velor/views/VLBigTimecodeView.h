// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QFont>
#include <QPixmap>
#include <QRectF>
#include <QString>
#include <QWidget>

#include "Velor/clock/VLClockStatus.h"
#include "Velor/views/VLTimecodeGlyphs.h"
#include "kvtimecode/SMPTETime.h"

namespace velor {

/// The time to be read from afar, in the largest text that fits, within a dial whose ring
/// counts the seconds. While the clock runs, a frame repaints the text alone. Queue: main.
class VLBigTimecodeView final : public QWidget {
  Q_OBJECT

 public:
  explicit VLBigTimecodeView(QWidget* parent = nullptr);

  const SMPTETime& mainTime() const { return mMainTime; }
  void setMainTime(const SMPTETime& time);
  VLClockStatus clockStatus() const { return mClockStatus; }
  void setClockStatus(VLClockStatus status);
  const QColor& backgroundColor() const { return mBackgroundColor; }
  void setBackgroundColor(const QColor& color);
  QString stringValue() const;

  /// Of the text, in logical pixels, for the present size.
  int calculateFontSize() const;
  const QRectF& mainTextFrame() const { return mMainTextFrame; }
  bool hasDial() const;
  double dialRadius() const;

  QSize sizeHint() const override { return {720, 720}; }
  QSize minimumSizeHint() const override { return {160, 60}; }

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  QColor statusColor() const;
  void updateTextAttributes();
  void drawDial(QPainter& painter);
  QPixmap dial() const;

  SMPTETime mMainTime;
  VLClockStatus mClockStatus = VLClockStopped;
  QColor mBackgroundColor = Qt::black;
  QFont mFont;
  VLTimecodeGlyphs mGlyphs;
  QRectF mMainTextFrame;
  QPixmap mDial;  // ring and ticks; null until it is drawn
};

}  // namespace velor
