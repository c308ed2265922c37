// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

#include "Velor/mtc/VLMTCState.h"
#include "kvtimecode/SMPTETime.h"
#include "platform/host/Realtime.h"
#include "platform/midi/MIDITypes.h"

// Turns the times that an LTC reader finds into MTC on a virtual source, block
// after block at the measured rate. When no time has come for four frames it goes
// on by itself, which is called freewheeling: from the last time, at the last rate,
// for its freewheel time. When times come again it follows them.
//
//             a time             silence
//   idle ───────────────► reading ───────► freewheeling ──► idle, as the freewheel
//                            ▲                  │           time ends or by request
//                            └──────────────────┘
//                                   a time
//
// The times of blocks count from the last time read. A reader reports a time when
// its frame is over, and silence takes four more: so while freewheeling, the pieces
// of a block are late by up to two blocks.
//
// The reader's thread only hands times over. All else runs on the queue
// "mtc.watchdog" of each sender, so that neither a time that comes in the middle of
// a freewheel's end nor a timer that is late can get in between.
namespace velor {

/// An opaque record of this module, from `VLMTCCreate` to `VLMTCDispose`.
struct VLMTC;

/// Runs on the main queue, some time after the change that it reports; `VLMTCGetTime`
/// gives the current state. It may dispose of the record.
using VLMTCStateCallback = void (*)(VLMTC* mtc, VLMTCState state, void* refCon);

/// Results of the operations below, beside 0 and those of a MIDI service.
inline constexpr std::int32_t kVLMTCErr = -1;
inline constexpr std::int32_t kVLMTCParamErr = -50;  ///< also for a null, unless said otherwise

/// A sender at 25 frames per second with a freewheel time of 5 s and no source.
/// kVLMTCErr if memory runs out. The current host must outlive it.
std::int32_t VLMTCCreate(VLMTC** mtc);

/// Once it returns, the record sends and reports nothing more. The reader must not hand times
/// over any more. Any thread but the sender's queue; on another one than the main
/// thread, a callback under way is not waited for. A null record ends the program.
std::int32_t VLMTCDispose(VLMTC* mtc);

/// Frames per second, 23.0 to 31.0; kVLMTCErr for others, which change nothing. A
/// quarter-frame becomes its whole nanoseconds. A null record ends the program.
/// Any thread. Realtime-safe: yes.
std::int32_t VLMTCSetFramerate(VLMTC* mtc, double framesPerSecond) noexcept;

/// The rate that the whole nanoseconds of a quarter-frame make, which seldom equals
/// the one that was set. kVLMTCErr if it is out of the range, as after 31.0. Null ends
/// the program. Any thread. Realtime-safe: yes.
std::int32_t VLMTCGetFramerate(const VLMTC* mtc, double* outFrameRate) noexcept;

/// Seconds, from the next silence on; none for 0, without limit for any negative
/// number. kVLMTCParamErr for what is neither 0 nor a normal number. Any thread.
/// Realtime-safe: yes.
std::int32_t VLMTCSetFreewheelTime(VLMTC* mtc, double seconds) noexcept;
std::int32_t VLMTCGetFreewheelTime(const VLMTC* mtc, double* seconds) noexcept;

/// A new virtual source; with the service's status.
std::int32_t VLMTCCreateSource(midi::MIDIEndpointRef* source, const std::string& name,
                               midi::MIDIClientRef client);

/// The virtual source to send on from the next block on. Any thread. Realtime-safe: yes.
std::int32_t VLMTCSetSource(VLMTC* mtc, midi::MIDIEndpointRef source) noexcept;

/// Hands over a time that was read, every second frame, and the host time (ns) of its
/// frame's beginning. The time two frames later goes out, at its time; the first time
/// after a freewheel is not sent.
///
/// The block is built and sent on the sender's queue, since the caller is an audio
/// thread: a MIDI service may lock or wait, and the watchdog that goes with the first
/// time is allocated. So the result is the service's status of the latest block that
/// was sent before (0 for one that was not sent), and `VLMTCGetTime` gives the former
/// time until the queue has run. kMIDIMessageSendErr when the queue is full and does
/// not take the time.
/// One thread at a time. Realtime-safe: yes.
std::int32_t VLMTCSendTime(const host::RealtimeContext& realtime, VLMTC* mtc, const SMPTETime* time,
                           std::uint64_t hostTime) noexcept;

/// The time last sent, which is two frames on from the one read or freewheeled, and
/// how things stand; each only where a place is given, and all of one moment. Reading
/// stays true while freewheeling. Any thread. Realtime-safe: no, it may try again.
std::int32_t VLMTCGetTime(const VLMTC* mtc, SMPTETime* time, bool* reading,
                          bool* freewheeling) noexcept;
std::int32_t VLMTCIsFreewheeling(const VLMTC* mtc, bool* freewheeling) noexcept;

/// Ends the freewheel before it returns; kVLMTCErr when there is none. Any thread but
/// the sender's queue. Realtime-safe: no.
std::int32_t VLMTCStopFreewheeling(VLMTC* mtc);

/// Null for none. One thread at a time.
std::int32_t VLMTCSetStateCallback(VLMTC* mtc, VLMTCStateCallback callback, void* refCon) noexcept;

}  // namespace velor
