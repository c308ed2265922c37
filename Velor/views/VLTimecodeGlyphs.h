// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QFont>
#include <QHash>
#include <QPixmap>
#include <QPointF>
#include <QRectF>
#include <QString>

class QPainter;

namespace velor {

/// The characters of times as pixmaps, because Qt rasterises those above 64 pixels each
/// time that it draws them. All digits are of one width, so that none moves when another
/// changes. Lengths are logical pixels. Queue: main.
class VLTimecodeGlyphs {
 public:
  /// The text that stands for all times where room is measured.
  static const QString& sample();

  /// Needed before all else. Keeps the pixmaps when nothing differs.
  void prepare(const QFont& font, const QColor& color, qreal devicePixelRatio);

  qreal width(const QString& text) const;
  qreal height() const { return mAscent + mDescent; }
  /// Where a text begins that is aligned in the frame, its digits centred vertically.
  QPointF origin(const QRectF& frame, Qt::Alignment alignment, const QString& text) const;
  /// The frame of some characters of a text that begins at `origin`.
  QRectF frameOf(QPointF origin, const QString& text, qsizetype start, qsizetype length) const;
  /// The nearest character.
  qsizetype indexAt(QPointF origin, const QString& text, qreal x) const;

  void draw(QPainter& painter, QPointF origin, const QString& text);
  void draw(QPainter& painter, QPointF origin, const QString& text, qsizetype start,
            qsizetype length);

 private:
  qreal advance(QChar character) const { return isSeparator(character) ? mSeparator : mDigit; }
  static bool isSeparator(QChar character) { return character == ':' || character == ';'; }
  const QPixmap& glyph(QChar character);

  QFont mFont;
  QColor mColor;
  qreal mRatio = 0;
  qreal mDigit = 0;
  qreal mSeparator = 0;
  qreal mAscent = 0;
  qreal mDescent = 0;
  qreal mCapHeight = 0;
  QHash<QChar, QPixmap> mGlyphs;
};

}  // namespace velor
