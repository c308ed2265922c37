// SPDX-License-Identifier: MIT
#include "Velor/osc/VLOSCHostFilterEntry.h"

#include <utility>

#include "Kv-Appkit/KVAssert.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {
namespace {

constexpr std::string_view kEnabledKey = "VLOSCHostFilterEntry.enabled";
constexpr std::string_view kAddressKey = "VLOSCHostFilterEntry.address";

}  // namespace

std::shared_ptr<VLOSCHostFilterEntry> VLOSCHostFilterEntry::initWithAddress(
    std::optional<std::string> address, std::weak_ptr<VLOSCHostFilterEntryDelegate> delegate) {
  KV_REQUIRE_PARAMETER(address.has_value(), "address");
  return std::shared_ptr<VLOSCHostFilterEntry>(
      new VLOSCHostFilterEntry(std::move(*address), std::move(delegate)));
}

std::shared_ptr<VLOSCHostFilterEntry> VLOSCHostFilterEntry::initWithCoder(
    store::KeyedUnarchiver& coder) {
  auto address = coder.decodeString(kAddressKey);
  const bool enabled = coder.decodeBool(kEnabledKey).value_or(false);
  if (!address) {
    return nullptr;
  }
  auto entry = initWithAddress(std::move(address), {});
  entry->setEnabled(enabled);
  return entry;
}

void VLOSCHostFilterEntry::encodeWithCoder(store::KeyedArchiver& coder) const {
  coder.encodeBool(mEnabled, kEnabledKey);
  coder.encodeString(mAddress, kAddressKey);
}

void VLOSCHostFilterEntry::setEnabled(bool enabled) {
  mEnabled = enabled;
  mForThisRun = false;
  if (const auto delegate = mDelegate.lock()) {
    delegate->hostFilterEntryChangedEnabled(*this, enabled);
  }
}

}  // namespace velor
