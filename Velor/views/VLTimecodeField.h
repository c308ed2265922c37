// SPDX-License-Identifier: MIT
#pragma once

#include <QRectF>
#include <QString>
#include <QWidget>
#include <cstdint>
#include <memory>
#include <utility>

#include "Velor/views/VLTimecodeCell.h"
#include "Velor/views/VLTimecodeFieldDelegate.h"
#include "kvtimecode/SMPTETime.h"

namespace velor {

class VLTimecodeTextView;

/// A field of a window that holds one time; edited as those of the main panel, as soon as
/// it has the focus. Queue: main.
class VLTimecodeField final : public QWidget {
  Q_OBJECT

 public:
  explicit VLTimecodeField(QWidget* parent = nullptr);
  ~VLTimecodeField() override;

  const SMPTETime& smpteTime() const { return mCell.smpteTime(); }
  void setSmpteTime(const SMPTETime& time);
  const QString& stringValue() const { return mCell.stringValue(); }
  /// The format code of the time that was set last.
  std::uint32_t timecodeType() const { return _timecodeType; }

  void setDelegate(std::weak_ptr<VLTimecodeFieldDelegate> delegate) {
    mDelegate = std::move(delegate);
  }

  QSize sizeHint() const override;
  QSize minimumSizeHint() const override { return sizeHint(); }

 protected:
  void paintEvent(QPaintEvent* event) override;
  void focusInEvent(QFocusEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;

 private:
  QRectF textArea() const;
  void beginEditing();
  void textDidChange();
  void textDidEndEditing();

  VLTimecodeCell& mCell;  // a child
  VLTimecodeTextView* mEditor = nullptr;
  std::uint32_t _timecodeType = 0;
  std::weak_ptr<VLTimecodeFieldDelegate> mDelegate;
};

}  // namespace velor
