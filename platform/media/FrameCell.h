// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "platform/host/WeakSelf.h"
#include "platform/media/VideoFrame.h"

namespace velor::media {

/// The latest frame on its way from a player's thread to the main queue. It holds one, so it
/// is never full: a frame that comes before the one in it was taken replaces that and is
/// counted. Made and ended on the main queue, after the last `put`.
class FrameCell {
 public:
  /// `arrived` runs on the main queue: once for all frames that were put since the last `take`.
  explicit FrameCell(std::function<void()> arrived);
  ~FrameCell();
  FrameCell(const FrameCell&) = delete;
  FrameCell& operator=(const FrameCell&) = delete;

  /// Any thread. Realtime-safe: no.
  void put(std::shared_ptr<const VideoFrame> frame);
  /// Null when none came since the last call. Queue: main.
  std::shared_ptr<const VideoFrame> take();
  /// Frames that were replaced before they were taken. Any thread.
  std::uint64_t replaced() const;

 private:
  struct State;

  const std::function<void()> mArrived;
  const std::unique_ptr<State> mState;
  const host::WeakSelf<FrameCell> mSelf{this};
};

}  // namespace velor::media
