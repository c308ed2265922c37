// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Kv-Appkit/KVObservable.h"
#include "kvtimecode/KVSMPTETime.h"
#include "platform/store/KeyedCoding.h"

namespace velor {

/// A named point in time that the user sets and jumps to.
///
/// Observable: name, time, timecodeString, by their setters here; a change of time is
/// one of timecodeString too, and the other way round. What is changed inside the time's
/// object announces nothing here.
///
/// Main queue. Realtime-safe: no.
class VLMarker final : public KVObservable, public store::KeyedCoding {
 public:
  static constexpr std::string_view kClassName = "VLMarker";

  /// In archives; they must never change.
  static constexpr std::string_view kUUIDKey = "uuid";
  static constexpr std::string_view kTimeKey = "time";
  static constexpr std::string_view kNameKey = "name";

  /// Holds a copy of the time, which is valid like every copy, and an identity of its
  /// own. KVException for no time or no name.
  static std::shared_ptr<VLMarker> initWithTime(const std::shared_ptr<KVSMPTETime>& time,
                                                std::optional<std::string> name);

  /// As it is stored. What is missing becomes a new identity, an invalid time, an empty
  /// name.
  static std::shared_ptr<VLMarker> initWithCoder(store::KeyedUnarchiver& coder);
  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(store::KeyedArchiver& coder) const override;

  /// Stays the same when it is stored and read.
  const std::string& uuid() const noexcept { return _uuid; }

  const std::string& name() const noexcept { return _name; }
  void setName(std::string name);

  /// Never null.
  const std::shared_ptr<KVSMPTETime>& time() const noexcept { return _time; }
  /// The object itself, not a copy. KVException for null.
  void setTime(std::shared_ptr<KVSMPTETime> time);

  /// Whether the time is known, so that it can be compared with others of its format.
  bool isValid() const noexcept;

  /// The time for display.
  std::string timecodeString() const { return _time->stringValue(); }

  /// Takes the first time in the text, in the time's own format, into the time's object.
  /// False, and nothing has changed, where there is none, or none that this format has:
  /// 24:00:00:00, 00:00:00:25 at 25 frames a second, or a label that drop frame skips.
  bool setTimecodeString(std::string_view timecodeString);

  /// "VLMarker, 01:02:03:04 <25>, Verse"
  std::string description() const;

 private:
  VLMarker(std::string uuid, std::shared_ptr<KVSMPTETime> time, std::string name);

  const std::string _uuid;
  std::string _name;
  std::shared_ptr<KVSMPTETime> _time;
};

}  // namespace velor
