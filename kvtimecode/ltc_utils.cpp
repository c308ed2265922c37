// SPDX-License-Identifier: MIT
#include "kvtimecode/ltc_utils.h"

#include <array>
#include <cfloat>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <span>

#include "Kv-Appkit/KVAssert.h"

namespace velor {

namespace {

constexpr std::uint32_t kTypes = 12;
constexpr std::uint32_t kValidTypes = 1U << kSMPTETimeType24 | 1U << kSMPTETimeType25 |
                                      1U << kSMPTETimeType30Drop | 1U << kSMPTETimeType30 |
                                      1U << kSMPTETimeType2997 | 1U << kSMPTETimeType2997Drop |
                                      1U << kSMPTETimeType2398;
static_assert(kValidTypes == 2111);

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

constexpr std::array<std::int16_t, kTypes> kFramesPerSecond = {24, 25, 30, 30, 30, 30,
                                                               0,  0,  0,  0,  0,  24};

// 29.97 is the rate that people enter and see, not 30000/1001; 23.98 is exact.
// Stored times depend on both.
constexpr std::array<double, kTypes> kSecondsPerFrame = {
    1.0 / 24.0, 0.04, 1.0 / 30.0, 1.0 / 30.0, 1.0 / 29.97, 1.0 / 29.97,
    kNaN,       kNaN, kNaN,       kNaN,       kNaN,        1.001 / 24.0};

// In order of search: on equal errors the earlier one is taken.
constexpr std::array<std::uint32_t, 5> kDetectNonDrop = {
    kSMPTETimeType2398, kSMPTETimeType24, kSMPTETimeType25, kSMPTETimeType2997, kSMPTETimeType30};
constexpr std::array<std::uint32_t, 2> kDetectDrop = {kSMPTETimeType2997Drop, kSMPTETimeType30Drop};

// Highest frame label of any format.
constexpr std::uint16_t kHighestFrame = 29;

constexpr std::int32_t kSecondsPerDay = 24 * 60 * 60;
constexpr std::int32_t kDroppedPerMinute = 2;
constexpr std::int32_t kDroppedPerBlock = 9 * kDroppedPerMinute;  // a block is ten minutes

// Fields of any value and frame numbers of any size come in, from files and from
// the wire: these wrap where the language leaves signed overflow open.
std::int32_t add32(std::int32_t a, std::int32_t b) noexcept {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}
std::int32_t subtract32(std::int32_t a, std::int32_t b) noexcept {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}
std::int32_t multiply32(std::int32_t a, std::int32_t b) noexcept {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) * static_cast<std::uint32_t>(b));
}

// The number that the label would have if no label were dropped.
std::int32_t nominalNumber(const SMPTETime& t, std::int32_t fps) noexcept {
  const std::int32_t seconds = t.mHours * 3600 + t.mMinutes * 60 + t.mSeconds;
  return add32(multiply32(seconds, fps), t.mFrames);
}

// Writes the label of a nominal number, wrapped into the day, and what else
// normalising sets. The record's type is a format.
void setNominalNumber(SMPTETime& t, std::int32_t total, std::int32_t fps) noexcept {
  const std::int32_t day = fps * kSecondsPerDay;
  std::int32_t remainder = total % day;
  if (remainder < 0) {
    remainder += day;
  }
  const auto number = static_cast<std::uint32_t>(remainder);
  const auto framesPerSecond = static_cast<std::uint32_t>(fps);
  const std::uint32_t seconds = number / framesPerSecond;
  const std::uint32_t minutes = seconds / 60;
  const std::uint32_t hours = minutes / 60;
  t.mFrames = static_cast<std::int16_t>(number - seconds * framesPerSecond);
  t.mSeconds = static_cast<std::int16_t>(seconds - minutes * 60);
  t.mMinutes = static_cast<std::int16_t>(minutes - hours * 60);
  t.mHours = static_cast<std::int16_t>(hours);
  t.mSubframes = 0;
  t.mSubframeDivisor = kSMPTETimeSubframeDivisor;
  t.mFlags |= kSMPTETimeValid;
  if (ltc_is_dropped_time(t)) {
    t.mFrames = kDroppedPerMinute;
  }
}

std::int32_t truncateTo32(double value) noexcept {
  if (std::isnan(value)) {
    return 0;
  }
  if (value <= INT32_MIN) {
    return INT32_MIN;
  }
  if (value >= INT32_MAX) {
    return INT32_MAX;
  }
  return static_cast<std::int32_t>(value);
}

std::int32_t combine(SMPTETime& a, const SMPTETime& b,
                     std::int32_t (*operation)(std::int32_t, std::int32_t) noexcept) noexcept {
  if (!ltc_is_valid(a) || !ltc_is_valid(b)) {
    return kLTCInvalidOperand;
  }
  if (a.mType != b.mType) {
    return kLTCFormatsDiffer;
  }
  const SMPTETime result = ltc_smptetime_from_frame_number(
      operation(ltc_frame_number_from_smptetime(a), ltc_frame_number_from_smptetime(b)), a.mType);
  a.mHours = result.mHours;
  a.mMinutes = result.mMinutes;
  a.mSeconds = result.mSeconds;
  a.mFrames = result.mFrames;
  return 0;
}

// Two digits of a value below 100.
void writeTwoDigits(char* at, std::int16_t value) noexcept {
  at[0] = static_cast<char>('0' + value / 10);
  at[1] = static_cast<char>('0' + value % 10);
}

bool hasTwoDigits(std::int16_t value) noexcept {
  return static_cast<std::uint16_t>(value) < 100;
}

}  // namespace

bool ltc_is_valid_type(std::uint32_t type) noexcept {
  return type < kTypes && (kValidTypes >> type & 1U) != 0;
}

double ltc_seconds_per_frame(std::uint32_t type) noexcept {
  return type < kTypes ? kSecondsPerFrame[type] : kNaN;
}

std::int32_t ltc_frames_per_second(std::uint32_t type) noexcept {
  return type < kTypes ? kFramesPerSecond[type] : 0;
}

bool ltc_type_is_drop(std::uint32_t type) noexcept {
  return type == kSMPTETimeType30Drop || type == kSMPTETimeType2997Drop;
}

bool ltc_is_valid_frame_rate(double framesPerSecond) noexcept {
  return std::isnormal(framesPerSecond) && framesPerSecond >= 23.0 && framesPerSecond <= 31.0;
}

bool ltc_is_valid(const SMPTETime& t) noexcept {
  return (t.mFlags & kSMPTETimeValid) != 0;
}

bool ltc_is_drop(const SMPTETime& t) noexcept {
  return ltc_type_is_drop(t.mType);
}

bool ltc_is_dropped_time(const SMPTETime& t) noexcept {
  return ltc_is_drop(t) && t.mSeconds == 0 && t.mFrames < kDroppedPerMinute && t.mMinutes % 10 != 0;
}

std::int32_t ltc_normalize(SMPTETime& t) noexcept {
  if (!ltc_is_valid_type(t.mType)) {
    t.mFlags = 0;
    return kLTCInvalidFormat;
  }
  const std::int32_t fps = ltc_frames_per_second(t.mType);
  setNominalNumber(t, nominalNumber(t, fps), fps);
  return 0;
}

std::int32_t ltc_set_time(SMPTETime& t, std::int32_t hours, std::int32_t minutes,
                          std::int32_t seconds, std::int32_t frames) noexcept {
  t.mHours = static_cast<std::int16_t>(hours);
  t.mMinutes = static_cast<std::int16_t>(minutes);
  t.mSeconds = static_cast<std::int16_t>(seconds);
  t.mFrames = static_cast<std::int16_t>(frames);
  t.mSubframes = 0;
  t.mSubframeDivisor = kSMPTETimeSubframeDivisor;
  return ltc_normalize(t);
}

std::int32_t ltc_assign_time(const SMPTETime& source, SMPTETime& target) noexcept {
  if (!ltc_is_valid(source)) {
    return kLTCInvalidOperand;
  }
  target.mHours = source.mHours;
  target.mMinutes = source.mMinutes;
  target.mSeconds = source.mSeconds;
  target.mFrames = source.mFrames;
  return ltc_normalize(target);
}

std::int32_t ltc_add_frames(SMPTETime& t, std::uint32_t count) noexcept {
  t.mFrames = static_cast<std::int16_t>(static_cast<std::uint16_t>(t.mFrames) + count);
  ltc_normalize(t);
  return 0;
}

std::int32_t ltc_frame_number_from_smptetime(const SMPTETime& t) noexcept {
  if (!ltc_is_valid(t)) {
    return kLTCNoFrameNumber;
  }
  const std::int32_t fps = ltc_frames_per_second(t.mType);
  const std::int32_t n = nominalNumber(t, fps);
  if (!ltc_is_drop(t)) {
    return n;
  }
  const std::int32_t labelsPerBlock = fps * 600;
  const std::int32_t labelsPerMinute = fps * 60;
  std::int32_t adjustment = -kDroppedPerBlock * (n / labelsPerBlock);
  const std::int32_t inBlock = n % labelsPerBlock;
  const std::int32_t minute = inBlock / labelsPerMinute;
  if (minute >= 1) {
    const std::int32_t inMinute = inBlock % labelsPerMinute;
    adjustment -= kDroppedPerMinute * minute;
    if (inMinute < kDroppedPerMinute) {
      // Both dropped labels stand for the last frame of the minute before.
      adjustment += 1 - inMinute;
    }
  }
  return n + adjustment;
}

SMPTETime ltc_smptetime_from_frame_number(std::int32_t n, std::uint32_t type) noexcept {
  KV_ASSERT(ltc_is_valid_type(type));
  SMPTETime result;
  result.mType = type;
  const std::int32_t fps = ltc_frames_per_second(type);
  if (ltc_type_is_drop(type)) {
    const std::int32_t framesPerBlock = fps * 600 - kDroppedPerBlock;
    const std::int32_t framesPerMinute = fps * 60 - kDroppedPerMinute;
    const std::int32_t inBlock = n % framesPerBlock;
    std::int32_t dropped = kDroppedPerBlock * (n / framesPerBlock);
    if (inBlock >= fps * 60) {  // the first minute of a block is whole
      dropped += kDroppedPerMinute * (1 + (inBlock - fps * 60) / framesPerMinute);
    }
    n = add32(n, dropped);
  }
  setNominalNumber(result, n, fps);
  return result;
}

std::int32_t ltc_add(SMPTETime& a, const SMPTETime& b) noexcept {
  return combine(a, b, add32);
}

std::int32_t ltc_subtract(SMPTETime& a, const SMPTETime& b) noexcept {
  return combine(a, b, subtract32);
}

double ltc_seconds_from_smpte_time(const SMPTETime& t) noexcept {
  return ltc_frame_number_from_smptetime(t) * ltc_seconds_per_frame(t.mType);
}

void ltc_smpte_time_from_seconds(std::uint32_t inFormat, SMPTETime& out, double seconds) noexcept {
  KV_ASSERT(ltc_is_valid_type(inFormat));
  out = ltc_smptetime_from_frame_number(truncateTo32(seconds / ltc_seconds_per_frame(inFormat)),
                                        inFormat);
}

std::int32_t ltc_add_seconds(SMPTETime& t, double seconds) noexcept {
  ltc_smpte_time_from_seconds(t.mType, t, ltc_seconds_from_smpte_time(t) + seconds);
  return 0;
}

void ltc_change_format(SMPTETime& t, std::uint32_t newFormat) noexcept {
  KV_ASSERT(ltc_is_valid_type(newFormat) && "attempting to set an invalid format");
  ltc_normalize(t);
  ltc_smpte_time_from_seconds(newFormat, t, ltc_seconds_from_smpte_time(t));
  const SMPTETime* const ioTime = &t;
  KV_ASSERT(ioTime->mType == newFormat && "must have set format");
}

bool ltc_same_time(const SMPTETime& t1, const SMPTETime& t2) noexcept {
  return ltc_is_valid(t1) && ltc_is_valid(t2) && t1.mType == t2.mType && t1.mFrames == t2.mFrames &&
         t1.mSeconds == t2.mSeconds && t1.mMinutes == t2.mMinutes && t1.mHours == t2.mHours;
}

bool ltc_identical(const SMPTETime& t1, const SMPTETime& t2) noexcept {
  return ltc_same_time(t1, t2) && t1.mSubframes == t2.mSubframes &&
         t1.mSubframeDivisor == t2.mSubframeDivisor;
}

bool ltc_cancompare(const SMPTETime& t1, const SMPTETime& t2) noexcept {
  return t1.mType == t2.mType && ltc_is_valid_type(t1.mType) && ltc_is_valid(t1) &&
         ltc_is_valid(t2);
}

std::int32_t ltc_compare(const SMPTETime& t1, const SMPTETime& t2) noexcept {
  KV_ASSERT(ltc_cancompare(t1, t2));
  if (ltc_same_time(t1, t2)) {
    return 0;
  }
  return ltc_seconds_from_smpte_time(t2) > ltc_seconds_from_smpte_time(t1) ? -1 : 1;
}

std::int32_t ltc_detect_frame_format(SMPTETime& t, std::uint8_t drop, double fps) noexcept {
  const auto frames = static_cast<std::uint16_t>(t.mFrames);
  if (frames > kHighestFrame) {
    return kLTCFormatNotDetected;
  }
  double best = FLT_MAX;
  std::uint32_t chosen = kTypes;
  const std::span<const std::uint32_t> candidates =
      drop != 0 ? std::span<const std::uint32_t>(kDetectDrop) : kDetectNonDrop;
  for (const std::uint32_t type : candidates) {
    if (frames >= ltc_frames_per_second(type)) {
      continue;
    }
    const double error = std::fabs(1.0 - std::fabs(fps / (1.0 / ltc_seconds_per_frame(type))));
    if (best > error) {
      best = error;
      chosen = type;
    }
  }
  if (chosen == kTypes) {
    t.mFlags = 0;
    return kLTCFormatNotDetected;
  }
  t.mType = chosen;
  t.mFlags |= kSMPTETimeValid;
  return 0;
}

void ltc_set_frame_format(SMPTETime& /*t*/, std::uint32_t /*type*/) noexcept {
  KV_ASSERT(false);
}

void ltc_format_string(const SMPTETime& t, char* buffer) noexcept {
  if (!ltc_is_valid(t)) {
    std::memcpy(buffer, "--:--:--:--", kLTCStringSize);
    return;
  }
  const char divider = ltc_is_drop(t) ? ';' : ':';
  if (hasTwoDigits(t.mHours) && hasTwoDigits(t.mMinutes) && hasTwoDigits(t.mSeconds) &&
      hasTwoDigits(t.mFrames)) {
    writeTwoDigits(buffer, t.mHours);
    buffer[2] = ':';
    writeTwoDigits(buffer + 3, t.mMinutes);
    buffer[5] = ':';
    writeTwoDigits(buffer + 6, t.mSeconds);
    buffer[8] = divider;
    writeTwoDigits(buffer + 9, t.mFrames);
    buffer[11] = '\0';
    return;
  }
  char text[48];  // four numbers of up to ten digits
  std::snprintf(text, sizeof text, "%02u:%02u:%02u%c%02u", static_cast<unsigned>(t.mHours),
                static_cast<unsigned>(t.mMinutes), static_cast<unsigned>(t.mSeconds), divider,
                static_cast<unsigned>(t.mFrames));
  std::memcpy(buffer, text, kLTCStringSize - 1);
  buffer[kLTCStringSize - 1] = '\0';
}

}  // namespace velor
