// SPDX-License-Identifier: MIT
#include "sim/SimulatedMedia.h"

#include <unistd.h>

#include <system_error>

namespace velor::media {

Expected<std::unique_ptr<Player>> SimulatedMedia::initWithURL(const PlayerRequest& request,
                                                              PlayerDelegate& delegate) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(request.path, error)) {
    return failure(request.path.string() + ": " + (error ? error.message() : "not a regular file"));
  }
  if (::access(request.path.c_str(), R_OK) != 0) {
    return failure(request.path.string() + ": no permission to read it");
  }
  const auto known = clips.find(request.path.filename().string());
  auto player = std::make_unique<SimulatedPlayer>(
      known != clips.end() ? known->second : SimulatedClip{}, request.wantsVideo, delegate);
  players.push_back(player.get());
  return player;
}

}  // namespace velor::media
