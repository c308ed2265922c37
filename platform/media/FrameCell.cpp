// SPDX-License-Identifier: MIT
#include "platform/media/FrameCell.h"

#include <mutex>
#include <utility>

#include "platform/host/Host.h"

namespace velor::media {

struct FrameCell::State {
  mutable std::mutex mutex;
  std::shared_ptr<const VideoFrame> frame;
  std::uint64_t replaced = 0;
};

FrameCell::FrameCell(std::function<void()> arrived)
    : mArrived(std::move(arrived)), mState(std::make_unique<State>()) {}

FrameCell::~FrameCell() = default;

void FrameCell::put(std::shared_ptr<const VideoFrame> frame) {
  {
    // The former frame is freed outside of the lock.
    const std::lock_guard lock(mState->mutex);
    mState->frame.swap(frame);
    if (frame != nullptr) {
      ++mState->replaced;
      return;  // whose job is still to come
    }
  }
  host::current().mainQueue().async(mSelf.job([](FrameCell& cell) { cell.mArrived(); }));
}

std::shared_ptr<const VideoFrame> FrameCell::take() {
  const std::lock_guard lock(mState->mutex);
  return std::move(mState->frame);
}

std::uint64_t FrameCell::replaced() const {
  const std::lock_guard lock(mState->mutex);
  return mState->replaced;
}

}  // namespace velor::media
