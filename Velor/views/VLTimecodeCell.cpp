// SPDX-License-Identifier: MIT
#include "Velor/views/VLTimecodeCell.h"

#include <QApplication>
#include <QWidget>
#include <cmath>

#include "Velor/views/VLTimecodeTextView.h"
#include "kvtimecode/SMPTEString.h"

namespace velor {
namespace {

// Around the text of the editor.
constexpr QMarginsF kEditorMargins(3, 1, 3, 1);

QFont boldFont(int pixelSize, double scale) {
  QFont font = QApplication::font();
  font.setBold(true);
  font.setPixelSize(static_cast<int>(std::lround(pixelSize * scale)));
  return font;
}

}  // namespace

VLTimecodeCell::VLTimecodeCell(QWidget& view, int pixelSize, Qt::Alignment alignment)
    : QObject(&view),
      mView(view),
      mPixelSize(pixelSize),
      mAlignment(alignment),
      mString(QString::fromStdString(invalidSMPTEString())) {}

void VLTimecodeCell::setSmpteTime(const SMPTETime& time) {
  mSMPTETime = time;
  mString = QString::fromStdString(stringFromSMPTETime(time));
}

void VLTimecodeCell::setStringValue(const QString& string) {
  parseSmpteTime(string.toStdString(), mSMPTETime, mSMPTETime.mType);
  mString = string;
  emit timeDidChange();
}

std::uint32_t VLTimecodeCell::timecodeFormatForView(const QWidget& /*view*/) const {
  return mSMPTETime.mType;
}

void VLTimecodeCell::prepareGlyphs() {
  mGlyphs.prepare(boldFont(mPixelSize, mScale), mTextColor, mView.devicePixelRatioF());
}

QPointF VLTimecodeCell::textOrigin(const QRectF& frame) {
  prepareGlyphs();
  return mGlyphs.origin(frame, mAlignment, mString);
}

void VLTimecodeCell::draw(QPainter& painter, const QRectF& frame) {
  mGlyphs.draw(painter, textOrigin(frame), mString);
}

QRectF VLTimecodeCell::textFrame(const QRectF& frame) {
  const QPointF origin = textOrigin(frame);
  return mGlyphs.frameOf(origin, mString, 0, mString.size());
}

QRectF VLTimecodeCell::frameOfCharacter(const QRectF& frame, qsizetype index) {
  const QPointF origin = textOrigin(frame);
  return mGlyphs.frameOf(origin, mString, index, 1);
}

qsizetype VLTimecodeCell::indexOfCharacterAt(const QRectF& frame, QPointF place) {
  const QPointF origin = textOrigin(frame);
  return mGlyphs.indexAt(origin, mString, place.x());
}

VLTimecodeTextView& VLTimecodeCell::fieldEditorForView(QWidget& view) {
  auto* editor = view.findChild<VLTimecodeTextView*>({}, Qt::FindDirectChildrenOnly);
  if (editor == nullptr) {
    editor = new VLTimecodeTextView(&view);
    editor->hide();
    QWidget::setTabOrder(&view, editor);
  }
  editor->setTypeProvider(this);
  editor->setText(mString);
  setUpFieldEditorAttributes(*editor);
  return *editor;
}

void VLTimecodeCell::setUpFieldEditorAttributes(VLTimecodeTextView& editor) {
  editor.setFont(boldFont(mPixelSize, mScale));
}

// The digits stay where they are.
void VLTimecodeCell::edit(VLTimecodeTextView& editor, const QRectF& frame) {
  const QRectF text = textFrame(frame);
  editor.setGeometry(text.marginsAdded(kEditorMargins).toAlignedRect());
  editor.setTextOrigin(text.topLeft() - editor.pos());
  editor.show();
  editor.raise();
}

void VLTimecodeCell::endEditing(VLTimecodeTextView& editor) {
  // Qt gives the focus of a widget that hides to the next one.
  editor.clearFocus();
  editor.hide();
}

}  // namespace velor
