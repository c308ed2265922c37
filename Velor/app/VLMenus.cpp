// SPDX-License-Identifier: MIT
#include "Velor/app/VLMenus.h"

#include <algorithm>

#include "Velor/app/VLAppDelegate.h"
#include "Velor/app/VLOfferedFormats.h"
#include "Velor/clock/VLClockStatus.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/devices/VLTimecodeDestinationDevice.h"
#include "kva/MIDI/KVMIDICore.h"
#include "kvtimecode/SMPTEString.h"

namespace velor {
namespace {

bool isSame(const std::shared_ptr<KVMIDIEndpoint>& a, const std::shared_ptr<KVMIDIEndpoint>& b) {
  return a == nullptr || b == nullptr ? a == b : a->isEqual(*b);
}

}  // namespace

VLMenus::Items VLMenus::syncSourceMenu() const {
  const auto current = mApp.syncSource();
  Items items{{"Intern", current == nullptr, "t", [this] { changeSyncSourceFromMenu(nullptr); }},
              {}};
  for (const auto& source : KVMIDICore::sharedCore().sources()) {
    items.push_back({source->displayName().value_or(""), isSame(source, current), "",
                     [this, weak = std::weak_ptr(source)] {
                       if (const auto chosen = weak.lock()) {
                         changeSyncSourceFromMenu(chosen);
                       }
                     }});
  }
  return items;
}

VLMenus::Items VLMenus::mtcDestinationsMenu() const {
  Items items;
  for (const auto& destination : VLDeviceManager::sharedManager().destinations()) {
    items.push_back({destination->name().value_or(""), destination->enable(), "",
                     [weak = std::weak_ptr(destination)] {
                       if (const auto chosen = weak.lock()) {
                         toggleDestinationStatefromMenu(*chosen);
                       }
                     }});
  }
  return items;
}

VLMenus::Items VLMenus::currentDevicesMenu(const ShowDevice& show) const {
  Items items;
  for (const auto& device : VLDeviceManager::sharedManager().devices()) {
    items.push_back({device->name().value_or(""), false, "", [show, weak = std::weak_ptr(device)] {
                       if (const auto chosen = weak.lock()) {
                         show(chosen);
                       }
                     }});
  }
  return items;
}

VLMenus::Items VLMenus::clockmenuFormatMenu() const {
  Items items;
  for (const std::uint32_t format : VLOfferedFormats()) {
    items.push_back({stringFromSMPTEFormat(format), format == mApp.clock().smpteFormat(), "",
                     [this, format] { changeTimecodeFormatFromMenu(format); }});
  }
  return items;
}

VLMenus::Items VLMenus::playbackModeMenu() const {
  Items items;
  for (const VLPlayModeTitle& mode : kVLPlayModes) {
    items.push_back({std::string(mode.title), mode.playMode == mApp.clock().playMode(), "",
                     [this, tag = mode.playMode] { changePlaybackMode(tag); }});
  }
  return items;
}

bool VLMenus::isArmed() const {
  return mApp.clock().armed();
}

bool VLMenus::isPrerollOn() const {
  return mApp.clock().preroll();
}

void VLMenus::changeSyncSourceFromMenu(const std::shared_ptr<KVMIDIEndpoint>& source) const {
  mApp.setSyncSource(source);
}

void VLMenus::toggleDestinationStatefromMenu(VLTimecodeDestinationDevice& destination) {
  destination.setEnable(!destination.enable());
}

void VLMenus::changePlaybackMode(std::uint64_t tag) const {
  if (std::any_of(kVLPlayModes.begin(), kVLPlayModes.end(),
                  [tag](const VLPlayModeTitle& mode) { return mode.playMode == tag; })) {
    mApp.clock().setPlayMode(tag);
  }
}

void VLMenus::changeTimecodeFormatFromMenu(std::uint32_t tag) const {
  mApp.clock().setSmpteFormat(tag);
}

}  // namespace velor
