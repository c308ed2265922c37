// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/media/MediaService.h"
#include "sim/SimulatedPlayer.h"

namespace velor::media {

/// Players for made-up clips: any regular file is one.
class SimulatedMedia final : public MediaService {
 public:
  std::vector<std::string> missingPackages() override { return missing; }
  Expected<std::unique_ptr<Player>> initWithURL(const PlayerRequest& request,
                                                PlayerDelegate& delegate) override;

  /// By file name; others are as a SimulatedClip is.
  std::map<std::string, SimulatedClip> clips;
  std::vector<std::string> missing;
  /// In the order of their making; those that have ended, too.
  std::vector<SimulatedPlayer*> players;
};

}  // namespace velor::media
