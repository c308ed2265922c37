// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "Kv-Appkit/KVWatchdog.h"
#include "Velor/mtc/VLMTCParserDelegate.h"
#include "kvtimecode/SMPTETime.h"
#include "platform/host/PriorityMutex.h"
#include "platform/midi/MIDITypes.h"

namespace velor {

/// Reads MIDI Time Code from one source, packet by packet.
///
/// While a stream is being received, its watchdog keeps the parser, also when the
/// owner has dropped it: the parser still reports the end, ten frames later, to a
/// delegate that is there then. So the main queue must run before the parser can
/// end.
///
/// The read thread and the main queue share the state below, under a mutex that is
/// never held while a callback or a delegate is called. When a stream returns just as
/// its end is reported, the block in progress counts to the old stream or to the new
/// one.
class VLMTCParser : public std::enable_shared_from_this<VLMTCParser> {
 public:
  /// Gets each block that is complete: the time, without any correction for the
  /// two frames that its pieces took; the host time (ns) at which its first piece
  /// arrived, which is when that time was; and how much faster than nominal the
  /// sender runs, smoothed (0.01 is one per cent). The counter of the time is 3
  /// for the first block that is reported and grows by 3.
  using CompletionBlock =
      std::function<void(const SMPTETime& time, std::uint64_t timestamp, double deviation)>;

  static std::shared_ptr<VLMTCParser> initWithCompletionBlock(CompletionBlock completion);
  VLMTCParser(const VLMTCParser&) = delete;
  VLMTCParser& operator=(const VLMTCParser&) = delete;

  /// One packet, of any bytes; its time is a host time (ns), 0 for now. A block is
  /// reported from the second one of a stream on. Times that run backwards, and
  /// packets of several messages, are not read. Thread: the MIDI read thread, one
  /// packet at a time; the client is called on it. Allocates at the first block of
  /// a stream alone.
  void addPacket(const midi::MIDIPacket* packet);

  /// A read function for the parser that is its reference: all packets of the list.
  static void readPackets(const midi::MIDIPacketList* packets, void* parser, void* sourceRef);

  /// Waits for the first piece of a block. Digits of an incomplete block stay, and the next
  /// block adds to them. Any thread.
  void clear() noexcept;

  /// The format for which a rate code stands that it shares with others: with 29.97, blocks of
  /// the code of 30 are of 29.97. At first each code stands for the format of
  /// kMTCTypeOfRateCode. Any thread.
  void setExpectedType(std::uint32_t type) noexcept;

  /// Held weakly. Any thread.
  std::shared_ptr<VLMTCParserDelegate> delegate() const;
  void setDelegate(const std::shared_ptr<VLMTCParserDelegate>& delegate);

 private:
  explicit VLMTCParser(CompletionBlock completion);

  void addQuarterFrame(std::uint8_t code, std::uint8_t nibble, midi::MIDITimeStamp timeStamp);
  void addMessage(const midi::MIDIPacket& packet);
  void watchdogFired();

  // Under mMutex.
  std::uint32_t typeOfRateCode(std::uint32_t rate) const noexcept;
  void takeIn(std::uint8_t code, std::uint8_t nibble, midi::MIDITimeStamp timeStamp) noexcept;
  void weighDeviation() noexcept;
  void feedWatchdog(double secondsPerFrame);

  const CompletionBlock mParserBlock;

  mutable host::PriorityMutex mMutex;
  // All below under mMutex.
  SMPTETime mTime;         // the block in progress
  std::uint8_t mRxed = 0;  // the piece that comes next
  std::uint32_t mExpectedType = kSMPTETimeType25;
  std::uint64_t mTimestampOfFirst = 0;
  std::uint64_t _lastTimeStamp = 0;  // of the first piece of the block before
  std::uint64_t _delta = 0;          // between the last two first pieces
  double _weightedDeviation = 0;
  std::shared_ptr<KVWatchdog> _watchdog;  // while a stream is being received
  std::weak_ptr<VLMTCParserDelegate> _delegate;
};

/// The time of a full-frame message, valid and with the counter 0; subframes stay
/// as they are. kMTCNoFullFrame for any other packet, which makes the time
/// invalid, and for one with a field out of range (minutes, seconds, rate), which
/// leaves it alone. kMTCNullArgument when either is null.
std::int32_t mtc_smpte_time_from_full_frame(const midi::MIDIPacket* packet,
                                            SMPTETime* time) noexcept;

}  // namespace velor
