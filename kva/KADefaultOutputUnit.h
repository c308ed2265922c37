// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "kva/KAAudioUnit.h"
#include "platform/audio/AudioService.h"
#include "platform/host/LatestValue.h"

namespace velor {

/// A unit that plays on a device (element 0), records from one (element 1), or both, each
/// in the cycles of the device. At first its device is the default output device, output is
/// on and input off. While its device is missing it is silent; started then, it begins with
/// the device's return.
class KADefaultOutputUnit : public KAAudioUnit {
 public:
  KADefaultOutputUnit();
  /// Stops it.
  ~KADefaultOutputUnit() override;

  void start();
  /// Its callbacks do not run any more when this returns.
  void stop();
  bool isRunning() const;
  /// Frames a second at the device's side.
  double sampleRate() const;
  audio::AudioObjectID deviceID() const;

 private:
  // Apart from the unit, whose virtual functions change while a derived class is made or
  // destroyed: the queue of the listeners may call at that moment.
  struct DeviceListener final : audio::AudioDeviceListener {
    explicit DeviceListener(KADefaultOutputUnit& listening) : unit(listening) {}
    void deviceChanged(const audio::AudioDeviceChange& change) override {
      unit.deviceChanged(change);
    }
    KADefaultOutputUnit& unit;
  };
  struct Direction {
    audio::AudioCycleProc cycle = nullptr;
    bool enabled = false;
    std::optional<audio::AudioStreamBasicDescription> clientFormat;  // else the device's
    audio::AudioChannelMap map;  // while there is no stream, whose own counts else
    std::unique_ptr<audio::AudioDeviceStream> stream;
  };
  // The running count of a direction's cycles, theirs alone while they run.
  struct Count {
    bool begun = false;
    double first = 0;
  };

  audio::OSStatus set(const Address& address, const KAPropertyValue& value) override;
  audio::OSStatus get(const Address& address, KAPropertyValue& value) const override;
  bool isWriteable(const Address& address) const override;
  // Calls no virtual function of this unit.
  void deviceChanged(const audio::AudioDeviceChange& change);

  static void outputCycle(const host::RealtimeContext& realtime, void* refCon,
                          const audio::AudioTimeStamp& time, std::uint32_t frames,
                          std::span<float* const> channels) noexcept;
  static void inputCycle(const host::RealtimeContext& realtime, void* refCon,
                         const audio::AudioTimeStamp& time, std::uint32_t frames,
                         std::span<float* const> channels) noexcept;
  audio::AudioTimeStamp stamp(const audio::AudioTimeStamp& cycle, std::uint32_t offset,
                              Count& count) const noexcept;

  audio::AudioStreamBasicDescription format(audio::AudioDirection which, bool isClient) const;
  audio::OSStatus setNumber(const Address& address, std::uint32_t number);
  audio::OSStatus setFormat(Direction& side, const audio::AudioStreamBasicDescription& format);
  audio::OSStatus setDevice(audio::AudioObjectID device);
  void takeOverDevice();
  audio::OSStatus startStreams();
  audio::OSStatus openStream(audio::AudioDirection which);
  audio::OSStatus openStreams();
  void closeStreams();
  audio::AudioDeviceDescription description() const;
  std::uint32_t programChannels(audio::AudioDirection which) const;
  Direction& direction(audio::AudioDirection which) {
    return mDirections[static_cast<std::size_t>(which)];
  }
  const Direction& direction(audio::AudioDirection which) const {
    return mDirections[static_cast<std::size_t>(which)];
  }

  audio::AudioService& mService;
  DeviceListener mDeviceListener{*this};
  audio::AudioObjectID mDevice = audio::kAudioObjectUnknown;
  bool mRunning = false;
  std::string mName = "Velor";
  std::array<Direction, 2> mDirections;

  // The cycles pick up a change here while the unit runs.
  host::LatestValue<audio::AURenderCallbackStruct> mInputCallback;
  host::LatestValue<audio::AURenderCallbackStruct> mRenderCallback;
  std::atomic<double> mSampleRate{0};
  std::atomic<bool> mStartsAtZero{true};

  // The cycles' own while a stream is open.
  struct {
    Count outputCount;
    Count inputCount;
    std::vector<float> samples;  // of the signal that is played, a channel after the other
    std::vector<float*> signal;
    std::vector<float> silence;  // of an input channel that nothing comes from
    std::array<float*, audio::kMaxChannels> arrived{};
  } rt;
};

}  // namespace velor
