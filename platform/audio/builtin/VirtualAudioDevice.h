// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform/audio/AudioOutside.h"
#include "platform/audio/builtin/DeviceTimeline.h"
#include "platform/host/Host.h"
#include "platform/host/RecursiveMutex.h"
#include "platform/host/Seqlock.h"

namespace velor::audio {

/// A device without hardware, run by host time. Its count of samples is host time
/// times its rate and never stops; its cycles lie at whole multiples of the period
/// on that count, and its thread runs only while a stream is open.
///
/// The cycle that begins at the sample s is called at the host time of s. Outputs
/// for s leave at s + output latency. The input with the time s came in at
/// s - input latency, which is the period and the latency of the parameters. So a sample
/// that is played at s on a device whose outputs feed its inputs is recorded at
/// s + output latency + input latency: a period later, unless the parameters add to it.
///
/// Its rate can have an error, and rate and period can change, so that tests can try
/// whatever follows a device.
class VirtualAudioDevice {
 public:
  struct Parameters {
    std::string uid;
    std::string name;
    std::uint32_t inputs = 2;   ///< channels
    std::uint32_t outputs = 2;  ///< channels
    double sampleRate = 48000;  ///< nominal
    double rateError = 0;       ///< ppm; positive is fast
    std::uint32_t period = 256;
    std::uint32_t maxPeriod = 4096;   ///< that can be set later
    std::uint32_t inputLatency = 0;   ///< samples, beside the period
    std::uint32_t outputLatency = 0;  ///< samples
    bool isLoopback = true;           ///< its outputs feed its inputs, while no cable does
    bool isPresent = true;
    bool isDefault = true;
  };

  /// Carries the outputs of one device to the inputs of another. It is called in the cycles
  /// of both, so it must be realtime-safe.
  class Cable {
   public:
    virtual ~Cable() = default;
    /// The frames from `position` on, on the count of the writing device, with its
    /// latency included.
    virtual void write(std::int64_t position, std::uint32_t frames,
                       std::span<float* const> channels) noexcept = 0;
    /// The sound that comes in from the host time `hostTime` on, a sample every 1/`rate` s.
    virtual void read(std::uint64_t hostTime, double rate, std::uint32_t frames,
                      std::span<float* const> channels) const noexcept = 0;
  };

  /// Fewest frames of a cycle.
  static constexpr std::uint32_t kMinPeriod = 16;
  /// Streams that can be open at once.
  static constexpr std::size_t kStreams = 64;

  explicit VirtualAudioDevice(const Parameters& parameters);
  ~VirtualAudioDevice();
  VirtualAudioDevice(const VirtualAudioDevice&) = delete;
  VirtualAudioDevice& operator=(const VirtualAudioDevice&) = delete;

  /// Announces it, when it is present; null ends that.
  void attach(AudioInside* inside, AudioOutside* outside);
  AudioObjectID id() const noexcept { return mId.load(std::memory_order_acquire); }

  // As the back end's operations of the same kind.
  std::unique_ptr<AudioDeviceStream> open(const AudioStreamRequest& request);
  OSStatus translateTime(const AudioTimeStamp& in, AudioTimeStamp& out) const noexcept;
  AudioServerStatus status() const;

  // Changes, on any thread but a real-time one.

  void vanish();
  void appear();
  /// The count goes on from where it stands.
  void setSampleRate(double rate);
  /// Clamped to what it can have; from the next cycle on.
  void setPeriod(std::uint32_t frames);
  /// The outputs of this device become the inputs of `to`, by a cable that stays.
  void plugInto(VirtualAudioDevice& to, std::unique_ptr<Cable> cable);
  const Parameters& parameters() const noexcept { return mParameters; }
  const host::Seqlocked<DeviceTimeline>& timeline() const noexcept { return mTimeline; }

 private:
  class Stream;
  // One channel after the other.
  struct Buffers {
    Buffers(std::uint32_t channels, std::uint32_t frames);
    void clear(std::uint32_t frames) noexcept;
    std::vector<float> samples;
    std::vector<float*> channels;
  };

  AudioDeviceDescription description() const;
  void announce();
  void startThread();
  void stopThread();
  void close(Stream& stream);

  void run();
  std::int64_t nextCycleAfter(std::uint64_t hostTime) const noexcept;
  void cycle(std::int64_t position, std::uint32_t frames) noexcept;
  void gatherInput(std::int64_t position, std::uint64_t hostTime, std::uint32_t frames) noexcept;
  void playOutput(const host::RealtimeContext& realtime, const AudioTimeStamp& time,
                  std::uint32_t frames) noexcept;
  void keep(std::int64_t position, std::uint32_t frames) noexcept;

  host::Host& mHost;
  const Parameters mParameters;
  host::Seqlocked<DeviceTimeline> mTimeline;
  std::atomic<AudioObjectID> mId{kAudioObjectUnknown};
  std::atomic<bool> mPresent;
  std::atomic<std::uint32_t> mPeriod;
  std::atomic<std::uint32_t> mXruns{0};
  std::array<std::atomic<Stream*>, kStreams> mStreams{};
  std::atomic<Cable*> mCableIn{nullptr};
  std::atomic<Cable*> mCableOut{nullptr};
  // Odd while a cycle is under way.
  std::atomic<std::uint64_t> mCycleMark{0};

  // Taken by all that change the device, never by its thread.
  mutable host::RecursiveMutex mControl;
  AudioInside* mInside = nullptr;
  AudioOutside* mOutside = nullptr;
  double mNominalRate;
  std::vector<std::unique_ptr<Cable>> mCables;  // those that begin here
  std::size_t mOpenStreams = 0;
  std::atomic<bool> mEnding{false};
  const std::unique_ptr<host::Semaphore> mWake;
  std::unique_ptr<host::Thread> mThread;

  // The thread's own.
  struct {
    Buffers input;
    Buffers output;
    Buffers mix;
    Buffers history;  // what was played, a ring by the count
    std::int64_t historyEnd = 0;
  } rt;
};

}  // namespace velor::audio
