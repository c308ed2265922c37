// SPDX-License-Identifier: MIT
#include "Velor/views/VLStatusImageView.h"

#include <QPainter>

#include "Velor/views/VLIcons.h"
#include "Velor/views/VLStyle.h"

namespace velor {

VLStatusImageView::VLStatusImageView(QWidget* parent) : QWidget(parent) {
  setFixedSize(VLStyle::kIcon, VLStyle::kIcon);
  setToolTip(word(mImage));
}

QIcon VLStatusImageView::icon(VLStatusImage image) {
  switch (image) {
    case VLStatusImage::available:
      return VLIcons::icon("statusAvailable", VLStyle::State::running);
    case VLStatusImage::partiallyAvailable:
      return VLIcons::icon("statusPartiallyAvailable", VLStyle::State::warning);
    case VLStatusImage::unavailable:
      return VLIcons::icon("statusUnavailable", VLStyle::State::stopped);
    case VLStatusImage::none:
      break;
  }
  return VLIcons::icon("statusNone");
}

QString VLStatusImageView::word(VLStatusImage image) {
  switch (image) {
    case VLStatusImage::available:
      return tr("running");
    case VLStatusImage::partiallyAvailable:
      return tr("freewheeling");
    case VLStatusImage::unavailable:
      return tr("error");
    case VLStatusImage::none:
      break;
  }
  return tr("idle");
}

void VLStatusImageView::setImage(VLStatusImage image) {
  if (image != mImage) {
    mImage = image;
    setToolTip(word(image));
    update();
  }
}

void VLStatusImageView::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  icon(mImage).paint(&painter, rect());
}

}  // namespace velor
