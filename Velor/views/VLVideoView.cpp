// SPDX-License-Identifier: MIT
#include "Velor/views/VLVideoView.h"

#include <QImage>
#include <QPainter>
#include <utility>

#include "Velor/views/VLStyle.h"

namespace velor {

VLVideoView::VLVideoView(QWidget* parent) : QWidget(parent) {
  setAttribute(Qt::WA_OpaquePaintEvent);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Expanding);
}

void VLVideoView::setFrame(std::shared_ptr<const media::VideoFrame> frame) {
  mFrame = std::move(frame);
  update();
}

void VLVideoView::setText(const QString& text) {
  if (mText != text) {
    mText = text;
    setAccessibleDescription(text);
    update();
  }
}

QRectF VLVideoView::pictureArea() const {
  QSizeF size(mFrame->width * mFrame->pixelAspect, mFrame->height);
  size.scale(QSizeF(this->size()), Qt::KeepAspectRatio);
  QRectF area({}, size);
  area.moveCenter(QRectF(rect()).center());
  return area;
}

void VLVideoView::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.fillRect(rect(), Qt::black);
  if (mFrame != nullptr) {
    // Shares the memory of the frame, whose fourth byte means nothing.
    const QImage picture(mFrame->data, mFrame->width, mFrame->height,
                         static_cast<qsizetype>(mFrame->bytesPerRow), QImage::Format_RGB32);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(pictureArea(), picture);
    return;
  }
  painter.setPen(Qt::white);
  painter.drawText(
      rect().adjusted(VLStyle::kEdge, VLStyle::kEdge, -VLStyle::kEdge, -VLStyle::kEdge),
      Qt::AlignCenter | Qt::TextWordWrap, mText);
}

}  // namespace velor
