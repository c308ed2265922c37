// SPDX-License-Identifier: MIT
#pragma once

#include "platform/media/PlayerTypes.h"

namespace velor::media {

class Player;

/// Gets the reports of a player. Queue: main. No call comes from within an operation of the
/// player, and none once the player has ended.
class PlayerDelegate {
 public:
  /// Read Player::status again. A clip that was ready can fail later: its file goes away, or
  /// the rest of it cannot be decoded.
  virtual void playerStatusDidChange(Player& player) = 0;

  /// The position has jumped to `time`: a seek or a step has ended, or `setRate` with a
  /// position moved it. For a seek it comes before that seek's completion.
  virtual void playerDidJump(Player& player, MediaTime time) = 0;

  /// Read Player::rate again: by an operation, or since the clip has ended.
  virtual void playerRateDidChange(Player& player) = 0;

  /// Player::takeFrame has a new one.
  virtual void playerHasFrame(Player& player) = 0;

 protected:
  ~PlayerDelegate() = default;
};

}  // namespace velor::media
