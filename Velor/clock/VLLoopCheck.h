// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "kva/MIDI/KVMIDIEndpoint.h"
#include "platform/host/Queue.h"
#include "platform/midi/MIDITypes.h"

namespace velor {

/// Finds out whether MTC that goes out comes back in: a token of its own goes to
/// each destination, and one that a sync source brings within 100 ms has gone round.
///
/// One check at a time: `begin`, then `sendTokens` on the queue, which ends the
/// check by itself. All but `isUnderWay` and `begin` run on the queue.
class VLLoopCheck {
 public:
  using Endpoint = std::shared_ptr<KVMIDIEndpoint>;

  /// The queue must end before this does.
  explicit VLLoopCheck(host::Queue& queue) noexcept : mQueue(queue) {}
  VLLoopCheck(const VLLoopCheck&) = delete;
  VLLoopCheck& operator=(const VLLoopCheck&) = delete;

  /// Any thread.
  bool isUnderWay() const noexcept { return mUnderWay.load(); }

  /// False while a check is under way; it goes on then. Any thread.
  bool begin() noexcept { return !mUnderWay.exchange(true); }

  /// `source`, which may be null, is the one that is checked.
  void sendTokens(Endpoint source, const std::vector<Endpoint>& destinations,
                  midi::MIDIPortRef port);

  /// The destination to which the token went; null if it has gone since then.
  Endpoint destinationOf(std::uint32_t token) const;

  /// The source that is checked now, or null.
  Endpoint source() const;

 private:
  struct SentToken {
    std::uint32_t token;
    std::weak_ptr<KVMIDIEndpoint> destination;
  };

  void end();

  host::Queue& mQueue;
  std::vector<SentToken> mTokens KV_ON_QUEUE(mQueue);
  Endpoint mSource KV_ON_QUEUE(mQueue);
  std::atomic<bool> mUnderWay{false};
};

}  // namespace velor
