// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "kva/KAHALAudioObject.h"

namespace velor {

/// A device of the audio service: what it is, and what it has in each direction.
class KAHALAudioDevice final : public KAHALAudioObject {
 public:
  using KAHALAudioObject::KAHALAudioObject;

  /// Null for 0. Whether the device is there shows when it is asked.
  static std::shared_ptr<KAHALAudioDevice> initWithAudioObjectID(audio::AudioObjectID objectID);

  /// For people. None where the device has no name.
  std::optional<std::string> name() const;
  /// The same in every run.
  std::string deviceUID() const;
  /// Frames a second.
  double nominalSampleRate() const;

  std::uint32_t numInputChannels() const {
    return numChannelsInScope(audio::AudioDirection::input);
  }
  std::uint32_t numChannelsInScope(audio::AudioDirection scope) const;
  /// One for each channel, in the order of the channels: the name of its stream,
  /// or else of the device, and its number in the stream, from 1.
  std::vector<std::string> channelNamesInScope(audio::AudioDirection scope) const;
  /// The same, but a stream of one channel gives its bare name: what a server calls its port.
  std::vector<std::string> portNamesInScope(audio::AudioDirection scope) const;

 private:
  audio::AudioDeviceDescription description(const char* method) const;
  std::vector<std::string> channelNames(const char* method, audio::AudioDirection scope,
                                        bool numbersSingleChannels) const;
};

}  // namespace velor
