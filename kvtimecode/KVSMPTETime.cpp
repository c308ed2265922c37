// SPDX-License-Identifier: MIT
#include "kvtimecode/KVSMPTETime.h"

#include <array>
#include <bit>
#include <cstring>
#include <optional>
#include <vector>

#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Log.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {
namespace {

// "frame" is not a property. A caller that sets frames alone and wants the text announced
// announces "frame" around that.
constexpr std::array<KVDependency, 4> kDependencies = {{{"stringValue", "hours"},
                                                        {"stringValue", "minutes"},
                                                        {"stringValue", "seconds"},
                                                        {"stringValue", "frame"}}};

static_assert(std::endian::native == std::endian::little, "a stored record is little-endian");

// Two fields in one word; the sign of the low one is in the high half as well.
std::uint32_t wordOf(std::int16_t high, std::int16_t low) noexcept {
  return static_cast<std::uint32_t>(high) << 16U | static_cast<std::uint32_t>(low);
}

std::optional<SMPTETime> storedTime(store::KeyedUnarchiver& coder, std::string_view key) {
  const std::optional<std::vector<std::uint8_t>> bytes = coder.decodeBytes(key);
  if (!bytes) {
    return std::nullopt;
  }
  SMPTETime time;
  if (bytes->size() != sizeof time) {
    coder.refuse(key, "expected a time of 24 bytes, found " + std::to_string(bytes->size()));
    return std::nullopt;
  }
  std::memcpy(&time, bytes->data(), sizeof time);
  return time;
}

}  // namespace

KVSMPTETime::KVSMPTETime() : KVObservable(kDependencies) {}

std::shared_ptr<KVSMPTETime> KVSMPTETime::smpteTimeWithTime(const SMPTETime& time) {
  auto object = std::make_shared<KVSMPTETime>();
  object->mTimestamp = time;
  return object;
}

std::shared_ptr<KVSMPTETime> KVSMPTETime::smpteTimeWithHours(std::int32_t hours,
                                                             std::int32_t minutes,
                                                             std::int32_t seconds,
                                                             std::int32_t frames,
                                                             std::uint32_t format) {
  SMPTETime time;
  time.mType = format;
  if (ltc_set_time(time, hours, minutes, seconds, frames) != 0) {
    return nullptr;
  }
  return smpteTimeWithTime(time);
}

std::shared_ptr<KVSMPTETime> KVSMPTETime::smpteTimeWithString(std::string_view string,
                                                              std::uint32_t format) {
  auto object = std::make_shared<KVSMPTETime>();
  object->setType(format);
  object->setStringValue(string);
  return object;
}

std::shared_ptr<KVSMPTETime> KVSMPTETime::initWithCoder(store::KeyedUnarchiver& coder) {
  auto object = std::make_shared<KVSMPTETime>();
  const std::optional<SMPTETime> time = storedTime(coder, kTimestampKey);
  if (!time) {
    return object;
  }
  object->mTimestamp = *time;
  if (const std::int32_t result = ltc_normalize(object->mTimestamp); result != 0) {
    VELOR_LOG_WARNING("decoding SMPTE Time resulted in %d, using 0", result);
  }
  return object;
}

void KVSMPTETime::encodeWithCoder(store::KeyedArchiver& coder) const {
  encodeSmpteTime(coder, mTimestamp, kTimestampKey);
}

std::shared_ptr<KVSMPTETime> KVSMPTETime::copy() const {
  auto object = std::make_shared<KVSMPTETime>();
  object->copyTime(mTimestamp);
  return object;
}

void KVSMPTETime::copyTime(const SMPTETime& time) {
  mTimestamp = time;
  ltc_normalize(mTimestamp);
}

void KVSMPTETime::setHours(std::int32_t hours) {
  setField("hours", &SMPTETime::mHours, hours);
}

void KVSMPTETime::setMinutes(std::int32_t minutes) {
  setField("minutes", &SMPTETime::mMinutes, minutes);
}

void KVSMPTETime::setSeconds(std::int32_t seconds) {
  setField("seconds", &SMPTETime::mSeconds, seconds);
}

void KVSMPTETime::setFrames(std::int32_t frames) {
  setField("frames", &SMPTETime::mFrames, frames);
}

void KVSMPTETime::setType(std::uint32_t type) {
  willChangeValueForKey("type");
  ltc_change_format(mTimestamp, type);
  didChangeValueForKey("type");
}

bool KVSMPTETime::valid() const noexcept {
  return ltc_is_valid(mTimestamp);
}

std::string KVSMPTETime::stringValue() const {
  return stringFromSMPTETime(mTimestamp);
}

void KVSMPTETime::setStringValue(std::string_view stringValue) {
  willChangeValueForKey("stringValue");
  if (!parseSmpteTime(stringValue, mTimestamp, mTimestamp.mType)) {
    mTimestamp.mFlags = 0;
  }
  didChangeValueForKey("stringValue");
}

bool KVSMPTETime::isEqual(const KVSMPTETime* other) const noexcept {
  return other != nullptr && ltc_identical(mTimestamp, other->mTimestamp);
}

std::uint32_t KVSMPTETime::hash() const noexcept {
  const SMPTETime& t = mTimestamp;
  const std::uint32_t place = static_cast<std::uint32_t>(t.mMinutes) << 24U |
                              static_cast<std::uint32_t>(t.mHours) << 16U | t.mType;
  return std::rotl(t.mFlags, 17) ^ std::rotr(place, 5) ^
         std::rotl(wordOf(t.mFrames, t.mSeconds), 3) ^
         std::rotr(wordOf(t.mSubframeDivisor, t.mSubframes), 13);
}

std::int32_t KVSMPTETime::compare(const KVSMPTETime& other) const noexcept {
  return ltc_compare(mTimestamp, other.mTimestamp);
}

KVSMPTETime& KVSMPTETime::addSeconds(double seconds) noexcept {
  ltc_add_seconds(mTimestamp, seconds);
  return *this;
}

std::string KVSMPTETime::description() const {
  return stringValue() + " <" + stringFromSMPTEFormat(type()) + '>';
}

void KVSMPTETime::setField(std::string_view key, std::int16_t SMPTETime::*field,
                           std::int32_t value) {
  willChangeValueForKey(key);
  mTimestamp.*field = static_cast<std::int16_t>(value);
  ltc_normalize(mTimestamp);
  didChangeValueForKey(key);
}

void encodeSmpteTime(store::KeyedArchiver& coder, const SMPTETime& time, std::string_view key) {
  std::array<std::uint8_t, sizeof(SMPTETime)> bytes;
  std::memcpy(bytes.data(), &time, bytes.size());
  coder.encodeBytes(bytes, key);
}

SMPTETime decodeSmpteTimeForKey(store::KeyedUnarchiver& coder, std::string_view key) {
  return storedTime(coder, key).value_or(SMPTETime{});
}

}  // namespace velor
