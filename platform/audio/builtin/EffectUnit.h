// SPDX-License-Identifier: MIT
#pragma once

#include "platform/audio/builtin/RenderUnit.h"
#include "platform/audio/builtin/StreamFormat.h"
#include "platform/audio/builtin/UnitInput.h"

namespace velor::audio {

/// A unit within a graph: one bus in, one bus out, both of the same format at
/// last; told on either scope as it comes, it must be one at initialisation.
class EffectUnit : public RenderUnit {
 public:
  OSStatus setProperty(const UnitPropertyAddress& address, const void* data,
                       std::uint32_t size) override;
  OSStatus getProperty(const UnitPropertyAddress& address, std::vector<std::byte>& value) override;
  bool isWritable(const UnitPropertyAddress& address) override;
  OSStatus initialize() override;
  /// Takes over the number of the source's channels.
  OSStatus connect(RenderUnit& source) override;
  std::uint32_t outputChannels() const noexcept override { return mOutput.mChannelsPerFrame; }

 protected:
  UnitInput& input() noexcept { return mInputBus; }
  const AudioStreamBasicDescription& outputFormat() const noexcept { return mOutput; }

 private:
  AudioStreamBasicDescription* format(const UnitPropertyAddress& address);
  OSStatus setFormat(AudioStreamBasicDescription& format, const AudioStreamBasicDescription& value);

  UnitInput mInputBus;
  RenderUnit* mSource = nullptr;
  // The rate is a placeholder until the graph's is told.
  AudioStreamBasicDescription mInput = streamFormat(48000, 2);
  AudioStreamBasicDescription mOutput = streamFormat(48000, 2);
};

}  // namespace velor::audio
