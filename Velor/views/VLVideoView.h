// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QWidget>
#include <memory>

#include "platform/media/VideoFrame.h"

namespace velor {

/// The picture of a clip, as large as the view allows in its aspect, on black; a text where
/// there is no picture. Queue: main.
class VLVideoView final : public QWidget {
  Q_OBJECT

 public:
  explicit VLVideoView(QWidget* parent = nullptr);

  /// Null takes the picture away.
  void setFrame(std::shared_ptr<const media::VideoFrame> frame);
  /// Shown while there is no picture.
  void setText(const QString& text);
  const QString& text() const { return mText; }

  QSize sizeHint() const override { return {640, 360}; }
  QSize minimumSizeHint() const override { return {160, 90}; }

 signals:
  void doubleClicked();

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* /*event*/) override { emit doubleClicked(); }

 private:
  QRectF pictureArea() const;

  std::shared_ptr<const media::VideoFrame> mFrame;
  QString mText;
};

}  // namespace velor
