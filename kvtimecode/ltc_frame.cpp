// SPDX-License-Identifier: MIT
#include "kvtimecode/ltc_frame.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

#include "kvtimecode/ltc_utils.h"

namespace velor {

struct ltc_frame {
  std::mutex lock;  // held in every operation
  std::array<std::uint8_t, kLTCFrameBits> bits{};
  std::uint16_t syncRegister = 0;   // the last 16 bits, while no frame is open
  std::uint32_t bitIndex = 0;       // bits of the open frame
  bool inFrame = false;             // a sync word was seen: bits go into `bits`
  std::uint64_t savedHostTime = 0;  // of the end of the frame before
};

namespace {

constexpr std::size_t kSyncBegin = kLTCFrameBits - kLTCSyncBits;

// All but the sync word fits into one word, bit for bit.
static_assert(kSyncBegin == 64);

constexpr std::uint64_t fieldOf(const LTCField& field, std::uint32_t value) noexcept {
  return static_cast<std::uint64_t>(value & ((1U << field.width) - 1U)) << field.first;
}

std::uint64_t digitsOf(const LTCField& units, const LTCField& tens, std::int16_t value) noexcept {
  return fieldOf(units, static_cast<std::uint32_t>(value % 10)) |
         fieldOf(tens, static_cast<std::uint32_t>(value / 10));
}

constexpr std::uint8_t syncBit(std::size_t index) noexcept {
  return kLTCSyncWord >> (kLTCSyncBits - 1 - index) & 1U;
}

unsigned valueOf(const ltc_frame& frame, const LTCField& field) noexcept {
  unsigned value = 0;
  for (unsigned i = 0; i < field.width; ++i) {
    value |= static_cast<unsigned>(frame.bits[field.first + i]) << i;
  }
  return value;
}

std::int16_t numberOf(const ltc_frame& frame, const LTCField& units,
                      const LTCField& tens) noexcept {
  return static_cast<std::int16_t>(valueOf(frame, tens) * 10 + valueOf(frame, units));
}

// std::round for values that are not negative, without the call that it costs on
// processors of the baseline.
std::size_t roundedOf(double value) noexcept {
  const auto whole = static_cast<std::int64_t>(value);
  return static_cast<std::size_t>(whole + (value - static_cast<double>(whole) >= 0.5 ? 1 : 0));
}

// Half bits are so short that a call of std::fill for each would cost more than the
// stores: fours, the last of them ending with the run.
void fillRun(float* begin, float* end, float value) noexcept {
  using Four = std::array<float, 4>;
  const Four four = {value, value, value, value};
  if (end - begin < static_cast<std::ptrdiff_t>(four.size())) {
    for (; begin != end; ++begin) {
      *begin = value;
    }
    return;
  }
  float* const last = end - four.size();
  for (; begin < last; begin += four.size()) {
    std::memcpy(begin, four.data(), sizeof four);
  }
  std::memcpy(last, four.data(), sizeof four);
}

}  // namespace

ltc_frame* ltc_frame_create() noexcept {
  return new (std::nothrow) ltc_frame;
}

void ltc_frame_destroy(ltc_frame* frame) noexcept {
  delete frame;
}

void ltc_frame_encode(ltc_frame& frame, const SMPTETime& time,
                      const std::uint8_t* userBytes) noexcept {
  std::uint64_t word = digitsOf(kLTCFrameUnits, kLTCFrameTens, time.mFrames) |
                       digitsOf(kLTCSecondUnits, kLTCSecondTens, time.mSeconds) |
                       digitsOf(kLTCMinuteUnits, kLTCMinuteTens, time.mMinutes) |
                       digitsOf(kLTCHourUnits, kLTCHourTens, time.mHours) |
                       fieldOf(kLTCDropFlag, ltc_is_drop(time) ? 1 : 0);
  if (userBytes != nullptr) {
    for (std::size_t i = 0; i < kLTCUserBytes; ++i) {
      word |= fieldOf(kLTCUserGroups[2 * i], userBytes[i]) |
              fieldOf(kLTCUserGroups[2 * i + 1], userBytes[i] >> 4U);
    }
  }
  const int ones = std::popcount(word) + std::popcount(kLTCSyncWord);
  word |= fieldOf(kLTCParity, static_cast<std::uint32_t>(ones));

  const std::lock_guard lock(frame.lock);
  for (std::size_t i = 0; i < kSyncBegin; ++i) {
    frame.bits[i] = word >> i & 1U;
  }
  for (std::size_t i = 0; i < kLTCSyncBits; ++i) {
    frame.bits[kSyncBegin + i] = syncBit(i);
  }
}

void ltc_frame_render(ltc_frame& frame, float* buffer, std::uint32_t samples,
                      float level) noexcept {
  const double bitLength = samples / static_cast<double>(kLTCFrameBits);
  const std::array<float, 2> levels = {level, -level};
  unsigned polarity = 0;  // an index, since a branch on each bit could not be foreseen
  std::size_t position = 0;
  const std::lock_guard lock(frame.lock);
  for (std::size_t i = 0; i < kLTCFrameBits; ++i) {
    const std::size_t end = roundedOf((static_cast<double>(i) + 1.0) * bitLength);
    const std::size_t middle = (end + position) / 2;
    const std::size_t length = end - position;
    fillRun(buffer + position, buffer + middle, levels[polarity]);
    polarity ^= frame.bits[i];
    fillRun(buffer + middle, buffer + end, levels[polarity]);
    if (length % 2 != 0) {
      buffer[middle] = 0.0F;
    }
    // Inside the frame the next bit would overwrite it.
    if (end == samples && static_cast<double>(length) > bitLength) {
      buffer[end] = static_cast<float>(buffer[end] * (static_cast<double>(length) - bitLength));
    }
    polarity ^= 1U;
    position = end;
  }
}

bool ltc_frame_push_bit(ltc_frame& frame, std::uint8_t bit, std::uint64_t& hostTime) noexcept {
  const std::uint8_t value = bit != 0 ? 1 : 0;
  const std::lock_guard lock(frame.lock);
  if (frame.inFrame) {
    frame.bits[frame.bitIndex] = value;
    if (++frame.bitIndex < kLTCFrameBits) {
      return false;
    }
    frame.bitIndex = 0;
    std::swap(hostTime, frame.savedHostTime);
    return true;
  }
  frame.syncRegister = static_cast<std::uint16_t>(frame.syncRegister << 1U | value);
  frame.inFrame = frame.syncRegister == kLTCSyncWord;
  return false;
}

std::int32_t ltc_frame_decode(ltc_frame& frame, SMPTETime& time, std::uint8_t* userBytes,
                              std::uint8_t& drop) noexcept {
  const std::lock_guard lock(frame.lock);
  for (std::size_t i = 0; i < kLTCSyncBits; ++i) {
    if (frame.bits[kSyncBegin + i] != syncBit(i)) {
      frame.inFrame = false;
      time.mFlags = 0;
      return kLTCNoSync;
    }
  }
  time.mFrames = numberOf(frame, kLTCFrameUnits, kLTCFrameTens);
  time.mSeconds = numberOf(frame, kLTCSecondUnits, kLTCSecondTens);
  time.mMinutes = numberOf(frame, kLTCMinuteUnits, kLTCMinuteTens);
  time.mHours = numberOf(frame, kLTCHourUnits, kLTCHourTens);
  if (userBytes != nullptr) {
    for (std::size_t i = 0; i < kLTCUserBytes; ++i) {
      userBytes[i] = static_cast<std::uint8_t>(valueOf(frame, kLTCUserGroups[2 * i]) |
                                               valueOf(frame, kLTCUserGroups[2 * i + 1]) << 4U);
    }
  }
  drop = static_cast<std::uint8_t>(valueOf(frame, kLTCDropFlag));
  time.mFlags |= kSMPTETimeRunning;
  time.mSubframes = 0;
  time.mSubframeDivisor = kSMPTETimeSubframeDivisor;
  time.mCounter += 1;
  return 0;
}

void ltc_frame_reset(ltc_frame* frame) noexcept {
  if (frame != nullptr) {
    const std::lock_guard lock(frame->lock);
    frame->bits.fill(0);
    frame->syncRegister = 0;
    frame->bitIndex = 0;
    frame->inFrame = false;
    frame->savedHostTime = 0;
  }
}

void ltc_frame_copy_bits(ltc_frame& frame, std::uint8_t* bits) noexcept {
  const std::lock_guard lock(frame.lock);
  std::copy(frame.bits.begin(), frame.bits.end(), bits);
}

}  // namespace velor
