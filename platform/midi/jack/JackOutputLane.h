// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "platform/host/Mailbox.h"
#include "platform/host/Realtime.h"
#include "platform/jack/JackTimeBase.h"
#include "platform/midi/MIDITypes.h"

namespace velor::midi {

/// The packets that wait for one JACK output port: senders put them in, the process
/// callback takes out those of its cycle, in the order of their times and each at
/// its frame.
///
/// The packets of one list keep their spacing to the sample: the first one's time
/// is brought to a frame when its cycle comes, and the others are counted from
/// there at the nominal rate, so that the jitter of the server's own time does
/// not get between them.
class JackOutputLane {
 public:
  /// Packets that can wait, in each of two places: to be read, and for their
  /// cycle. When full, `send` refuses.
  static constexpr std::uint32_t kPackets = 256;
  /// A packet that is still here this long (ns) after its time, or after it was sent if that
  /// was later, is dropped and counted: old timecode in a burst, after a server stood still,
  /// would mislead. One cycle is added, since a packet that is sent during a cycle waits for
  /// the next.
  static constexpr MIDITimeStamp kLatest = 20'000'000;
  /// The same for packets that go at once: they may wait for a connection.
  static constexpr MIDITimeStamp kLatestAtOnce = 2'000'000'000;

  /// One sender at a time. `now` is the host time.
  OSStatus send(const MIDIPacketList& packets, MIDITimeStamp now) noexcept;

  /// Process callback alone. `write(offset, data, length)` puts an event at an
  /// offset of this cycle, in rising order, and says whether it found room.
  template <class Write>
  void process(const host::RealtimeContext& realtime, const jack::JackCycle& cycle,
               const Write& write) noexcept {
    takeUp(realtime);
    const MIDITimeStamp length = cycle.timeAt(cycle.frames) - cycle.startTime;
    std::uint32_t lastOffset = 0;
    std::uint32_t done = 0;
    for (; done < mWaiting; ++done) {
      const Packet& packet = mPackets[mOrder[done]];
      std::uint32_t offset = 0;
      if (!isDue(packet, cycle, offset)) {
        break;
      }
      if (cycle.startTime > packet.latest + length) {
        mDropped.fetch_add(1, std::memory_order_relaxed);
        continue;
      }
      lastOffset = offset > lastOffset ? offset : lastOffset;
      if (!write(lastOffset, packet.data.data(), packet.length)) {
        break;  // the port's buffer is full: first thing in the next cycle
      }
    }
    removeFirst(done);
  }

  /// Whether all that was sent has gone out or was too late. Any thread.
  bool isEmpty() const noexcept { return mUnsent.load() == 0; }

  /// How many packets were too late so far.
  std::uint64_t dropped() const noexcept { return mDropped.load(std::memory_order_relaxed); }

 private:
  struct Packet {
    MIDITimeStamp due = 0;
    MIDITimeStamp latest = 0;  // dropped when a cycle more has passed
    std::uint32_t list = 0;    // the list that it came in
    std::uint16_t length = 0;
    std::array<std::uint8_t, kMaxPacketBytes> data{};
  };

  void takeUp(const host::RealtimeContext& realtime) noexcept;
  bool isDue(const Packet& packet, const jack::JackCycle& cycle, std::uint32_t& offset) noexcept;
  void removeFirst(std::uint32_t count) noexcept;

  host::Mailbox<Packet> mArriving{kPackets};
  std::atomic<std::uint64_t> mDropped{0};
  std::atomic<std::uint32_t> mUnsent{0};
  std::uint32_t mNextList = 1;  // the sender's

  // The process callback's own: mOrder holds first the places of the waiting
  // packets in the order of their times, then the free places.
  std::array<Packet, kPackets> mPackets{};
  std::array<std::uint16_t, kPackets> mOrder = initialOrder();
  std::uint32_t mWaiting = 0;
  std::uint32_t mAnchorList = 0;  // the list whose first packet stands at the anchor
  std::uint32_t mAnchorEpoch = 0;
  MIDITimeStamp mAnchorTime = 0;
  std::int64_t mAnchorFrame = 0;

  static constexpr std::array<std::uint16_t, kPackets> initialOrder() noexcept {
    std::array<std::uint16_t, kPackets> order{};
    for (std::uint16_t i = 0; i < kPackets; ++i) {
      order[i] = i;
    }
    return order;
  }
};

}  // namespace velor::midi
