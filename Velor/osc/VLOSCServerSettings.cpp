// SPDX-License-Identifier: MIT
#include "Velor/osc/VLOSCServerSettings.h"

#include <string>

#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {
namespace {

constexpr std::string_view kRunningKey = "velor.oscserver.running";
constexpr std::string_view kPortKey = "velor.oscserver.port";
constexpr std::string_view kHostFilterKey = "velor.oscserver.hostfilter";
constexpr std::string_view kFilterModeKey = "velor.oscserver.filtermode";

template <class Value>
Value decodeUnsigned(store::KeyedUnarchiver& coder, std::string_view key) {
  const std::int64_t value = coder.decodeInt64(key).value_or(0);
  if (value < 0 || value > static_cast<std::int64_t>(static_cast<Value>(-1))) {
    coder.refuse(key, std::to_string(value) + " is out of range");
    return 0;
  }
  return static_cast<Value>(value);
}

}  // namespace

std::shared_ptr<VLOSCServerSettings> VLOSCServerSettings::initWithCoder(
    store::KeyedUnarchiver& coder) {
  const auto settings = std::make_shared<VLOSCServerSettings>();
  settings->running = coder.decodeBool(kRunningKey).value_or(false);
  settings->port = decodeUnsigned<std::uint16_t>(coder, kPortKey);
  settings->hostFilter = coder.decodeBytes(kHostFilterKey).value_or(std::vector<std::uint8_t>());
  settings->filterMode = decodeUnsigned<std::uint32_t>(coder, kFilterModeKey);
  return settings;
}

void VLOSCServerSettings::encodeWithCoder(store::KeyedArchiver& coder) const {
  coder.encodeBool(running, kRunningKey);
  coder.encodeInt64(port, kPortKey);
  coder.encodeBytes(hostFilter, kHostFilterKey);
  coder.encodeInt64(filterMode, kFilterModeKey);
}

}  // namespace velor
