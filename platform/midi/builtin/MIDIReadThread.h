// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/host/Host.h"
#include "platform/host/Mailbox.h"
#include "platform/midi/MIDIOutside.h"
#include "platform/midi/MIDITypes.h"

namespace velor::midi {

/// The thread "velor.midiread": takes packets from any thread and calls the read
/// functions, each packet at its time and all in the order of their times.
class MIDIReadThread {
 public:
  /// Receivers that can exist at once.
  static constexpr std::uint32_t kReceivers = 256;
  /// Packets that can wait at once, for their time or to be read.
  static constexpr std::uint32_t kPackets = 2048;

  MIDIReadThread();
  /// Drops the packets that wait for their time.
  ~MIDIReadThread();
  MIDIReadThread(const MIDIReadThread&) = delete;
  MIDIReadThread& operator=(const MIDIReadThread&) = delete;

  // The three on receivers: one caller at a time.

  /// False when all places are taken.
  bool addReceiver(MIDIReadProc readProc, void* refCon, ReceiverRef& receiver);
  /// No further call of its read function begins.
  void removeReceiver(ReceiverRef receiver);
  /// Gives the place of a removed receiver back; not before waitUntilQuiet.
  void releaseReceiver(ReceiverRef receiver);

  /// Waits until no read function that was removed before is running any more.
  void waitUntilQuiet();

  /// Any thread. Realtime-safe: yes. Time 0 is at once; the read function sees
  /// the time as it is given here. False, and counted, when too many wait.
  bool deliver(ReceiverRef receiver, void* sourceRefCon, MIDITimeStamp time,
               const std::uint8_t* data, std::size_t length) noexcept;

 private:
  struct Delivery {
    MIDITimeStamp due = 0;
    ReceiverRef receiver;
    void* sourceRefCon = nullptr;
    host::Semaphore* quiet = nullptr;  // answers waitUntilQuiet; no packet then
    MIDITimeStamp time = 0;
    std::uint16_t length = 0;
    std::array<std::uint8_t, kMaxPacketBytes> data{};
  };
  struct Receiver {
    bool taken = false;  // the adding side's
    // Another one when the receiver is added and when it is removed.
    std::atomic<std::uint32_t> generation{0};
    MIDIReadProc readProc = nullptr;
    void* refCon = nullptr;
  };
  // A packet that waits for its time: a heap of places in mWaitingStore, earliest first,
  // and the order of arrival among equals.
  struct Waiting {
    MIDITimeStamp due;
    std::uint64_t order;
    std::uint32_t place;
    bool operator>(const Waiting& other) const noexcept {
      return due != other.due ? due > other.due : order > other.order;
    }
  };

  void wakeUp() noexcept;
  void run();
  void takeUpArrived();
  void takeUp(Delivery&& delivery);
  void deliverFirst();
  void call(const Delivery& delivery);

  host::Host& mHost;
  std::array<Receiver, kReceivers> mReceivers;
  host::Mailbox<Delivery> mArriving{kPackets};
  std::atomic<std::uint64_t> mLost{0};
  std::atomic<bool> mWakePending{false};
  std::atomic<bool> mEnding{false};
  const std::unique_ptr<host::Semaphore> mWake;

  // The read thread's own.
  std::vector<Delivery> mWaitingStore;
  std::vector<std::uint32_t> mFreePlaces;
  std::vector<Waiting> mWaiting;
  std::uint64_t mNextOrder = 0;

  std::unique_ptr<host::Thread> mThread;
};

}  // namespace velor::midi
