// SPDX-License-Identifier: MIT
#include "Velor/views/VLSavedWindowFrames.h"

#include "Velor/app/VLAppDelegate.h"

namespace velor {

QByteArray VLSavedWindowFrames::frame(const QString& name) const {
  const auto controller = mController.lock();
  if (controller == nullptr) {
    return {};
  }
  const auto& place = controller->settings().windowPlace(name.toStdString());
  return {reinterpret_cast<const char*>(place.data()), static_cast<qsizetype>(place.size())};
}

void VLSavedWindowFrames::saveFrame(const QString& name, const QByteArray& frame) {
  if (const auto controller = mController.lock()) {
    controller->settings().setWindowPlace(name.toStdString(), {frame.begin(), frame.end()});
  }
}

}  // namespace velor
