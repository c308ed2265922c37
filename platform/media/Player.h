// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/media/AudioTap.h"
#include "platform/media/PlayerTypes.h"
#include "platform/media/VideoFrame.h"

namespace velor::media {

/// Plays one clip: its sound on the default output of the audio service, its video as frames
/// that the owner paints. A new player opens its clip in the background and stands at the
/// clip's start with the rate 0.
///
/// The timeline of a player is what it has been told: from host time H on, position P at rate
/// R, that is, P + R * (now - H). Sound and frames leave at the moments that the timeline
/// gives them, however late an operation was called; while a seek is under way they are
/// missing, and then they are at once where the timeline is. What is heard or shown late
/// stays in step: nothing is made up for. Before position 0 the player is silent and shows
/// the clip's first frame; at the clip's end it stops there with the rate 0, shows the last
/// frame, and can be started and sought again. The pitch follows the rate.
///
/// Queue: main, unless an operation says otherwise. No operation waits: not for the file, not
/// for a decoder, not for a device. Operations take effect in the order of their calls; those
/// that move or start the clip do nothing unless the status is readyToPlay.
class Player {
 public:
  /// Fastest rate; a higher one counts as this one. One below 0, or not a number, counts as 0.
  static constexpr float kMostRate = 4;

  /// Ends all work on the clip; may wait for the player's own threads.
  virtual ~Player() = default;
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  virtual PlayerStatus status() const = 0;
  /// For people; empty unless the status is failed.
  virtual std::string error() const = 0;

  // --- the clip; known once the status is readyToPlay

  /// 0 before.
  virtual MediaTime duration() const = 0;
  /// From the clip's metadata; empty when there is none.
  virtual std::string title() const = 0;
  /// Frames a second of the first video track; NaN when there is none.
  virtual double nominalFrameRate() const = 0;
  /// Tracks of sound that are heard.
  virtual std::size_t audioTrackCount() const = 0;
  /// Channels of such a track.
  virtual std::size_t audioChannelCount(std::size_t track) const = 0;

  // --- transport

  /// Any thread. Of the timeline, as of the last operation; 0 while it stands. Realtime-safe: no.
  virtual float rate() const = 0;
  /// Any thread. Where the timeline is now: what is heard and shown, or, while a seek is under
  /// way, where that will come out. Below 0 before the clip's start, at most the duration.
  /// A player that is paused says the position of the frame that it shows. Realtime-safe: no.
  virtual MediaTime currentTime() const = 0;
  /// From here on, from the current position. 0 pauses: the sound ends at once.
  virtual void setRate(float rate) = 0;
  /// From the host time (ns) on, at the rate, as if it had been at `time` at that moment, which
  /// may lie in the past. A difference of up to 400 ms to the timeline before makes no gap in
  /// the picture, and a change of the rate alone none in the sound either.
  virtual void setRate(float rate, MediaTime time, std::uint64_t hostTime) = 0;
  /// To exactly `time`, limited to the clip; the rate stays. `completion` gets true when
  /// the frame there is ready, false when a later seek or `setRate` with a position replaced
  /// this one or the status is not readyToPlay. It runs on the main queue, and not at all once
  /// the player has ended.
  virtual void seekToTime(MediaTime time, std::function<void(bool finished)> completion) = 0;
  /// By whole frames of the video, forwards or (below 0) backwards, as a seek of a clip that is
  /// paused first; a clip without video goes by 40 ms.
  virtual void stepByCount(int frames) = 0;

  // --- sound

  /// 0 to 1, of the amplitude; 1 at first. Others are limited to this.
  virtual float volume() const = 0;
  virtual void setVolume(float volume) = 0;
  /// For the blocks from now on; null takes it away. The player keeps the tap as long as it uses
  /// it.
  virtual void setAudioTap(std::size_t track, std::shared_ptr<AudioTap> tap) = 0;

  // --- video

  /// The latest frame, when one came since the last call; else null.
  virtual std::shared_ptr<const VideoFrame> takeFrame() = 0;
  /// Frames that came too late to be shown or were replaced before they were taken.
  virtual std::uint64_t droppedFrames() const = 0;

 protected:
  Player() = default;
};

}  // namespace velor::media
