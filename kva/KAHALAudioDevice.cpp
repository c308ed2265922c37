// SPDX-License-Identifier: MIT
#include "kva/KAHALAudioDevice.h"

#include <numeric>

namespace velor {
namespace {

std::optional<std::string> nameOf(const char* method, audio::AudioObjectID object) {
  std::string name;
  const audio::OSStatus status = audio::service().AudioObjectGetPropertyData(
      object, {audio::kAudioObjectPropertyName, audio::kAudioObjectPropertyScopeGlobal}, &name);
  if (status == audio::kAudioHardwareUnknownPropertyError) {
    return std::nullopt;
  }
  KACheck(method, status);
  return name;
}

}  // namespace

std::shared_ptr<KAHALAudioDevice> KAHALAudioDevice::initWithAudioObjectID(
    audio::AudioObjectID objectID) {
  return objectID == audio::kAudioObjectUnknown ? nullptr
                                                : std::make_shared<KAHALAudioDevice>(objectID);
}

std::optional<std::string> KAHALAudioDevice::name() const {
  return nameOf("-[KAHALAudioDevice name]", objectID());
}

std::string KAHALAudioDevice::deviceUID() const {
  return property<std::string>("-[KAHALAudioDevice deviceUID]",
                               audio::kAudioDevicePropertyDeviceUID);
}

double KAHALAudioDevice::nominalSampleRate() const {
  return property<double>("-[KAHALAudioDevice nominalSampleRate]",
                          audio::kAudioDevicePropertyNominalSampleRate);
}

std::uint32_t KAHALAudioDevice::numChannelsInScope(audio::AudioObjectPropertyScope scope) const {
  const auto channels =
      property<std::vector<std::uint32_t>>("-[KAHALAudioDevice numChannelsInScope:]",
                                           audio::kAudioDevicePropertyStreamConfiguration, scope);
  return std::accumulate(channels.begin(), channels.end(), std::uint32_t{0});
}

std::vector<std::string> KAHALAudioDevice::channelNamesInScope(
    audio::AudioObjectPropertyScope scope) const {
  return channelNames("-[KAHALAudioDevice channelNamesInScope:]", scope, true);
}

std::vector<std::string> KAHALAudioDevice::portNamesInScope(
    audio::AudioObjectPropertyScope scope) const {
  return channelNames("-[KAHALAudioDevice portNamesInScope:]", scope, false);
}

std::vector<std::string> KAHALAudioDevice::channelNames(const char* method,
                                                        audio::AudioObjectPropertyScope scope,
                                                        bool numbersSingleChannels) const {
  const auto streams =
      property<std::vector<std::uint32_t>>(method, audio::kAudioDevicePropertyStreams, scope);
  const auto channels = property<std::vector<std::uint32_t>>(
      method, audio::kAudioDevicePropertyStreamConfiguration, scope);
  std::vector<std::string> names;
  // They are asked for one after the other, and the device may change between.
  for (std::size_t i = 0; i < streams.size() && i < channels.size(); ++i) {
    auto stream = nameOf(method, streams[i]);
    if (stream && channels[i] == 1 && !numbersSingleChannels) {
      names.push_back(std::move(*stream));
      continue;
    }
    const std::string base = stream ? std::move(*stream) : name().value_or("");
    for (std::uint32_t channel = 1; channel <= channels[i]; ++channel) {
      names.push_back(base + " " + std::to_string(channel));
    }
  }
  return names;
}

}  // namespace velor
