// SPDX-License-Identifier: MIT
#pragma once

#include "platform/media/MediaService.h"

namespace velor::media {

/// Players over GStreamer, whose sound goes to the current audio service.
class GStreamerMedia final : public MediaService {
 public:
  GStreamerMedia() = default;

  std::vector<std::string> missingPackages() override;
  Expected<std::unique_ptr<Player>> initWithURL(const PlayerRequest& request,
                                                PlayerDelegate& delegate) override;
};

}  // namespace velor::media
