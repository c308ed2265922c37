// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

namespace velor {

/// Datagrams waiting to be sent, first in, first out, up to a number of bytes. Any thread
/// adds; one takes, and the adding thread wakes it when the queue was empty. Realtime-safe:
/// no.
class UDPSendQueue {
 public:
  struct Entry {
    std::vector<std::uint8_t> data;
    double timeout = 0;  ///< seconds; below 0 = for ever
    std::int64_t tag = 0;
    bool isConnect = false;  ///< stands for a connect, not a datagram
  };

  /// In bytes, with kOverhead for each entry.
  static constexpr std::size_t kMostBytes = 1 << 20;
  static constexpr std::size_t kOverhead = 64;

  enum class Added {
    yes,
    andWake,       ///< the caller must wake the taking thread
    refused,       ///< no room
    firstRefused,  ///< no room for the first time
  };

  /// Always has room for a connect.
  Added add(Entry entry) {
    const std::lock_guard lock(mMutex);
    const std::size_t bytes = bytesOf(entry);
    if (!entry.isConnect && mBytes + bytes > kMostBytes) {
      return std::exchange(mRefusing, true) ? Added::refused : Added::firstRefused;
    }
    mRefusing = false;
    mBytes += bytes;
    mEntries.push_back(std::move(entry));
    return std::exchange(mTakerAwake, true) ? Added::yes : Added::andWake;
  }

  /// Null when empty; the next `add` asks for a wake then.
  std::optional<Entry> take() {
    const std::lock_guard lock(mMutex);
    if (mEntries.empty()) {
      mTakerAwake = false;
      return std::nullopt;
    }
    Entry entry = std::move(mEntries.front());
    mEntries.pop_front();
    mBytes -= bytesOf(entry);
    return entry;
  }

 private:
  static std::size_t bytesOf(const Entry& entry) noexcept { return entry.data.size() + kOverhead; }

  std::mutex mMutex;
  // All below under mMutex.
  std::deque<Entry> mEntries;
  std::size_t mBytes = 0;
  bool mTakerAwake = false;
  bool mRefusing = false;
};

}  // namespace velor
