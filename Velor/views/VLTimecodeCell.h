// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QObject>
#include <QRectF>
#include <QString>
#include <cstdint>
#include <string_view>

#include "Velor/views/VLTimecodeGlyphs.h"
#include "Velor/views/VLTimecodeTypeProvider.h"
#include "kvtimecode/KVSMPTETime.h"
#include "kvtimecode/SMPTETime.h"

class QPainter;
class QWidget;

namespace velor {

class VLTimecodeTextView;

/// Holds and draws one time of a view, and lends it the editor. Queue: main.
class VLTimecodeCell final : public QObject, public VLTimecodeTypeProvider {
  Q_OBJECT

 public:
  /// `pixelSize`: of the bold text, in logical pixels at scale 1.
  VLTimecodeCell(QWidget& view, int pixelSize, Qt::Alignment alignment);

  const SMPTETime& smpteTime() const { return mSMPTETime; }
  void setSmpteTime(const SMPTETime& time) override;
  void setTime(const KVSMPTETime& time) { setSmpteTime(time.time()); }
  const QString& stringValue() const { return mString; }
  /// Takes the time in the text, in the format of the time before, and shows the text.
  void setStringValue(const QString& string);
  std::uint32_t timecodeFormatForView(const QWidget& view) const override;

  const QColor& textColor() const { return mTextColor; }
  void setTextColor(const QColor& color) { mTextColor = color; }
  void setScale(double scale) { mScale = scale; }

  /// In the view's logical pixels, as all frames here.
  void draw(QPainter& painter, const QRectF& frame);
  QRectF textFrame(const QRectF& frame);
  QRectF frameOfCharacter(const QRectF& frame, qsizetype index);
  qsizetype indexOfCharacterAt(const QRectF& frame, QPointF place);

  /// The editor of the view, which its cells share, loaded with this time.
  VLTimecodeTextView& fieldEditorForView(QWidget& view);
  void setUpFieldEditorAttributes(VLTimecodeTextView& editor);
  /// Puts the editor into the cell's place.
  void edit(VLTimecodeTextView& editor, const QRectF& frame);
  void endEditing(VLTimecodeTextView& editor);

 signals:
  void timeDidChange();

 private:
  void prepareGlyphs();
  QPointF textOrigin(const QRectF& frame);

  QWidget& mView;
  const int mPixelSize;
  const Qt::Alignment mAlignment;
  double mScale = 1;
  QColor mTextColor = Qt::black;
  SMPTETime mSMPTETime;
  QString mString;
  VLTimecodeGlyphs mGlyphs;
};

}  // namespace velor
