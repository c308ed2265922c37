// SPDX-License-Identifier: MIT
#pragma once

#include "platform/audio/builtin/RenderUnit.h"
#include "platform/audio/builtin/StreamFormat.h"
#include "platform/audio/builtin/UnitInput.h"

namespace velor::audio {

/// A unit within a graph: one bus in, one bus out. The formats of both are told as
/// they come, and must be the same at initialisation.
class EffectUnit : public RenderUnit {
 public:
  OSStatus setProperty(const UnitPropertyAddress& address, const void* data,
                       std::uint32_t size) override;
  OSStatus getProperty(const UnitPropertyAddress& address, std::vector<std::byte>& value) override;
  bool isWritable(const UnitPropertyAddress& address) override;
  OSStatus initialize() override;
  /// Its format is that of the source, unless it was told another.
  OSStatus connect(RenderUnit& source) override;
  AudioStreamBasicDescription outputFormat() const override { return mOutput; }

 protected:
  UnitInput& input() noexcept { return mInputBus; }

 private:
  AudioStreamBasicDescription* format(const UnitPropertyAddress& address);
  OSStatus setFormat(AudioStreamBasicDescription& format, const AudioStreamBasicDescription& value);

  UnitInput mInputBus;
  RenderUnit* mSource = nullptr;
  AudioStreamBasicDescription mInput = streamFormat(48000, 2);
  AudioStreamBasicDescription mOutput = streamFormat(48000, 2);
  bool mOutputIsSet = false;
};

}  // namespace velor::audio
