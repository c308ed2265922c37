// SPDX-License-Identifier: MIT
#include "Velor/views/VLTimecodeGlyphs.h"

#include <QFontMetricsF>
#include <QPainter>
#include <algorithm>
#include <cmath>

namespace velor {

const QString& VLTimecodeGlyphs::sample() {
  static const QString text = QStringLiteral("00:00:00:00");
  return text;
}

void VLTimecodeGlyphs::prepare(const QFont& font, const QColor& color, qreal devicePixelRatio) {
  if (font == mFont && color == mColor && devicePixelRatio == mRatio) {
    return;
  }
  mFont = font;
  mColor = color;
  mRatio = devicePixelRatio;
  mGlyphs.clear();
  const QFontMetricsF metrics(font);
  // Whole device pixels, so that every glyph is as sharp as the first.
  const auto widest = [&](const char* characters) {
    qreal width = 0;
    for (; *characters != 0; ++characters) {
      width = std::max(width, metrics.horizontalAdvance(QLatin1Char(*characters)));
    }
    return std::ceil(width * mRatio) / mRatio;
  };
  mDigit = widest("0123456789");
  mSeparator = widest(":;");
  mAscent = std::ceil(metrics.ascent());
  mDescent = std::ceil(metrics.descent());
  mCapHeight = metrics.capHeight();
}

qreal VLTimecodeGlyphs::width(const QString& text) const {
  qreal width = 0;
  for (const QChar character : text) {
    width += advance(character);
  }
  return width;
}

QPointF VLTimecodeGlyphs::origin(const QRectF& frame, Qt::Alignment alignment,
                                 const QString& text) const {
  const qreal room = frame.width() - width(text);
  const qreal x = frame.x() + ((alignment & Qt::AlignHCenter) != 0 ? room / 2 : 0);
  const qreal y = frame.center().y() + mCapHeight / 2 - mAscent;
  return {std::round(x * mRatio) / mRatio, std::round(y * mRatio) / mRatio};
}

QRectF VLTimecodeGlyphs::frameOf(QPointF origin, const QString& text, qsizetype start,
                                 qsizetype length) const {
  return {origin.x() + width(text.left(start)), origin.y(), width(text.mid(start, length)),
          height()};
}

qsizetype VLTimecodeGlyphs::indexAt(QPointF origin, const QString& text, qreal x) const {
  qsizetype index = 0;
  while (index + 1 < text.size() && x >= frameOf(origin, text, index, 1).right()) {
    ++index;
  }
  return index;
}

void VLTimecodeGlyphs::draw(QPainter& painter, QPointF origin, const QString& text) {
  draw(painter, origin, text, 0, text.size());
}

void VLTimecodeGlyphs::draw(QPainter& painter, QPointF origin, const QString& text, qsizetype start,
                            qsizetype length) {
  QPointF place = frameOf(origin, text, start, length).topLeft();
  for (const QChar character : text.mid(start, length)) {
    painter.drawPixmap(place, glyph(character));
    place.rx() += advance(character);
  }
}

const QPixmap& VLTimecodeGlyphs::glyph(QChar character) {
  QPixmap& pixmap = mGlyphs[character];
  if (pixmap.isNull()) {
    const QSizeF size(advance(character), height());
    pixmap = QPixmap((size * mRatio).toSize().expandedTo({1, 1}));
    pixmap.setDevicePixelRatio(mRatio);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setFont(mFont);
    painter.setPen(mColor);
    const qreal room = size.width() - QFontMetricsF(mFont).horizontalAdvance(character);
    painter.drawText(QPointF(room / 2, mAscent), character);
  }
  return pixmap;
}

}  // namespace velor
