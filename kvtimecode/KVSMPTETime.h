// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "Kv-Appkit/KVObservable.h"
#include "kvtimecode/SMPTETime.h"
#include "platform/store/KeyedCoding.h"

namespace velor {

/// A time as an object, for what needs identity: properties, tables, observers. A new
/// one is invalid.
///
/// Each setter normalises, and so makes the time valid. Unknown is a time whose flags
/// were cleared through `timeStamp`, or that was set from a text that holds no time; a
/// copy of it is valid again.
///
/// Observable: hours, minutes, seconds, frames, type, stringValue, by their setters
/// alone. hours, minutes, seconds and "frame" announce stringValue too; frames does not,
/// nor does what changes the record by other ways.
///
/// An object belongs to one thread at a time. Realtime-safe: no.
class KVSMPTETime final : public KVObservable, public store::KeyedCoding {
 public:
  static constexpr std::string_view kClassName = "KVSMPTETime";

  /// In archives; it must never change.
  static constexpr std::string_view kTimestampKey = "timestamp";

  /// The record as it is, not normalised.
  static std::shared_ptr<KVSMPTETime> smpteTimeWithTime(const SMPTETime& time);

  /// Normalised. Null when the format is none.
  static std::shared_ptr<KVSMPTETime> smpteTimeWithHours(std::int32_t hours, std::int32_t minutes,
                                                         std::int32_t seconds, std::int32_t frames,
                                                         std::uint32_t format);

  /// As `setType` and then `setStringValue` of a new one.
  static std::shared_ptr<KVSMPTETime> smpteTimeWithString(std::string_view string,
                                                          std::uint32_t format);

  KVSMPTETime();

  /// Normalises the stored time. An invalid format keeps the digits and loses the flags.
  /// The time is unknown where nothing is stored; a block that is not a record is an error
  /// of the coder.
  static std::shared_ptr<KVSMPTETime> initWithCoder(store::KeyedUnarchiver& coder);
  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(store::KeyedArchiver& coder) const override;

  /// Normalised, and so valid.
  std::shared_ptr<KVSMPTETime> copy() const;

  /// Copies the other record in and normalises. Announces nothing.
  void copyTime(const SMPTETime& time);

  SMPTETime time() const noexcept { return mTimestamp; }

  /// The record itself, to be read and written in place.
  SMPTETime& timeStamp() noexcept { return mTimestamp; }
  const SMPTETime& timeStamp() const noexcept { return mTimestamp; }

  std::int32_t hours() const noexcept { return mTimestamp.mHours; }
  std::int32_t minutes() const noexcept { return mTimestamp.mMinutes; }
  std::int32_t seconds() const noexcept { return mTimestamp.mSeconds; }
  std::int32_t frames() const noexcept { return mTimestamp.mFrames; }

  // Cut to 16 bits and carried over: 30 frames at 25 a second are a second and 5.
  void setHours(std::int32_t hours);
  void setMinutes(std::int32_t minutes);
  void setSeconds(std::int32_t seconds);
  void setFrames(std::int32_t frames);

  std::uint32_t type() const noexcept { return mTimestamp.mType; }

  /// Keeps the real time and changes the digits. Asserts the format.
  void setType(std::uint32_t type);

  bool valid() const noexcept;

  /// For display.
  std::string stringValue() const;

  /// Takes the first time in the text, as parseSmpteTime in the own format. Without one,
  /// the time becomes unknown and keeps its digits.
  void setStringValue(std::string_view stringValue);

  /// True for times that are both valid, of one format, and equal in their digits and
  /// their place inside the frame. Null is equal to nothing.
  bool isEqual(const KVSMPTETime* other) const noexcept;

  /// Of all fields but the counter. The flags are in it: of equal times one that runs
  /// has another hash.
  std::uint32_t hash() const noexcept;

  /// -1, 0 or 1: earlier, the same, later than the other. Asserts that both are valid
  /// and of one format.
  std::int32_t compare(const KVSMPTETime& other) const noexcept;

  /// Seconds of real time, cut to whole frames. Announces nothing. Returns itself.
  KVSMPTETime& addSeconds(double seconds) noexcept;

  /// "01:02:03:04 <25>"
  std::string description() const;

 private:
  void setField(std::string_view key, std::int16_t SMPTETime::*field, std::int32_t value);

  SMPTETime mTimestamp;
};

// A record in an archive: a block of its 24 bytes.

void encodeSmpteTime(store::KeyedArchiver& coder, const SMPTETime& time, std::string_view key);

/// The record as it is stored, not normalised; the invalid time where there is none.
/// An error of the coder for a block of another length.
SMPTETime decodeSmpteTimeForKey(store::KeyedUnarchiver& coder, std::string_view key);

}  // namespace velor
