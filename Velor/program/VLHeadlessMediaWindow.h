// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "Velor/media/VLMediaPlaybackWindowController.h"
#include "Velor/program/VLStandardError.h"

namespace velor {

/// Stands in for a media window of a run without windows: its clip is heard and not seen. What
/// is wrong with the clip goes to standard error; the controller has logged it.
class VLHeadlessMediaWindow : public VLMediaPlaybackWindowOutlet {
 public:
  explicit VLHeadlessMediaWindow(std::weak_ptr<VLMediaPlaybackWindowController> controller)
      : mController(std::move(controller)) {}

  /// Nobody picks a file: the window stays without its clip.
  void beginOpenPanel(const FileChosen& /*chosen*/) override {
    if (const auto controller = mController.lock()) {
      VLStandardError::tell(controller->error().empty() ? "a media window has no clip"
                                                        : controller->error());
    }
  }
  void presentError(const std::string& text) override { VLStandardError::tell(text); }

 protected:
  std::shared_ptr<VLMediaPlaybackWindowController> controller() const { return mController.lock(); }

 private:
  const std::weak_ptr<VLMediaPlaybackWindowController> mController;
};

}  // namespace velor
