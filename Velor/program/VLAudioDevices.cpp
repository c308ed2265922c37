// SPDX-License-Identifier: MIT
#include "Velor/program/VLAudioDevices.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <optional>
#include <utility>
#include <vector>

#include "platform/store/Printable.h"

namespace velor {
namespace {

using Device = std::shared_ptr<KAHALAudioDevice>;

std::string nameOf(const KAHALAudioDevice& device) {
  return device.name().value_or(device.deviceUID());
}

Expected<Device> deviceNamed(const std::string& name, audio::AudioDirection scope,
                             const KAHALAudioSystem& system) {
  const bool isInput = scope == audio::AudioDirection::input;
  const KAHALAudioSystem::Devices devices =
      isInput ? system.devicesWithInputs() : system.devicesWithOutputs();
  std::vector<Device> found;
  for (const Device& device : devices) {
    if (device->deviceUID() == name) {
      return device;
    }
    if (nameOf(*device) == name) {
      found.push_back(device);
    }
  }
  if (found.size() == 1) {
    return found.front();
  }
  std::string error = found.empty() ? std::string("no audio device with ") +
                                          (isInput ? "inputs" : "outputs") + " is named '" + name +
                                          "'; there are:"
                                    : "several audio devices are named '" + name + "'; use a UID:";
  const char* separator = " ";
  for (const Device& device : found.empty() ? devices : found) {
    error += separator;
    error += "'" + (found.empty() ? nameOf(*device) : device->deviceUID()) + "'";
    separator = ", ";
  }
  if (found.empty() && devices.empty()) {
    error += " none";
  }
  return failure(error);
}

// " 1 'LTC in', 2 'audio_in 1'"
std::string channelList(const std::vector<std::string>& ports) {
  std::string text;
  for (std::size_t i = 0; i < ports.size(); ++i) {
    text.append(i == 0 ? " " : ", ").append(std::to_string(i + 1)).append(" ");
    text.append("'").append(store::printable(ports[i])).append("'");
  }
  return text;
}

void appendChannels(const char* direction, const std::vector<std::string>& ports,
                    std::string& text) {
  if (!ports.empty()) {
    text.append("    ").append(direction).append(channelList(ports)).append("\n");
  }
}

// Its number, from 1; 0 when there is none.
std::uint32_t channelNamed(const std::string& text, const std::vector<std::string>& ports) {
  std::uint32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  if (result.ec == std::errc() && result.ptr == end && number >= 1 && number <= ports.size()) {
    return number;
  }
  const auto port = std::find(ports.begin(), ports.end(), text);
  return port == ports.end() ? 0 : static_cast<std::uint32_t>(port - ports.begin()) + 1;
}

}  // namespace

Expected<VLAudioChannel> VLAudioChannelNamed(const std::string& text, audio::AudioDirection scope,
                                             const KAHALAudioSystem& system) {
  auto noDevice = failure("'" + text + "' is not a DEVICE:CHANNEL");
  std::optional<Error> noChannel;
  // Both names may hold colons.
  for (std::size_t colon = text.find(':', 1); colon < text.size() - 1;
       colon = text.find(':', colon + 1)) {
    const auto named = deviceNamed(text.substr(0, colon), scope, system);
    if (!named) {
      noDevice = tl::unexpected(named.error());
      continue;
    }
    const Device& device = *named;
    const std::string channel = text.substr(colon + 1);
    const std::vector<std::string> ports = device->portNamesInScope(scope);
    const std::uint32_t number = channelNamed(channel, ports);
    if (number != 0) {
      const std::string name = nameOf(*device) + ":" + channel;
      return VLAudioChannel{device, number, static_cast<std::uint32_t>(ports.size()),
                            ports[number - 1], name};
    }
    noChannel = Error{"'" + nameOf(*device) + "' has no channel '" + channel +
                      "'; there are:" + channelList(ports)};
  }
  return noChannel ? tl::unexpected(*noChannel) : noDevice;
}

std::string VLAudioDeviceList(const KAHALAudioSystem& system) {
  std::string text;
  for (const Device& device : system.audioDevices()) {
    char rate[32];
    std::snprintf(rate, sizeof rate, "%g", device->nominalSampleRate());
    text.append("  ").append(store::printable(device->deviceUID())).append("  ");
    text.append(store::printable(nameOf(*device))).append("  ").append(rate).append(" Hz\n");
    appendChannels("outputs:", device->portNamesInScope(audio::AudioDirection::output), text);
    appendChannels("inputs: ", device->portNamesInScope(audio::AudioDirection::input), text);
  }
  return text.empty() ? "  none\n" : text;
}

}  // namespace velor
