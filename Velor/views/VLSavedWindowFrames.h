// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "Velor/views/VLWindowFrames.h"

namespace velor {

class VLAppDelegate;

/// Keeps the frames of windows in the user's settings. Queue: main.
class VLSavedWindowFrames final : public VLWindowFrames {
 public:
  /// Before that, and once the controller is gone, nothing is saved.
  void setController(const std::shared_ptr<VLAppDelegate>& controller) { mController = controller; }

  QByteArray frame(const QString& name) const override;
  void saveFrame(const QString& name, const QByteArray& frame) override;

 private:
  std::weak_ptr<VLAppDelegate> mController;
};

}  // namespace velor
