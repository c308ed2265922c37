// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QWidget>
#include <cstdint>

#include "Velor/views/VLTimecodeGlyphs.h"
#include "Velor/views/VLTimecodeTypeProvider.h"
#include "kvtimecode/SMPTETime.h"

namespace velor {

/// The editor of a time, which takes the place of its cell: four pairs of digits, of which
/// one is selected and takes what is typed. There is no insertion point. Each change is
/// reported at once; leaving takes nothing back. Queue: main.
class VLTimecodeTextView final : public QWidget {
  Q_OBJECT

 public:
  static constexpr const char* kPasteboardType = "SMPTETimecode";

  explicit VLTimecodeTextView(QWidget* parent);

  /// Must outlive its use here, or be replaced.
  void setTypeProvider(VLTimecodeTypeProvider* provider) { mTypeProvider = provider; }
  /// Where the text begins, in this view.
  void setTextOrigin(QPointF origin);

  const QString& text() const { return mText; }
  /// Shows it, and reports nothing.
  void setText(const QString& text);

  /// In the format of the provider. Digits are 0 while the text is no time.
  SMPTETime smpteTime() const;
  /// As an edit of the user.
  void setSmpteTime(SMPTETime time);

  /// Selects the pair that begins there or before.
  void setSelectedRange(qsizetype start);
  qsizetype selectionStart() const { return mSelectionStart; }  ///< below 0: none
  bool hoursSelected() const { return mSelectionStart == 0; }
  bool minutesSelected() const { return mSelectionStart == 3; }
  bool secondsSelected() const { return mSelectionStart == 6; }
  bool framesSelected() const { return mSelectionStart == 9; }
  void moveForward();
  void moveBackward();
  /// Once the event that is being handled is over.
  void selectPairAtLater(QPointF place);

  QRectF frameOfCharacter(qsizetype index) const;
  qsizetype indexOfCharacterAt(QPointF place) const;

 public slots:
  void copy() const;
  void paste();

 signals:
  void textDidChange();
  /// The focus has gone to another control, or should go.
  void textDidEndEditing();

 protected:
  bool event(QEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void focusOutEvent(QFocusEvent* event) override;
  void paintEvent(QPaintEvent* event) override;

 private:
  bool keyDown(int key);
  bool changePair(int key);
  std::int16_t& pairOf(SMPTETime& time) const;
  std::int32_t limitOf(const SMPTETime& time) const;
  void dropFocus();
  void prepareGlyphs() const;

  VLTimecodeTypeProvider* mTypeProvider = nullptr;
  QString mText;
  QPointF mOrigin;
  qsizetype mSelectionStart = -1;
  std::uint16_t mNumEntered = 0;  // digits typed into the selected pair
  mutable VLTimecodeGlyphs mGlyphs;
  mutable VLTimecodeGlyphs mSelectedGlyphs;
};

}  // namespace velor
