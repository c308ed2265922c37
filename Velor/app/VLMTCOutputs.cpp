// SPDX-License-Identifier: MIT
#include "Velor/app/VLMTCOutputs.h"

#include <algorithm>

#include "Velor/app/VLPortNames.h"
#include "platform/host/Log.h"

namespace velor {

VLMTCOutputs::VLMTCOutputs(KVMIDICore& core, VLClock& clock)
    : mCore(core),
      mClock(clock),
      mObserver(KVNotificationCenter::defaultCenter().addObserver(
          KVMIDINotification, [this](const KVNotification&) { destinationsChanged(); })) {}

void VLMTCOutputs::enable(std::shared_ptr<KVMIDIEndpoint> destination) {
  const midi::MIDIUniqueID id = destination->uniqueID();
  const bool known = std::any_of(mEntries.begin(), mEntries.end(),
                                 [id](const Entry& entry) { return entry.uniqueID == id; });
  if (known) {
    return;
  }
  mEntries.push_back({id, VLNameOfEndpoint(*destination), destination});
  mClock.addMTCDestination(std::move(destination));
}

std::vector<VLMTCOutputs::Output> VLMTCOutputs::outputs() const {
  std::vector<Output> result;
  for (const Entry& entry : mEntries) {
    result.push_back({entry.name, entry.endpoint != nullptr});
  }
  return result;
}

void VLMTCOutputs::destinationsChanged() {
  const KVMIDICore::Endpoints present = mCore.destinations();
  for (Entry& entry : mEntries) {
    const auto it = std::find_if(present.begin(), present.end(), [&entry](const auto& endpoint) {
      return endpoint->uniqueID() == entry.uniqueID;
    });
    const std::shared_ptr<KVMIDIEndpoint> now = it != present.end() ? *it : nullptr;
    if (now == entry.endpoint) {
      continue;
    }
    if (entry.endpoint != nullptr) {
      mClock.removeMTCDestination(entry.endpoint);
    }
    entry.endpoint = now;
    if (now != nullptr) {
      mClock.addMTCDestination(now);
    }
    VELOR_LOG_INFO("MTC destination %s %s", entry.name.c_str(),
                   now != nullptr ? "is back" : "went away");
  }
}

}  // namespace velor
