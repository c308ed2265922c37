// SPDX-License-Identifier: MIT
#include "kva/KAHALAudioDevice.h"

namespace velor {

std::shared_ptr<KAHALAudioDevice> KAHALAudioDevice::initWithAudioObjectID(
    audio::AudioObjectID objectID) {
  return objectID == audio::kAudioObjectUnknown ? nullptr
                                                : std::make_shared<KAHALAudioDevice>(objectID);
}

audio::AudioDeviceDescription KAHALAudioDevice::description(const char* method) const {
  const audio::AudioService& service = audio::service();
  KACheck(method, service.isPresent(objectID()) ? 0 : audio::kAudioHardwareBadObjectError);
  return *service.description(objectID());
}

std::optional<std::string> KAHALAudioDevice::name() const {
  auto description = this->description("KAHALAudioDevice::name");
  return description.name.empty() ? std::nullopt : std::optional(std::move(description.name));
}

std::string KAHALAudioDevice::deviceUID() const {
  return description("KAHALAudioDevice::deviceUID").uid;
}

double KAHALAudioDevice::nominalSampleRate() const {
  return description("KAHALAudioDevice::nominalSampleRate").sampleRate;
}

std::uint32_t KAHALAudioDevice::numChannelsInScope(audio::AudioDirection scope) const {
  return description("KAHALAudioDevice::numChannelsInScope").channels(scope);
}

std::vector<std::string> KAHALAudioDevice::channelNamesInScope(audio::AudioDirection scope) const {
  return channelNames("KAHALAudioDevice::channelNamesInScope", scope, true);
}

std::vector<std::string> KAHALAudioDevice::portNamesInScope(audio::AudioDirection scope) const {
  return channelNames("KAHALAudioDevice::portNamesInScope", scope, false);
}

std::vector<std::string> KAHALAudioDevice::channelNames(const char* method,
                                                        audio::AudioDirection scope,
                                                        bool numbersSingleChannels) const {
  const audio::AudioDeviceDescription device = description(method);
  std::vector<std::string> names;
  for (const auto& stream : device.side(scope).streams) {
    if (!stream.name.empty() && stream.channels == 1 && !numbersSingleChannels) {
      names.push_back(stream.name);
      continue;
    }
    const std::string& base = stream.name.empty() ? device.name : stream.name;
    for (std::uint32_t channel = 1; channel <= stream.channels; ++channel) {
      names.push_back(base + " " + std::to_string(channel));
    }
  }
  return names;
}

}  // namespace velor
