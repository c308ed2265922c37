// SPDX-License-Identifier: MIT
#include "platform/host/LogTail.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace velor::host {
namespace {

// Without a constructor that runs: a handler may ask for it at any time.
constinit LogTail gTail;

}  // namespace

LogTail& LogTail::shared() noexcept {
  return gTail;
}

void LogTail::add(std::string_view text) noexcept {
  const std::lock_guard lock(mWriters);
  if (mIsClosed.load()) {
    return;
  }
  const std::size_t count = mCount.load(std::memory_order_relaxed);
  Line& line = mLines[count % kPlaces];
  line.time = std::chrono::duration_cast<std::chrono::nanoseconds>(
                  std::chrono::system_clock::now().time_since_epoch())
                  .count();
  line.size = std::min(text.size(), line.text.size());
  std::memcpy(line.text.data(), text.data(), line.size);
  mCount.store(count + 1, std::memory_order_release);
}

std::size_t LogTail::size() const noexcept {
  return std::min(mCount.load(std::memory_order_acquire), kLines);
}

const LogTail::Line& LogTail::operator[](std::size_t place) const noexcept {
  return mLines[(mCount.load(std::memory_order_acquire) - size() + place) % kPlaces];
}

}  // namespace velor::host
