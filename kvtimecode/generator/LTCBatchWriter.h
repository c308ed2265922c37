// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "Kv-Appkit/KVWatchdog.h"
#include "kvtimecode/SMPTETime.h"
#include "kvtimecode/generator/AudioGeneratorRefCon.h"
#include "kvtimecode/generator/LTCPhaseLock.h"
#include "kvtimecode/ltc_frame.h"
#include "platform/audio/AudioTypes.h"

namespace velor {

/// Turns each time that comes in into a batch of LTC frames, at the place in the device's
/// samples that LTCPhaseLock gives. Between `open` and `close` it writes for one device.
///
/// `write` runs on one thread at a time, all else on the main queue unless a comment says
/// otherwise.
class LTCBatchWriter {
 public:
  /// The stream that is written now.
  struct Stream {
    double sampleRate;
    double frameSamples;  ///< smoothed length of a frame
    SMPTETime time;       ///< of the frame that is due now
    bool isWatched;       ///< a watchdog waits for its end
  };

  LTCBatchWriter();

  /// The samples that the device's callback plays.
  AudioGeneratorRefCon& samples() noexcept { return mSamples; }

  /// `latency` is that of the device, in samples.
  void open(audio::AudioObjectID device, double sampleRate, std::uint32_t latency);
  void close();
  /// The device plays nothing until the next batch.
  void silence();
  void setLatency(std::uint32_t latency);

  /// `time` is due at the host time `hostTime` (ns). Gives by what part the time runs faster
  /// than nominal; nothing when no batch was written. Realtime-safe: yes, but for the first
  /// call of a stream, which logs.
  std::optional<double> write(const SMPTETime& time, std::uint64_t hostTime);

  /// None while nothing is written.
  std::optional<Stream> stream();
  /// Each batch validates it. Gives the former one.
  std::shared_ptr<KVWatchdog> setWatchdog(std::shared_ptr<KVWatchdog> watchdog);
  /// The stream has ended, and the next call begins another one. False if the writer had
  /// given up because nobody played what it wrote.
  bool stop();

  // Any thread. The next frame that is written takes them.
  std::uint32_t userbits() const noexcept { return mUserBits.load(); }
  void setUserbits(std::uint32_t userbits) noexcept { mUserBits.store(userbits); }
  /// Amplitude, 0 to 1.
  float level() const noexcept { return mLevel.load(); }
  void setLevel(float level) noexcept { mLevel.store(level); }

 private:
  // Of the device for which a call writes.
  struct Buffers {
    Buffers(audio::AudioObjectID device, double rate, std::uint32_t latency);

    const audio::AudioObjectID deviceID;
    const double sampleRate;
    const std::uint32_t length;                // samples of the ring, and of a batch at most
    std::atomic<std::uint32_t> outputLatency;  // samples
    std::vector<float> scratch;                // the caller's
  };
  struct FreeFrame {
    void operator()(ltc_frame* frame) const noexcept { ltc_frame_destroy(frame); }
  };

  void publish(std::shared_ptr<Buffers> buffers, std::vector<float> ring);
  static std::optional<LTCPhaseLock::Call> callFor(const SMPTETime& time, std::uint64_t hostTime,
                                                   const Buffers& buffers);
  std::optional<LTCPhaseLock> place(LTCPhaseLock::Call call, const SMPTETime& time,
                                    std::uint64_t epoch, Buffers& buffers);
  void render(const LTCPhaseLock::Batch& batch, SMPTETime time, Buffers& buffers);

  std::vector<std::shared_ptr<Buffers>> mRetired;    // that `write` may still hold
  const std::unique_ptr<ltc_frame, FreeFrame> mLTC;  // of the thread of `write`

  AudioGeneratorRefCon mSamples;
  // Under its lock.
  std::shared_ptr<Buffers> mBuffers;  // null while closed
  LTCPhaseLock mPhase;
  std::uint64_t mEpoch = 0;  // counts what makes a batch under way void
  bool mHasReceived = false;
  SMPTETime mTime;
  std::shared_ptr<KVWatchdog> mWatchdog;

  std::atomic<std::uint32_t> mUserBits{0};
  std::atomic<float> mLevel{0};
};

}  // namespace velor
