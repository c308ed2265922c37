// SPDX-License-Identifier: MIT
#include "Velor/views/VLTimecodeTextView.h"

#include <QClipboard>
#include <QFocusEvent>
#include <QGuiApplication>
#include <QKeyEvent>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QPointer>

#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Host.h"

namespace velor {
namespace {

constexpr qsizetype kPairLength = 2;
constexpr qsizetype kPairStep = 3;  // two digits and what parts them
constexpr qsizetype kLastPair = 9;
constexpr qsizetype kTextLength = 12;  // with the step after the last pair

}  // namespace

VLTimecodeTextView::VLTimecodeTextView(QWidget* parent) : QWidget(parent) {
  setFocusPolicy(Qt::StrongFocus);
  setCursor(Qt::IBeamCursor);
}

void VLTimecodeTextView::setTextOrigin(QPointF origin) {
  mOrigin = origin;
  update();
}

void VLTimecodeTextView::setText(const QString& text) {
  mText = text;
  update();
}

SMPTETime VLTimecodeTextView::smpteTime() const {
  SMPTETime time;
  time.mType = mTypeProvider != nullptr ? mTypeProvider->timecodeFormatForView(*this) : 0;
  parseSmpteTime(mText.toStdString(), time, time.mType);
  return time;
}

void VLTimecodeTextView::setSmpteTime(SMPTETime time) {
  ltc_normalize(time);
  if (mTypeProvider != nullptr) {
    mTypeProvider->setSmpteTime(time);
  }
  setText(QString::fromStdString(stringFromSMPTETime(time)));
  emit textDidChange();
}

// --- the selection

void VLTimecodeTextView::setSelectedRange(qsizetype start) {
  mSelectionStart = qBound(qsizetype{0}, start, kLastPair + 1) / kPairStep * kPairStep;
  update();
}

void VLTimecodeTextView::moveForward() {
  mNumEntered = 0;
  setSelectedRange((mSelectionStart + kPairStep) % kTextLength);
}

void VLTimecodeTextView::moveBackward() {
  mNumEntered = 0;
  setSelectedRange((mSelectionStart + kTextLength - kPairStep) % kTextLength);
}

void VLTimecodeTextView::selectPairAtLater(QPointF place) {
  host::current().mainQueue().async([view = QPointer(this), place] {
    if (view != nullptr) {
      view->mNumEntered = 0;
      view->setSelectedRange(view->indexOfCharacterAt(place));
    }
  });
}

QRectF VLTimecodeTextView::frameOfCharacter(qsizetype index) const {
  prepareGlyphs();
  return mGlyphs.frameOf(mOrigin, mText, index, 1);
}

qsizetype VLTimecodeTextView::indexOfCharacterAt(QPointF place) const {
  prepareGlyphs();
  return mGlyphs.indexAt(mOrigin, mText, place.x());
}

std::int16_t& VLTimecodeTextView::pairOf(SMPTETime& time) const {
  return hoursSelected()     ? time.mHours
         : minutesSelected() ? time.mMinutes
         : secondsSelected() ? time.mSeconds
                             : time.mFrames;
}

std::int32_t VLTimecodeTextView::limitOf(const SMPTETime& time) const {
  return hoursSelected() ? 24 : framesSelected() ? ltc_frames_per_second(time.mType) : 60;
}

// --- keys

bool VLTimecodeTextView::event(QEvent* event) {
  if (event->type() == QEvent::ShortcutOverride) {
    // A key alone belongs to the text, also where a menu has it.
    auto& key = static_cast<QKeyEvent&>(*event);
    if ((key.modifiers() & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)) == 0 ||
        key.matches(QKeySequence::Copy) || key.matches(QKeySequence::Paste)) {
      event->accept();
      return true;
    }
  }
  if (event->type() == QEvent::KeyPress) {
    // Before Qt takes the tabs for the focus.
    keyPressEvent(static_cast<QKeyEvent*>(event));
    return event->isAccepted();
  }
  return QWidget::event(event);
}

void VLTimecodeTextView::keyPressEvent(QKeyEvent* event) {
  event->accept();
  if (event->matches(QKeySequence::Copy)) {
    copy();
  } else if (event->matches(QKeySequence::Paste)) {
    paste();
  } else {
    const bool isBacktab =
        event->key() == Qt::Key_Tab && (event->modifiers() & Qt::ShiftModifier) != 0;
    const QString typed = event->text();
    const bool isDigit = typed.size() == 1 && typed[0] >= '0' && typed[0] <= '9';
    keyDown(isBacktab ? Qt::Key_Backtab : isDigit ? typed[0].unicode() : event->key());
  }
}

// Whether the key means anything.
bool VLTimecodeTextView::keyDown(int key) {
  switch (key) {
    case Qt::Key_Left:
      moveBackward();
      return true;
    case Qt::Key_Right:
      moveForward();
      return true;
    case Qt::Key_Tab:
      mNumEntered = 0;
      if (mSelectionStart + kPairStep <= kLastPair) {
        setSelectedRange(mSelectionStart + kPairStep);
      } else {
        focusNextPrevChild(true);
      }
      return true;
    case Qt::Key_Backtab:
      mNumEntered = 0;
      if (mSelectionStart >= kPairStep) {
        setSelectedRange(mSelectionStart - kPairStep);
      }
      return true;
    case Qt::Key_Return:
    case Qt::Key_Enter:
    case Qt::Key_Escape:
      dropFocus();
      return true;
    default:
      return mSelectionStart >= 0 && changePair(key);
  }
}

bool VLTimecodeTextView::changePair(int key) {
  SMPTETime time = smpteTime();
  std::int16_t& pair = pairOf(time);
  const std::int32_t limit = limitOf(time);
  switch (key) {
    case Qt::Key_Up:
      ++pair;
      if (framesSelected() && ltc_is_dropped_time(time)) {
        time.mFrames = 2;
      }
      break;
    case Qt::Key_Down:
      --pair;
      if (framesSelected() && ltc_is_dropped_time(time)) {
        --time.mSeconds;
        time.mFrames = 29;
      }
      break;
    case Qt::Key_Backspace:
      pair = 0;
      break;
    case Qt::Key_Delete:
      time.mHours = time.mMinutes = time.mSeconds = time.mFrames = 0;
      break;
    default:
      if (key < Qt::Key_0 || key > Qt::Key_9 || limit == 0) {
        return false;
      }
      pair =
          static_cast<std::int16_t>((key - Qt::Key_0 + (mNumEntered != 0 ? 10 * pair : 0)) % limit);
      ++mNumEntered;
  }
  const qsizetype selected = mSelectionStart;
  setSmpteTime(time);
  setSelectedRange(selected);
  if (mNumEntered == kPairLength) {
    moveForward();
  }
  return true;
}

void VLTimecodeTextView::dropFocus() {
  emit textDidEndEditing();
  clearFocus();
}

// --- copy and paste

void VLTimecodeTextView::copy() const {
  auto* copied = new QMimeData;
  copied->setData(kPasteboardType,
                  QByteArray::fromStdString(encodeableStringFromSMPTETime(smpteTime())));
  QGuiApplication::clipboard()->setMimeData(copied);
}

void VLTimecodeTextView::paste() {
  SMPTETime time;
  const QMimeData* pasted = QGuiApplication::clipboard()->mimeData();
  if (pasted != nullptr &&
      parseEncodedSmpteTime(pasted->data(kPasteboardType).toStdString(), time)) {
    // The digits as they are, as the clock takes a time of another format.
    time.mType = smpteTime().mType;
    setSmpteTime(time);
  }
}

// --- the rest of the view

void VLTimecodeTextView::mousePressEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton) {
    selectPairAtLater(event->position());
  }
}

void VLTimecodeTextView::focusOutEvent(QFocusEvent* event) {
  QWidget::focusOutEvent(event);
  // Behind another window or a menu the edit waits.
  if (event->reason() != Qt::ActiveWindowFocusReason && event->reason() != Qt::PopupFocusReason) {
    emit textDidEndEditing();
  }
}

void VLTimecodeTextView::prepareGlyphs() const {
  mGlyphs.prepare(font(), palette().color(QPalette::Text), devicePixelRatioF());
  mSelectedGlyphs.prepare(font(), palette().color(QPalette::HighlightedText), devicePixelRatioF());
}

void VLTimecodeTextView::paintEvent(QPaintEvent* /*event*/) {
  prepareGlyphs();
  QPainter painter(this);
  painter.fillRect(rect(), palette().color(QPalette::Base));
  painter.setPen(palette().color(QPalette::Highlight));
  painter.drawRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5));
  mGlyphs.draw(painter, mOrigin, mText);
  if (mSelectionStart >= 0) {
    const QRectF pair = mGlyphs.frameOf(mOrigin, mText, mSelectionStart, kPairLength);
    painter.fillRect(pair, palette().color(QPalette::Highlight));
    mSelectedGlyphs.draw(painter, mOrigin, mText, mSelectionStart, kPairLength);
  }
}

}  // namespace velor
