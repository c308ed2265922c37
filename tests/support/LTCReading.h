// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "tests/support/LTCSignal.h"

// What decoders read of a signal that comes in buffers.
namespace velor {

struct LTCTold {
  SMPTETime time;
  std::array<std::uint8_t, 4> userBytes{};
  std::uint64_t hostTime = 0;  ///< ns; libltc tells neither it nor the rate
  double fps = 0;
  bool isReverse = false;
  double place = 0;  ///< where it began, by readConditioned and readVarispeed
  // The buffer in which the frame was told, in places of the signal.
  double begin = 0;
  double end = 0;
  double toldAt = 0;  ///< where the buffer began in which it was told
};

/// Host times are 1 ns a tick, and 0 at this place of all signals.
inline constexpr double kLTCHostTimeZero = -100000;

std::vector<LTCTold> readByVelor(const LTCSignal& signal, std::size_t bufferLength);
/// By VLConditionedLTCDecoder. It tells where a frame stands, so that the frame's end counts
/// in place of the buffer.
std::vector<LTCTold> readConditioned(const LTCSignal& signal, std::size_t bufferLength);
/// By VLLTCVarispeedDecoder, of a signal that lost no samples; as readConditioned.
std::vector<LTCTold> readVarispeed(const LTCSignal& signal);
std::vector<LTCTold> readByLibltc(const LTCSignal& signal, std::size_t bufferLength);

struct LTCScore {
  std::size_t right = 0;
  std::size_t wrong = 0;
  std::size_t falseTimes = 0;  ///< of the wrong ones; the others have wrong user bits alone
  std::vector<bool> read;      ///< by frame of the signal
};

/// A frame is told right when it is the one that ends nearest to the buffer in which it
/// was told, digits, drop flag and user bits alike. So one that is told late is wrong.
LTCScore scoreOf(const LTCSignal& signal, const std::vector<LTCTold>& told);

/// ns from when the middle of the bit before the frame passed to what was told.
double hostTimeErrorOf(const LTCSignal& signal, std::size_t frame, const LTCTold& told);

/// The frame that ends nearest to the buffer in which this was told.
std::size_t frameOf(const LTCSignal& signal, const LTCTold& told);

}  // namespace velor
