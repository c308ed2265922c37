// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QRectF>
#include <QString>
#include <QWidget>
#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include "Velor/app/VLTimecodeViewDelegate.h"
#include "Velor/app/VLTimecodeViewOutlet.h"
#include "Velor/clock/VLClockStatus.h"
#include "Velor/views/VLTimecodeCell.h"
#include "kvtimecode/KVSMPTETime.h"
#include "kvtimecode/SMPTETime.h"

namespace velor {

class VLTimecodeTextView;

/// The main panel: the running time, a row of boxes of which that of the current frame is
/// lit, and up to three small times. A click chooses the time to edit; Tab and Return do
/// the same. At frame rate it paints nothing but what changed. Queue: main.
class VLTimecodeView final : public QWidget, public VLTimecodeViewOutlet {
  Q_OBJECT

 public:
  enum class Time : std::uint8_t { main, offset, first, second };
  static constexpr std::array<Time, 4> kTimes{Time::main, Time::offset, Time::first, Time::second};

  explicit VLTimecodeView(QWidget* parent = nullptr);
  ~VLTimecodeView() override;

  SMPTETime smpteTime() const override { return cell(Time::main).smpteTime(); }
  SMPTETime startTime() const override { return mTimes.first; }
  SMPTETime smpteOffset() const override { return cell(Time::offset).smpteTime(); }
  SMPTETime stopTime() const override { return mTimes.second; }
  SMPTETime loopStartTime() const override { return mLoopTimes.first; }
  SMPTETime loopEndTime() const override { return mLoopTimes.second; }
  std::uint64_t playMode() const { return mPlayMode; }
  VLClockStatus clockStatus() const { return mClockStatus; }
  bool mainCounterIsEditable() const { return mMainCounterIsEditable; }
  std::shared_ptr<KVSMPTETime> time() const { return KVSMPTETime::smpteTimeWithTime(smpteTime()); }

  void setSmpteTime(const SMPTETime& time) override { copyTime(time); }
  void setTime(const KVSMPTETime& time) { copyTime(time.time()); }
  void copyTime(const SMPTETime& time) override;
  void setStartTime(const SMPTETime& time) override;
  // A time that the cell shows already, such as the echo of an edit, ends no edit.
  void setSmpteOffset(const SMPTETime& offset) override;
  void setStopTime(const SMPTETime& time) override;
  void setLoopStartTime(const SMPTETime& time) override;
  void setLoopEndTime(const SMPTETime& time) override;
  void setPlayMode(std::uint64_t playMode) override;
  void setClockStatus(VLClockStatus status) override;
  void setMainCounterIsEditable(bool editable) override;
  void setDelegate(std::weak_ptr<VLTimecodeViewDelegate> delegate) override {
    _delegate = std::move(delegate);
  }

  QString stringValue() const { return cell(Time::main).stringValue(); }
  void setStringValue(const QString& string);

  /// Of the whole drawing; the view is 100 logical pixels high at 1.
  void setScale(double scale);
  double scale() const { return mScale; }
  QSize sizeHint() const override;
  QSize minimumSizeHint() const override;

  // --- the single times, for accessibility

  VLTimecodeCell& cell(Time which) const { return *mCells[static_cast<std::size_t>(which)]; }
  QString label(Time which) const;
  QColor colorForSecondTimeLabel() const;
  bool isShown(Time which) const;
  bool canEdit(Time which) const;
  /// In the view's logical pixels.
  QRectF frame(Time which) const;
  QRectF boxFrame(int index) const;
  std::optional<Time> edited() const { return mEdited; }
  VLTimecodeTextView* editor() const { return mEditor; }
  /// Which one Return would edit, while the view has the focus.
  Time focused() const { return mFocused; }
  /// With the first pair selected. No effect on one that cannot be edited.
  void beginEditing(Time which);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void focusInEvent(QFocusEvent* event) override;
  bool focusNextPrevChild(bool next) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  using TimePair = std::pair<SMPTETime, SMPTETime>;

  bool isLoop() const { return mPlayMode == VLPlayModeLoop; }
  bool canEditFirstCell() const { return isLoop(); }
  bool canEditSecondCell() const;
  bool canEditOffset() const;

  void startEditing(Time which);
  void textDidChange();
  void textDidEndEditing();
  void endEditing(VLTimecodeCell& closed);
  void endEditingOf(Time which);
  void setUnlessShown(Time which, const SMPTETime& time);
  void tell(void (VLTimecodeViewDelegate::*changed)(VLTimecodeViewOutlet&));
  void showFrames();
  void updateFrame(const QRectF& frame);
  bool moveFocus(bool next);

  void drawBackground(QPainter& painter, const QRegion& region) const;
  void drawBoxes(QPainter& painter, const QRegion& region) const;
  void drawLabel(QPainter& painter, Time which, const QColor& color) const;

  double mScale = 1;
  std::array<VLTimecodeCell*, 4> mCells;  // children
  VLTimecodeTextView* mEditor = nullptr;  // the same
  std::optional<Time> mEdited;
  Time mFocused = Time::main;
  bool mMainCounterIsEditable = false;
  std::uint64_t mPlayMode = VLPlayModeNormal;
  int mNumFrames = 0;
  bool mValid = false;
  int mFrameIndex = 0;
  VLClockStatus mClockStatus = VLClockStopped;
  TimePair mLoopTimes;
  TimePair mTimes;
  std::weak_ptr<VLTimecodeViewDelegate> _delegate;
};

}  // namespace velor
