// SPDX-License-Identifier: MIT
#include "Velor/app/VLAudioDevices.h"

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

#include "Velor/app/VLPortNames.h"

namespace velor {
namespace {

using Device = std::shared_ptr<KAHALAudioDevice>;

std::string nameOf(const KAHALAudioDevice& device) {
  return device.name().value_or(device.deviceUID());
}

// Null, and why in `error`.
Device deviceNamed(const std::string& name, audio::AudioObjectPropertyScope scope,
                   const KAHALAudioSystem& system, std::string& error) {
  const bool isInput = scope == audio::kAudioObjectPropertyScopeInput;
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
  error = found.empty() ? std::string("no audio device with ") + (isInput ? "inputs" : "outputs") +
                              " is named '" + name + "'; there are:"
                        : "several audio devices are named '" + name + "', use a UID:";
  const char* separator = " ";
  for (const Device& device : found.empty() ? devices : found) {
    error += separator;
    error += "'" + (found.empty() ? nameOf(*device) : device->deviceUID()) + "'";
    separator = ", ";
  }
  if (found.empty() && devices.empty()) {
    error += " none";
  }
  return nullptr;
}

void appendChannels(const char* direction, const std::vector<std::string>& names,
                    std::string& text) {
  if (names.empty()) {
    return;
  }
  text.append("    ").append(direction);
  for (std::size_t i = 0; i < names.size(); ++i) {
    text.append(i == 0 ? " " : ", ").append(std::to_string(i + 1)).append(" ");
    text.append("'").append(VLPrintable(names[i])).append("'");
  }
  text += "\n";
}

}  // namespace

VLAudioChannel VLAudioChannelNamed(const std::string& text, audio::AudioObjectPropertyScope scope,
                                   const KAHALAudioSystem& system, std::string& error) {
  // Names may hold colons, so that the last one counts.
  const std::size_t colon = text.rfind(':');
  const std::string number = colon != std::string::npos ? text.substr(colon + 1) : "";
  if (colon == 0 || number.empty() || number.size() > 9 ||
      number.find_first_not_of("0123456789") != std::string::npos) {
    error = "'" + text + "' is no DEVICE:CHANNEL";
    return {};
  }
  VLAudioChannel named;
  auto device = deviceNamed(text.substr(0, colon), scope, system, error);
  if (device == nullptr) {
    return {};
  }
  named.channel = static_cast<std::uint32_t>(std::stoul(number));
  named.channels = device->numChannelsInScope(scope);
  named.name = nameOf(*device) + ":" + std::to_string(named.channel);
  if (named.channel < 1 || named.channel > named.channels) {
    error = "'" + nameOf(*device) + "' has no channel " + number + " (1 to " +
            std::to_string(named.channels) + ")";
    return {};
  }
  named.device = std::move(device);
  return named;
}

std::string VLAudioDeviceList(const KAHALAudioSystem& system) {
  std::string text;
  for (const Device& device : system.audioDevices()) {
    char rate[32];
    std::snprintf(rate, sizeof rate, "%g", device->nominalSampleRate());
    text.append("  ").append(VLPrintable(device->deviceUID())).append("  ");
    text.append(VLPrintable(nameOf(*device))).append("  ").append(rate).append(" Hz\n");
    appendChannels("outputs:", device->channelNamesInScope(audio::kAudioObjectPropertyScopeOutput),
                   text);
    appendChannels("inputs: ", device->channelNamesInScope(audio::kAudioObjectPropertyScopeInput),
                   text);
  }
  return text.empty() ? "  none\n" : text;
}

}  // namespace velor
