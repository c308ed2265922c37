// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kva/MIDI/KVMIDIEndpoint.h"
#include "kvtimecode/SMPTETime.h"
#include "platform/midi/MIDITypes.h"

// Sends MIDI Time Code. Stateless, for any thread. The functions that send time allocate
// nothing, since they run on the timing path. None reports whether a message arrived.
namespace velor {

/// A quarter of a frame, ns, truncated; 0 for an unknown format.
std::uint64_t mtc_quarter_frame_interval(std::uint32_t type) noexcept;

/// Makes the list of the eight quarter-frames of `time`: the first for the host time
/// `sendTime` (ns), each next one `interval` (ns) later.
void mtc_quarter_frames(const SMPTETime& time, std::uint64_t sendTime, std::uint64_t interval,
                        midi::MIDIPacketList* list) noexcept;

/// Schedules the eight quarter-frames of one block. `time`, of one of the seven
/// formats, is the time at the host time `timestamp` (ns). The time two frames later
/// goes out, so that its first piece leaves exactly when that frame
/// begins, and a call every two frames makes a stream without a seam. Up to 16
/// pieces wait in the service, and cannot be cancelled.
void sendTime(const KVMIDIEndpoint& endpoint, const SMPTETime& time, std::uint64_t timestamp,
              midi::MIDIPortRef port);

/// Keeps the blocks of one stream apart: receivers lose both of two blocks whose pieces
/// mix. That happens where a block was held up and the next one is not late any more.
class MTCBlockOrder {
 public:
  /// Gives the host time (ns) at which the block of `time` begins, due at `hostTime` (ns),
  /// with pieces `interval` (ns) apart. That is `hostTime`, or just after the last piece of
  /// the block two frames before. A block that this would put off by more than four
  /// pieces begins at `hostTime`: receivers would be led astray either way.
  std::uint64_t begin(const SMPTETime& time, std::uint64_t hostTime,
                      std::uint64_t interval) noexcept;

 private:
  SMPTETime mNextTime;          // of the block that goes on from the last one
  std::uint64_t mEarliest = 0;  // host time at which it can begin
};

/// Sends a random token at once and gives it. A parser that meets it on an input
/// proves that this endpoint leads back there. Realtime-safe: no.
std::uint32_t sendLoopDetectionToken(const KVMIDIEndpoint& endpoint, midi::MIDIPortRef port);

/// Makes a list of one packet, to be sent at once, that locates receivers at
/// `time`. An invalid time gives 0, too, but leaves the list alone: let it be an
/// empty one beforehand. kMTCNullArgument when either is null.
std::int32_t mtc_full_frame_from_smpte_time(const SMPTETime* time,
                                            midi::MIDIPacketList* list) noexcept;

}  // namespace velor
