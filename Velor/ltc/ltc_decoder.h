// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kvtimecode/SMPTETime.h"
#include "platform/audio/AudioTypes.h"

// Reads longitudinal timecode (SMPTE ST 12-1) from the samples of one audio channel.
//
// It looks at the sign of the samples alone, so level, polarity and the shape of edges do
// not matter. A crossing of zero ends an interval, which is half a bit if it is shorter
// than two thirds of a bit, or else a whole one. It reads forward play at 23 to 31 frames
// per second. The code has no check but the sync word, so a damaged frame that keeps its
// sync word is reported with the digits that it has.
//
// The decoder synchronises at the first sync word. The first frame after it marks a place;
// the second gives the first rate and is the first to be reported. If there was no frame for
// 50 ms at the end of a buffer, the signal is gone, and the decoder starts again. So it
// does after each frame that was lost.
//
// docs/performance.md shows how bad signals are read.
//
// One thread processes; others may change the callback meanwhile.
namespace velor {

/// An opaque record of this module, from `create` to `dispose`.
struct ltc_decoder;

/// Gets each frame when its last bit has ended, in the thread of ltc_decoder_process,
/// so it must not block.
///
/// `time` and `userBits` (kLTCUserBytes bytes) are there for the call alone. The time is
/// valid and running, of the format that is nearest to the measured rate, and counts the
/// frames since the signal came. Digits are as received: units can be above 9.
///
/// `hostTime` is when the middle of the bit before this frame crossed zero: half a bit,
/// 1/160 of the frame's duration, before the frame began. 0 for the first frame after a
/// missed sync word, whose beginning is not known.
///
/// `fps` is the measured rate, smoothed over about ten frames, in steps of 0.001.
using LTCDecoderCallback = void (*)(const SMPTETime& time, const std::uint8_t* userBits,
                                    void* refCon, std::uint64_t hostTime, double fps);

inline constexpr std::int32_t kLTCDecoderNullArgument = -50;
inline constexpr std::int32_t kLTCDecoderNoMemory = -1;

/// Gives an empty decoder, for ltc_decoder_init. kLTCDecoderNoMemory, and null, when
/// there is no memory; else 0.
std::int32_t ltc_decoder_create(ltc_decoder*& decoder) noexcept;

/// Once, before anything is processed. `hostFrequency` is in ticks per second,
/// `sampleRate` in samples per second; `startRate` is the rate in frames per second that
/// is looked for at first: from 25 all of them are found. kLTCDecoderNullArgument for a
/// null decoder, and for frequencies and rates that are not above 0; kLTCDecoderNoMemory.
std::int32_t ltc_decoder_init(ltc_decoder* decoder, std::uint64_t hostFrequency, double sampleRate,
                              double startRate) noexcept;

/// Null removes the callback. The rate is measured again. Always 0. Any thread. Where a
/// frame ends at this very moment, it may still go to the callback that was there before.
std::int32_t ltc_decoder_set_callback(ltc_decoder& decoder, LTCDecoderCallback callback,
                                      void* refCon) noexcept;

/// The callback that was set last; kLTCDecoderNullArgument for a null decoder. Any thread.
std::int32_t ltc_decoder_get_callback(ltc_decoder* decoder, LTCDecoderCallback& callback,
                                      void*& refCon) noexcept;

/// Not while the decoder processes. Null does nothing.
void ltc_decoder_dispose(ltc_decoder* decoder) noexcept;

/// Reads `count` samples on, of which the first has the sample and host time of
/// `timeStamp`. Sample times may leap: samples that were skipped count as time that passed.
/// Within a buffer the host time advances by whole ticks a sample, so that at its end it
/// lags by up to a tick for each sample. Always 0.
///
/// Audio input thread. Realtime-safe: as far as the callback is.
std::int32_t ltc_decoder_process(ltc_decoder& decoder, const audio::AudioTimeStamp& timeStamp,
                                 const float* samples, std::uint32_t count) noexcept;

}  // namespace velor
