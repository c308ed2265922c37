// SPDX-License-Identifier: MIT
#pragma once

namespace velor {

class VLMediaPlayer;

/// Decides whether the player's own controls may start and pause it. Queue: main.
class VLMediaPlayerDelegate {
 public:
  virtual bool mediaPlayerShouldPlay(VLMediaPlayer& player) = 0;
  virtual bool mediaPlayerShouldPause(VLMediaPlayer& player) = 0;

 protected:
  ~VLMediaPlayerDelegate() = default;
};

}  // namespace velor
