// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>

#include "Velor/clock/VLSharedCell.h"
#include "kvtimecode/SMPTETime.h"

namespace velor {

/// The callback after each change of the time. Its calls wait on the main queue; when
/// that queue is slow, several changes share one call, so that it does not grow without
/// bound.
class VLClockProceed {
 public:
  using Block = std::function<void(const SMPTETime* time)>;

  void setBlock(Block block) { mBlock.store(std::make_shared<const Block>(std::move(block))); }
  Block block() const {
    const auto block = mBlock.load();
    return block != nullptr ? *block : Block();
  }

  /// True when a call is to be posted; otherwise one of those that wait has yet to read
  /// the time, and will find this one. Any thread.
  bool begin() noexcept {
    const bool isPosted = mPending.fetch_add(1) < kMostPending;
    if (!isPosted) {
      mPending.fetch_sub(1);
    }
    return isPosted;
  }

  /// The call that was posted.
  template <class LatestTime>
  void call(LatestTime latestTime) {
    mPending.fetch_sub(1);
    if (const auto block = mBlock.load(); block != nullptr && *block) {
      const SMPTETime latest = latestTime();
      (*block)(&latest);
    }
  }

 private:
  static constexpr std::uint32_t kMostPending = 32;

  VLSharedCell<std::shared_ptr<const Block>> mBlock;
  std::atomic<std::uint32_t> mPending{0};
};

}  // namespace velor
