// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "kva/KAHALAudioSystem.h"
#include "platform/host/Error.h"

namespace velor {

/// A channel of a device, to play on or to listen to.
struct VLAudioChannel {
  std::shared_ptr<KAHALAudioDevice> device;
  std::uint32_t channel = 0;   ///< from 1
  std::uint32_t channels = 0;  ///< that the device has
  std::string port;            ///< what the server calls it
  std::string name;            ///< for people, as typed: "Velor Loopback:1", "ardour:LTC in"
};

/// The input or output, by `scope`, that goes by "DEVICE:CHANNEL": the device by its UID or
/// its name, the channel by its number from 1 or by the name of its port. When there is none,
/// the error lists in one line which there are.
Expected<VLAudioChannel> VLAudioChannelNamed(const std::string& text, audio::AudioDirection scope,
                                             const KAHALAudioSystem& system);

/// Each device: UID, name, rate, and the channels of each direction with their numbers.
std::string VLAudioDeviceList(const KAHALAudioSystem& system);

}  // namespace velor
