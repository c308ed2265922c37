// SPDX-License-Identifier: MIT
#include "platform/audio/builtin/BuiltinAudio.h"

#include <algorithm>

namespace velor::audio {

VirtualAudioDevice::Parameters BuiltinAudio::loopback() {
  VirtualAudioDevice::Parameters parameters;
  parameters.uid = "velor.loopback";
  parameters.name = "Velor Loopback";
  parameters.maxPeriod = 1024;
  return parameters;
}

BuiltinAudio::BuiltinAudio(const std::vector<VirtualAudioDevice::Parameters>& devices) {
  for (const auto& parameters : devices) {
    mDevices.push_back(std::make_unique<VirtualAudioDevice>(parameters));
  }
}

BuiltinAudio::~BuiltinAudio() = default;

void BuiltinAudio::start(AudioInside& inside) {
  for (const auto& device : mDevices) {
    device->attach(&inside, this);
  }
}

void BuiltinAudio::stop() {
  for (const auto& device : mDevices) {
    device->attach(nullptr, nullptr);
  }
}

VirtualAudioDevice* BuiltinAudio::find(AudioObjectID device) const noexcept {
  const auto it = std::find_if(mDevices.begin(), mDevices.end(), [device](const auto& candidate) {
    return candidate->id() == device;
  });
  return it == mDevices.end() ? nullptr : it->get();
}

std::unique_ptr<AudioDeviceStream> BuiltinAudio::open(AudioObjectID device,
                                                      const AudioStreamRequest& request) {
  VirtualAudioDevice* found = find(device);
  return found == nullptr ? nullptr : found->open(request);
}

OSStatus BuiltinAudio::translateTime(AudioObjectID device, const AudioTimeStamp& in,
                                     AudioTimeStamp& out) noexcept {
  const VirtualAudioDevice* found = find(device);
  return found == nullptr ? kAudioHardwareBadDeviceError : found->translateTime(in, out);
}

void BuiltinAudio::requestBufferFrames(AudioObjectID device, std::uint32_t frames) {
  if (VirtualAudioDevice* found = find(device); found != nullptr) {
    found->setPeriod(frames);
  }
}

std::optional<AudioServerStatus> BuiltinAudio::serverStatus() {
  std::optional<AudioServerStatus> status;
  for (const auto& device : mDevices) {
    const AudioServerStatus own = device->status();
    if (status) {
      status->xruns += own.xruns;
    } else {
      status = own;
    }
  }
  return status;
}

}  // namespace velor::audio
