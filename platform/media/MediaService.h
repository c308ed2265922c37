// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/host/Error.h"
#include "platform/media/Player.h"
#include "platform/media/PlayerDelegate.h"
#include "platform/media/PlayerTypes.h"

namespace velor::media {

/// Makes players. Queue: main. The library behind it starts with the first of these calls, not
/// with the program: that can take a few tenths of a second, and some seconds on a machine on
/// which it has not looked for its plug-ins yet.
class MediaService {
 public:
  virtual ~MediaService() = default;
  MediaService(const MediaService&) = delete;
  MediaService& operator=(const MediaService&) = delete;

  /// The system's packages that must be installed before a clip can be played; none when all
  /// are there.
  virtual std::vector<std::string> missingPackages() = 0;

  /// A player that opens the clip; the delegate outlives it. Fails with the path and the reason
  /// when there is no file to open: none of that name, a folder, a pipe, no permission to read
  /// it. All that is wrong within the file comes as the status failed.
  virtual Expected<std::unique_ptr<Player>> initWithURL(const PlayerRequest& request,
                                                        PlayerDelegate& delegate) = 0;

 protected:
  MediaService() = default;
};

/// The current service; the application chooses it once, a test for each case. Null when the
/// program has none.
MediaService* service() noexcept;
void setService(MediaService* service) noexcept;

}  // namespace velor::media
