// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/audio/builtin/AudioDeviceTable.h"
#include "platform/audio/builtin/RenderUnit.h"
#include "platform/audio/builtin/StreamFormat.h"
#include "platform/audio/builtin/UnitInput.h"
#include "platform/host/LatestValue.h"

namespace velor::audio {

/// A unit that plays on a device (bus 0), records from one (bus 1), or both, each
/// in the cycles of the device. At first its device is the default output device,
/// output is on and input off. Started while its device is away, it begins with
/// the device's return.
class HALOutputUnit final : public RenderUnit {
 public:
  explicit HALOutputUnit(AudioDeviceTable& devices);
  /// Stops it.
  ~HALOutputUnit() override;

  OSStatus setProperty(const UnitPropertyAddress& address, const void* data,
                       std::uint32_t size) override;
  OSStatus getProperty(const UnitPropertyAddress& address, std::vector<std::byte>& value) override;
  bool isWritable(const UnitPropertyAddress& address) override;
  OSStatus connect(RenderUnit& source) override;
  /// What came in, on bus 1, in the input callback's thread during its call.
  OSStatus render(const host::RealtimeContext& realtime, AudioUnitRenderActionFlags& flags,
                  const AudioTimeStamp& time, std::uint32_t bus, std::uint32_t frames,
                  AudioBufferList& data) noexcept override;

  OSStatus start();
  /// No callback is running any more when it returns.
  void stop();
  bool isRunning() const noexcept { return mRunning; }
  AudioObjectID device() const noexcept { return mDevice; }
  /// The device went, came back, or has other properties.
  void deviceChanged();

 private:
  struct Direction {
    AudioCycleProc cycle = nullptr;
    bool enabled = false;
    AudioChannelMap map;  // while there is no stream, whose own counts else
    std::optional<AudioStreamBasicDescription> clientFormat;  // else the device's
    std::unique_ptr<AudioDeviceStream> stream;
  };
  // The running count of a direction's cycles, theirs alone while they run.
  struct Count {
    bool begun = false;
    double first = 0;
  };

  static void outputCycle(const host::RealtimeContext& realtime, void* refCon,
                          const AudioTimeStamp& time, std::uint32_t frames,
                          std::span<float* const> channels) noexcept;
  static void inputCycle(const host::RealtimeContext& realtime, void* refCon,
                         const AudioTimeStamp& time, std::uint32_t frames,
                         std::span<float* const> channels) noexcept;
  AudioTimeStamp stamp(const AudioTimeStamp& cycle, std::uint32_t offset,
                       Count& count) const noexcept;
  bool pullPiece(const host::RealtimeContext& realtime, const AudioTimeStamp& time,
                 std::uint32_t frames) noexcept;

  std::optional<AudioStreamBasicDescription> format(const UnitPropertyAddress& address);
  OSStatus setFormat(const UnitPropertyAddress& address, const AudioStreamBasicDescription& format);
  OSStatus setDevice(AudioObjectID device);
  OSStatus setEnabled(const UnitPropertyAddress& address, bool enabled);
  OSStatus setChannelMap(const UnitPropertyAddress& address, const void* data, std::uint32_t size);
  OSStatus getChannelMap(const UnitPropertyAddress& address, std::vector<std::byte>& value);
  std::optional<AudioDirection> mappedDirection(const UnitPropertyAddress& address) const;
  std::uint32_t programChannels(AudioDirection which);
  OSStatus getDeviceProperty(const UnitPropertyAddress& address, std::vector<std::byte>& value);
  void takeOverDevice();
  OSStatus openStream(AudioDirection direction);
  OSStatus openStreams();
  void closeStreams();
  AudioDeviceDescription description();
  Direction& direction(AudioDirection which) {
    return mDirections[static_cast<std::size_t>(which)];
  }

  AudioDeviceTable& mDevices;
  AudioObjectID mDevice = kAudioObjectUnknown;
  bool mRunning = false;
  std::string mName = "Velor";
  std::array<Direction, 2> mDirections;
  RenderUnit* mSource = nullptr;

  // What a change while running is picked up from.
  UnitInput mInputBus;
  host::LatestValue<AURenderCallbackStruct> mInputCallback;
  std::atomic<double> mSampleRate{0};
  std::atomic<bool> mStartsAtZero{true};

  // The cycles' own while a stream is open.
  struct {
    Count outputCount;
    Count inputCount;
    AudioBufferList buffers;
    std::vector<float> samples;
    std::vector<float> silence;  // of an input channel that nothing comes from
    // The piece that the input callback is told of; none outside of it.
    std::span<float* const> arrived;
    std::uint32_t arrivedOffset = 0;
    std::uint32_t arrivedFrames = 0;
  } rt;
};

}  // namespace velor::audio
