// SPDX-License-Identifier: MIT
#include "Velor/views/VLTimecodeView.h"

#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPaintEvent>
#include <QPainter>
#include <QPainterPath>
#include <algorithm>
#include <cmath>

#include "Velor/clock/VLClock.h"
#include "Velor/views/VLClockStatusText.h"
#include "Velor/views/VLTimecodeAccessible.h"
#include "Velor/views/VLTimecodeLayout.h"
#include "Velor/views/VLTimecodeTextView.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {
namespace {

constexpr QColor kLabelColor(85, 85, 85);
constexpr QColor kBackgroundColor(217, 217, 230);
constexpr QColor kFocusColor(26, 79, 191);
constexpr int kMainPixelSize = 36;
constexpr int kSmallPixelSize = 12;
constexpr int kLabelPixelSize = 10;
constexpr double kCornerRadius = 3;  // at scale 1

// The panel keeps its colours, whatever those of the desktop are.
QPalette editorPalette() {
  QPalette palette;
  palette.setColor(QPalette::Base, Qt::white);
  palette.setColor(QPalette::Text, Qt::black);
  palette.setColor(QPalette::Highlight, kFocusColor);
  palette.setColor(QPalette::HighlightedText, Qt::white);
  return palette;
}

bool isEqual(const SMPTETime& a, const SMPTETime& b) {
  return ltc_cancompare(a, b) && ltc_compare(a, b) == 0;
}

}  // namespace

VLTimecodeView::VLTimecodeView(QWidget* parent)
    : QWidget(parent),
      mCells{new VLTimecodeCell(*this, kMainPixelSize, Qt::AlignHCenter),
             new VLTimecodeCell(*this, kSmallPixelSize, Qt::AlignLeft),
             new VLTimecodeCell(*this, kSmallPixelSize, Qt::AlignLeft),
             new VLTimecodeCell(*this, kSmallPixelSize, Qt::AlignLeft)} {
  VLTimecodeAccessible::install();
  for (const Time which : {Time::offset, Time::first, Time::second}) {
    cell(which).setTextColor(kLabelColor);
  }
  // A click does not take the focus: outside of the times it does nothing.
  setFocusPolicy(Qt::TabFocus);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

VLTimecodeView::~VLTimecodeView() {
  if (mEditor != nullptr) {
    mEditor->disconnect(this);
  }
}

// --- what it shows

void VLTimecodeView::copyTime(const SMPTETime& time) {
  if (isEqual(time, smpteTime())) {
    return;
  }
  if (mEdited == Time::main) {
    endEditing(cell(Time::main));
  }
  cell(Time::main).setSmpteTime(time);
  showFrames();
}

// Marks for redraw what differs.
void VLTimecodeView::showFrames() {
  const SMPTETime time = smpteTime();
  const int numFrames = ltc_frames_per_second(time.mType);
  const bool isValid = ltc_is_valid(time);
  if (numFrames != mNumFrames || isValid != mValid) {
    mNumFrames = numFrames;
    mValid = isValid;
    update();
  }
  if (time.mFrames != mFrameIndex) {
    updateFrame(boxFrame(mFrameIndex));
    updateFrame(boxFrame(time.mFrames));
    mFrameIndex = time.mFrames;
  }
  updateFrame(cell(Time::main).textFrame(frame(Time::main)));
}

void VLTimecodeView::setUnlessShown(Time which, const SMPTETime& time) {
  if (!isEqual(time, cell(which).smpteTime())) {
    endEditingOf(which);
    cell(which).setSmpteTime(time);
    update();
  }
}

void VLTimecodeView::setSmpteOffset(const SMPTETime& offset) {
  setUnlessShown(Time::offset, offset);
}

void VLTimecodeView::setStartTime(const SMPTETime& time) {
  mTimes.first = time;
  if (!isLoop()) {
    cell(Time::first).setSmpteTime(time);
    update();
  }
}

void VLTimecodeView::setStopTime(const SMPTETime& time) {
  mTimes.second = time;
  if (!isLoop()) {
    setUnlessShown(Time::second, time);
  } else {
    endEditingOf(Time::second);
  }
}

void VLTimecodeView::setLoopStartTime(const SMPTETime& time) {
  mLoopTimes.first = time;
  if (isLoop()) {
    cell(Time::first).setSmpteTime(time);
  }
  update();
}

void VLTimecodeView::setLoopEndTime(const SMPTETime& time) {
  mLoopTimes.second = time;
  if (isLoop()) {
    setUnlessShown(Time::second, time);
  } else {
    endEditingOf(Time::second);
  }
  update();
}

void VLTimecodeView::setPlayMode(std::uint64_t playMode) {
  mPlayMode = playMode;
  const TimePair& times = isLoop() ? mLoopTimes : mTimes;
  cell(Time::first).setSmpteTime(times.first);
  cell(Time::second).setSmpteTime(times.second);
  cell(Time::second).setTextColor(colorForSecondTimeLabel());
  endEditingOf(Time::first);
  endEditingOf(Time::second);
  update();
}

void VLTimecodeView::setClockStatus(VLClockStatus status) {
  mClockStatus = status;
  update();
  for (const Time which : {Time::first, Time::second, Time::offset}) {
    endEditingOf(which);
  }
}

void VLTimecodeView::setMainCounterIsEditable(bool editable) {
  mMainCounterIsEditable = editable;
  if (editable || !mEdited) {
    return;
  }
  if (*mEdited == Time::main || (*mEdited == Time::offset && !canEditOffset())) {
    endEditing(cell(*mEdited));
  } else if (*mEdited == Time::second && !canEditSecondCell()) {
    endEditing(cell(Time::first));  // they share the editor
  }
}

void VLTimecodeView::setStringValue(const QString& string) {
  cell(Time::main).setStringValue(string);
  update(rect().adjusted(0, 3, 0, -3));
}

void VLTimecodeView::setScale(double scale) {
  mScale = scale;
  if (mEdited) {
    endEditing(cell(*mEdited));
  }
  for (VLTimecodeCell* each : mCells) {
    each->setScale(scale);
  }
  updateGeometry();
  update();
}

// --- which times there are

QString VLTimecodeView::label(Time which) const {
  switch (which) {
    case Time::main:
      return tr("Timecode");
    case Time::offset:
      return tr("Offset");
    case Time::first:
      return isLoop() ? tr("Loop Start") : tr("Start Time");
    case Time::second:
      return isLoop() ? tr("Loop End") : tr("Stop Time");
  }
  return {};
}

bool VLTimecodeView::isShown(Time which) const {
  const bool isTimeOfDay = mPlayMode == VLPlayModeTimeOfDay;
  return which == Time::first    ? !isTimeOfDay
         : which == Time::second ? !isTimeOfDay && mPlayMode != VLPlayModeNormal
                                 : true;
}

bool VLTimecodeView::canEdit(Time which) const {
  switch (which) {
    case Time::main:
      return mMainCounterIsEditable;
    case Time::offset:
      return canEditOffset();
    case Time::first:
      return canEditFirstCell();
    case Time::second:
      return canEditSecondCell();
  }
  return false;
}

bool VLTimecodeView::canEditSecondCell() const {
  const auto delegate = _delegate.lock();
  return isLoop() || (delegate != nullptr && delegate->canEditStopTimeInTimecodeView(*this));
}

bool VLTimecodeView::canEditOffset() const {
  const auto delegate = _delegate.lock();
  return delegate != nullptr && delegate->canEditOffsetInTimecodeView(*this);
}

// --- editing

void VLTimecodeView::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) {
    return;
  }
  for (const Time which : kTimes) {
    if (frame(which).contains(event->position()) && canEdit(which)) {
      startEditing(which);
      mEditor->setFocus(Qt::MouseFocusReason);
      mEditor->selectPairAtLater(event->position() - mEditor->pos());
      return;
    }
  }
}

void VLTimecodeView::beginEditing(Time which) {
  if (isShown(which) && canEdit(which)) {
    startEditing(which);
    mEditor->setFocus(Qt::OtherFocusReason);
  }
}

void VLTimecodeView::startEditing(Time which) {
  if (mEdited) {
    endEditing(cell(*mEdited));
  }
  const bool isFirst = mEditor == nullptr;
  mEditor = &cell(which).fieldEditorForView(*this);
  if (isFirst) {
    mEditor->setPalette(editorPalette());
    connect(mEditor, &VLTimecodeTextView::textDidChange, this, &VLTimecodeView::textDidChange);
    connect(mEditor, &VLTimecodeTextView::textDidEndEditing, this,
            &VLTimecodeView::textDidEndEditing);
  }
  mEdited = which;
  mFocused = which;
  mEditor->setAccessibleName(label(which));
  cell(which).edit(*mEditor, frame(which));
  mEditor->setSelectedRange(0);
  update();
}

void VLTimecodeView::tell(void (VLTimecodeViewDelegate::*changed)(VLTimecodeViewOutlet&)) {
  if (const auto delegate = _delegate.lock()) {
    ((*delegate).*changed)(*this);
  }
}

void VLTimecodeView::textDidChange() {
  if (!mEdited) {
    return;
  }
  VLTimecodeCell& changed = cell(*mEdited);
  const bool wasMain = *mEdited == Time::main;
  changed.setStringValue(mEditor->text());
  const SMPTETime time = changed.smpteTime();
  switch (*mEdited) {
    case Time::main:
      tell(&VLTimecodeViewDelegate::timecodeDidChange);
      break;
    case Time::offset:
      tell(&VLTimecodeViewDelegate::offsetDidChange);
      break;
    case Time::first:
      (isLoop() ? mLoopTimes.first : mTimes.second) = time;
      tell(isLoop() ? &VLTimecodeViewDelegate::loopStartTimeDidChange
                    : &VLTimecodeViewDelegate::stopTimeDidChange);
      break;
    case Time::second:
      (isLoop() ? mLoopTimes.second : mTimes.second) = time;
      tell(isLoop() ? &VLTimecodeViewDelegate::loopEndTimeDidChange
                    : &VLTimecodeViewDelegate::stopTimeDidChange);
      break;
  }
  if (wasMain) {
    showFrames();
  }
}

void VLTimecodeView::textDidEndEditing() {
  if (mEdited) {
    endEditing(cell(*mEdited));
  }
}

void VLTimecodeView::endEditing(VLTimecodeCell& closed) {
  mEdited.reset();  // first: the editor reports that it loses the focus
  closed.endEditing(*mEditor);
  update();
}

void VLTimecodeView::endEditingOf(Time which) {
  if (mEdited == which) {
    endEditing(cell(which));
  }
}

void VLTimecodeView::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  if (mEdited) {
    cell(*mEdited).edit(*mEditor, frame(*mEdited));
  }
}

// --- the keyboard

void VLTimecodeView::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
    beginEditing(mFocused);
  } else {
    QWidget::keyPressEvent(event);
  }
}

void VLTimecodeView::focusInEvent(QFocusEvent* event) {
  QWidget::focusInEvent(event);
  if (event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason) {
    const bool isNext = event->reason() == Qt::TabFocusReason;
    mFocused = isNext ? Time::main : Time::second;
    if (!isShown(mFocused) || !canEdit(mFocused)) {
      moveFocus(isNext);
    }
  }
}

bool VLTimecodeView::focusNextPrevChild(bool next) {
  return (hasFocus() && moveFocus(next)) || QWidget::focusNextPrevChild(next);
}

// To the next time that can be edited, if there is one.
bool VLTimecodeView::moveFocus(bool next) {
  const int step = next ? 1 : -1;
  for (int i = static_cast<int>(mFocused) + step; i >= 0 && i < static_cast<int>(kTimes.size());
       i += step) {
    const Time which = kTimes[static_cast<std::size_t>(i)];
    if (isShown(which) && canEdit(which)) {
      mFocused = which;
      update();
      VLTimecodeAccessible::focusDidMove(cell(which));
      return true;
    }
  }
  return false;
}

// --- drawing

QSize VLTimecodeView::sizeHint() const {
  return minimumSizeHint();
}

QSize VLTimecodeView::minimumSizeHint() const {
  return (VLTimecodeLayout::kLeastSize * mScale).toSize();
}

QRectF VLTimecodeView::frame(Time which) const {
  const VLTimecodeLayout layout(size(), mScale);
  return which == Time::main ? layout.mainTime() : layout.smallTime(static_cast<int>(which) - 1);
}

// On whole device pixels, so that all boxes look alike.
QRectF VLTimecodeView::boxFrame(int index) const {
  const QRectF box = VLTimecodeLayout(size(), mScale).box(index, mNumFrames);
  const double ratio = devicePixelRatioF();
  // The window begins on one; at a ratio of 1.5 this view may not.
  const QPointF begin = mapTo(window(), QPointF());
  const auto snap = [ratio](double place, double from) {
    return std::round((from + place) * ratio) / ratio - from;
  };
  return {QPointF(snap(box.left(), begin.x()), snap(box.top(), begin.y())),
          QPointF(snap(box.right(), begin.x()), snap(box.bottom(), begin.y()))};
}

void VLTimecodeView::updateFrame(const QRectF& frame) {
  update(frame.toAlignedRect());
}

void VLTimecodeView::paintEvent(QPaintEvent* event) {
  const QRegion& region = event->region();
  QPainter painter(this);
  drawBackground(painter, region);
  if (mValid) {
    drawBoxes(painter, region);
  }
  for (const Time which : kTimes) {
    if (!isShown(which) || !region.intersects(frame(which).toAlignedRect())) {
      continue;
    }
    cell(which).draw(painter, frame(which));
  }
  const int labels = static_cast<int>(frame(Time::offset).bottom());
  for (const Time which : {Time::offset, Time::first, Time::second}) {
    if (isShown(which) && region.boundingRect().bottom() >= labels) {
      drawLabel(painter, which, which == Time::second ? colorForSecondTimeLabel() : kLabelColor);
    }
  }
  if (hasFocus() && canEdit(mFocused)) {
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(kFocusColor, 2));
    const QRectF text = cell(mFocused).textFrame(frame(mFocused));
    painter.drawRoundedRect(text.adjusted(-3, 0, 3, 0), kCornerRadius, kCornerRadius);
  }
}

// Corners and border only where they are asked for.
void VLTimecodeView::drawBackground(QPainter& painter, const QRegion& region) const {
  const int border = static_cast<int>(std::ceil(kCornerRadius * mScale));
  if (rect().adjusted(border, border, -border, -border).contains(region.boundingRect())) {
    for (const QRect& part : region) {
      painter.fillRect(part, kBackgroundColor);
    }
    return;
  }
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setBrush(kBackgroundColor);
  painter.setPen(QPen(Qt::black, mScale));
  const double half = mScale / 2;
  painter.drawRoundedRect(QRectF(rect()).adjusted(half, half, -half, -half), kCornerRadius * mScale,
                          kCornerRadius * mScale);
  painter.restore();
}

void VLTimecodeView::drawBoxes(QPainter& painter, const QRegion& region) const {
  const double line =
      1 / devicePixelRatioF() * std::max(1.0, std::round(mScale * devicePixelRatioF()));
  const QColor lit = VLQColor(VLClock::colorForClockState(mClockStatus));
  for (int i = 0; i < mNumFrames; ++i) {
    const QRectF box = boxFrame(i);
    if (!region.intersects(box.toAlignedRect())) {
      continue;
    }
    painter.fillRect(box, kLabelColor);
    painter.fillRect(box.adjusted(line, line, -line, -line),
                     i == mFrameIndex ? lit : kBackgroundColor);
  }
}

void VLTimecodeView::drawLabel(QPainter& painter, Time which, const QColor& color) const {
  QFont font = QApplication::font();
  font.setPixelSize(static_cast<int>(std::lround(kLabelPixelSize * mScale)));
  const QRectF cellFrame = frame(which);
  painter.setFont(font);
  painter.setPen(color);
  const double bottom = VLTimecodeLayout(size(), mScale).labelBottom();
  painter.drawText(QPointF(cellFrame.x(), bottom - QFontMetricsF(font).descent()), label(which));
}

QColor VLTimecodeView::colorForSecondTimeLabel() const {
  return mPlayMode == VLPlayModeStop ? VLQColor(VLClock::stopModeColor())
         : isLoop()                  ? VLQColor(VLClock::loopModeColor())
                                     : kLabelColor;
}

}  // namespace velor
