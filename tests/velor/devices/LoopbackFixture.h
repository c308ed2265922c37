// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "Velor/devices/VLLTCGeneratorDevice.h"
#include "platform/audio/AudioService.h"
#include "platform/audio/builtin/BuiltinAudio.h"
#include "tests/velor/devices/DeviceFixture.h"

namespace velor {

/// With an audio service, whose only device plays to itself.
class LoopbackFixture : public DeviceFixture {
 protected:
  LoopbackFixture() {
    auto parameters = audio::BuiltinAudio::loopback();
    parameters.maxPeriod = 8192;
    auto builtin = std::make_unique<audio::BuiltinAudio>(std::vector{parameters});
    mLoopback = &builtin->device();
    std::vector<std::unique_ptr<audio::AudioOutside>> outsides;
    outsides.push_back(std::move(builtin));
    mAudio = std::make_unique<audio::AudioService>(std::move(outsides));
    audio::setService(mAudio.get());
  }
  ~LoopbackFixture() override {
    clock().stop();
    KVSharedInstances::clear();
    mAudio.reset();
    audio::setService(nullptr);
  }

  std::shared_ptr<VLLTCGeneratorDevice> created() {
    auto device = manager().createGenerator();
    device->generator()->setLevel(1);
    mHost.settle();
    return device;
  }
  static std::shared_ptr<VLTimecodeDestinationDevice> inputOf(const VLDevice& device) {
    return manager().destinationWithEndpoint(device.midiEndpoint());
  }

  audio::VirtualAudioDevice* mLoopback = nullptr;  // the service's
  std::unique_ptr<audio::AudioService> mAudio;
};

}  // namespace velor
