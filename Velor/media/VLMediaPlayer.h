// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <utility>

#include "Velor/media/VLMediaPlayerDelegate.h"
#include "platform/host/Error.h"
#include "platform/media/MediaService.h"

namespace velor {

/// A player whose controls ask a delegate first. What the chase commands goes straight to the
/// player below and is never refused. Queue: main.
class VLMediaPlayer {
 public:
  /// Both delegates outlive it. Fails as MediaService::initWithURL. Asserts the path.
  static Expected<std::unique_ptr<VLMediaPlayer>> initWithURL(const media::PlayerRequest& request,
                                                              media::PlayerDelegate& reports,
                                                              VLMediaPlayerDelegate& delegate);

  void play();
  void pause();
  /// Asks where it starts a player that stands, and where it is exactly 0.
  void setRate(float rate);
  void pauseInEveryCase() { mPlayer->setRate(0.0F); }

  media::Player& player() const noexcept { return *mPlayer; }

 private:
  VLMediaPlayer(std::unique_ptr<media::Player> player, VLMediaPlayerDelegate& delegate)
      : mPlayer(std::move(player)), mDelegate(delegate) {}

  const std::unique_ptr<media::Player> mPlayer;
  VLMediaPlayerDelegate& mDelegate;
};

}  // namespace velor
