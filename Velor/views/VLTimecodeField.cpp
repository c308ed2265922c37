// SPDX-License-Identifier: MIT
#include "Velor/views/VLTimecodeField.h"

#include <QFocusEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionFrame>

#include "Velor/views/VLTimecodeAccessible.h"
#include "Velor/views/VLTimecodeTextView.h"

namespace velor {
namespace {

constexpr int kPixelSize = 13;
constexpr int kPadding = 8;
constexpr int kHeight = 28;

}  // namespace

VLTimecodeField::VLTimecodeField(QWidget* parent)
    : QWidget(parent), mCell(*new VLTimecodeCell(*this, kPixelSize, Qt::AlignLeft)) {
  VLTimecodeAccessible::install();
  setFocusPolicy(Qt::TabFocus);
  setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

VLTimecodeField::~VLTimecodeField() {
  if (mEditor != nullptr) {
    mEditor->disconnect(this);
  }
}

void VLTimecodeField::setSmpteTime(const SMPTETime& time) {
  mCell.setSmpteTime(time);
  _timecodeType = time.mType;
  if (mEditor != nullptr && mEditor->isVisible()) {
    mEditor->setText(mCell.stringValue());
  }
  update();
}

QSize VLTimecodeField::sizeHint() const {
  return {static_cast<int>(mCell.textFrame({}).width()) + 2 * kPadding, kHeight};
}

QRectF VLTimecodeField::textArea() const {
  return QRectF(rect()).adjusted(kPadding, 0, -kPadding, 0);
}

void VLTimecodeField::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  QStyleOptionFrame option;
  option.initFrom(this);
  option.lineWidth = style()->pixelMetric(QStyle::PM_DefaultFrameWidth, &option, this);
  option.state |= QStyle::State_Sunken;
  option.state.setFlag(QStyle::State_HasFocus, mEditor != nullptr && mEditor->isVisible());
  style()->drawPrimitive(QStyle::PE_PanelLineEdit, &option, &painter, this);
  mCell.setTextColor(palette().color(QPalette::Text));
  mCell.draw(painter, textArea());
}

void VLTimecodeField::beginEditing() {
  const bool isFirst = mEditor == nullptr;
  mEditor = &mCell.fieldEditorForView(*this);
  if (isFirst) {
    connect(mEditor, &VLTimecodeTextView::textDidChange, this, &VLTimecodeField::textDidChange);
    connect(mEditor, &VLTimecodeTextView::textDidEndEditing, this,
            &VLTimecodeField::textDidEndEditing);
  }
  mEditor->setAccessibleName(accessibleName());
  mCell.edit(*mEditor, textArea());
  mEditor->setSelectedRange(0);
  update();
}

void VLTimecodeField::focusInEvent(QFocusEvent* event) {
  QWidget::focusInEvent(event);
  if (event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason ||
      event->reason() == Qt::ShortcutFocusReason) {
    beginEditing();
    mEditor->setFocus(event->reason());
  }
}

void VLTimecodeField::mousePressEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton) {
    beginEditing();
    mEditor->setFocus(Qt::MouseFocusReason);
    mEditor->selectPairAtLater(event->position() - mEditor->pos());
  }
}

void VLTimecodeField::textDidChange() {
  mCell.setStringValue(mEditor->text());
  update();
  if (const auto delegate = mDelegate.lock()) {
    delegate->timecodeFieldDidChangeTimecode(*this);
  }
}

void VLTimecodeField::textDidEndEditing() {
  if (mEditor->isVisible()) {
    mCell.endEditing(*mEditor);
    update();
  }
}

}  // namespace velor
