// SPDX-License-Identifier: MIT
#include "Velor/app/VLMarker.h"

#include <array>
#include <utility>

#include "Kv-Appkit/KVAnnouncement.h"
#include "Kv-Appkit/KVAssert.h"
#include "Kv-Appkit/KVUUID.h"
#include "kvtimecode/SMPTEPattern.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {
namespace {

constexpr std::array<KVDependency, 2> kDependencies = {
    {{"time", "timecodeString"}, {"timecodeString", "time"}}};

// Whether the text holds a time, and one that is a label of the format.
bool holdsTimeOf(std::string_view text, std::uint32_t format) {
  const auto digits = matchSMPTEPattern(text, ltc_type_is_drop(format) ? ';' : ':');
  if (!digits) {
    return false;
  }
  const auto [hours, minutes, seconds, frames] = *digits;
  SMPTETime label{.mType = format};
  return ltc_set_time(label, hours, minutes, seconds, frames) == 0 &&
         *digits == SMPTEPatternDigits{label.mHours, label.mMinutes, label.mSeconds, label.mFrames};
}

}  // namespace

VLMarker::VLMarker(std::string uuid, std::shared_ptr<KVSMPTETime> time, std::string name)
    : KVObservable(kDependencies),
      _uuid(std::move(uuid)),
      _name(std::move(name)),
      _time(std::move(time)) {}

std::shared_ptr<VLMarker> VLMarker::initWithTime(const std::shared_ptr<KVSMPTETime>& time,
                                                 std::optional<std::string> name) {
  KV_REQUIRE_PARAMETER(time != nullptr, "time");
  KV_REQUIRE_PARAMETER(name.has_value(), "name");
  return std::shared_ptr<VLMarker>(
      new VLMarker(KVUUID().UUIDString(), time->copy(), *std::move(name)));
}

std::shared_ptr<VLMarker> VLMarker::initWithCoder(store::KeyedUnarchiver& coder) {
  auto uuid = coder.decodeString(kUUIDKey);
  auto time = coder.decodeObject<KVSMPTETime>(kTimeKey);
  auto name = coder.decodeString(kNameKey);
  return std::shared_ptr<VLMarker>(
      new VLMarker(uuid ? *std::move(uuid) : KVUUID().UUIDString(),
                   time != nullptr ? std::move(time) : std::make_shared<KVSMPTETime>(),
                   std::move(name).value_or("")));
}

void VLMarker::encodeWithCoder(store::KeyedArchiver& coder) const {
  coder.encodeString(_uuid, kUUIDKey);
  coder.encodeObject(_time, kTimeKey);
  coder.encodeString(_name, kNameKey);
}

void VLMarker::setName(std::string name) {
  const KVAnnouncement announcement(*this, "name");
  _name = std::move(name);
}

void VLMarker::setTime(std::shared_ptr<KVSMPTETime> time) {
  KV_REQUIRE_PARAMETER(time != nullptr, "time");
  const KVAnnouncement announcement(*this, "time");
  _time = std::move(time);
}

bool VLMarker::isValid() const noexcept {
  return ltc_cancompare(_time->timeStamp(), _time->timeStamp());
}

bool VLMarker::setTimecodeString(std::string_view timecodeString) {
  if (!holdsTimeOf(timecodeString, _time->type())) {
    return false;
  }
  const KVAnnouncement announcement(*this, "timecodeString");
  _time->setStringValue(timecodeString);
  return true;
}

std::string VLMarker::description() const {
  return std::string(kClassName) + ", " + _time->description() + ", " + _name;
}

}  // namespace velor
