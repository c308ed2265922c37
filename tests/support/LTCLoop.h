// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVShared.h"
#include "Velor/ltc/VLLTCReader.h"
#include "kvtimecode/generator/KVLTCGenerator.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/audio/AudioService.h"
#include "platform/audio/builtin/BuiltinAudio.h"
#include "sim/SimulatedHost.h"
#include "sim/VirtualCable.h"
#include "tests/support/AudioLoop.h"
#include "tests/support/LTCTime.h"

namespace velor {

/// A generator that plays on one device, and a reader that listens to another, whose
/// clock is another one; a cable of 1 ms joins them. Time comes in at exactly its rate.
class LTCLoop {
 public:
  struct Parameters {
    std::uint32_t type = kSMPTETimeType25;
    double sampleRate = 48000;
    double playedPPM = 0;
    double heardPPM = 0;
    std::uint32_t channels = 2;
  };
  static constexpr std::uint64_t kCableDelay = 1'000'000;  // ns

  struct Told {
    std::int32_t frame = 0;  ///< its number, of the day
    std::uint32_t userbits = 0;
    std::uint64_t hostTime = 0;
    double fps = 0;
    std::uint32_t type = 0;
    std::uint32_t counter = 0;
  };

  LTCLoop() : LTCLoop(Parameters()) {}
  explicit LTCLoop(const Parameters& parameters) : mParameters(parameters) {
    std::vector<audio::VirtualAudioDevice::Parameters> devices(2, audio::BuiltinAudio::loopback());
    devices[0].rateError = parameters.playedPPM;
    devices[1].rateError = parameters.heardPPM;
    devices[1].uid = devices[1].name = "the other";
    for (auto& device : devices) {
      device.sampleRate = parameters.sampleRate;
      device.inputs = device.outputs = parameters.channels;
    }
    auto builtin = std::make_unique<audio::BuiltinAudio>(devices);
    played = &builtin->device(0);
    heard = &builtin->device(1);
    mService = audio::serviceOver(std::move(builtin));
    played->plugInto(*heard, std::make_unique<audio::VirtualCable>(*played, kCableDelay));
    generator = KVLTCGenerator::initWithAudioObjectID(played->id());
    generator->setLevel(1);
    reader = VLLTCReader::initWithAudioObjectId(heard->id());
    mTold.resize(std::size_t{1} << 16U);
  }
  ~LTCLoop() {
    stop();
    reader.reset();
    generator.reset();
    KVSharedInstances::clear();
    mService.reset();
    audio::setService(nullptr);
  }
  LTCLoop(const LTCLoop&) = delete;
  LTCLoop& operator=(const LTCLoop&) = delete;

  void listen() { reader->setCallback(&take, this); }

  /// Time comes in from now on, from this frame of the day.
  void start(std::int32_t frame) {
    mBegin = host.AudioGetCurrentHostTime();
    mFirst = frame;
    mEnding = false;
    mSource = host.startThread("time", [this] {
      for (std::int32_t number = mFirst; !mEnding; number += 2) {
        host.mach_wait_until(dueAt(number) + nanoseconds(1.75));
        if (!mEnding) {
          SMPTETime time = ltc_smptetime_from_frame_number(number % day(), mParameters.type);
          time.mFlags = kSMPTETimeValid | kSMPTETimeRunning;
          generator->copyTime(time, dueAt(number));
        }
      }
    });
  }
  void stop() {
    mEnding = true;
    mSource.reset();
  }
  void run(double seconds) { host.advance(static_cast<std::uint64_t>(seconds * 1e9)); }

  /// What the reader has told since the last call.
  std::vector<Told> take() {
    std::vector<Told> result(mTold.begin(),
                             mTold.begin() + static_cast<std::ptrdiff_t>(mCount.exchange(0)));
    return result;
  }
  /// ns from when the frame's first bit came in to what was told: what is told is the
  /// middle of the bit before, half of an 80th part of the frame earlier.
  double phaseErrorOf(const Told& told) const {
    const double told0 = static_cast<double>(told.hostTime) + seconds() * 1e9 / 160;
    std::int32_t number = told.frame;
    while (number < mFirst) {
      number += day();
    }
    while (std::fabs(told0 - static_cast<double>(dueAt(number + day()))) <
           std::fabs(told0 - static_cast<double>(dueAt(number)))) {
      number += day();
    }
    return told0 - static_cast<double>(dueAt(number)) - static_cast<double>(kCableDelay);
  }
  /// Frames.
  std::int32_t day() const {
    const bool isDrop =
        mParameters.type == kSMPTETimeType2997Drop || mParameters.type == kSMPTETimeType30Drop;
    return isDrop ? 24 * 107892 : 86400 * static_cast<std::int32_t>(std::lround(1 / seconds()));
  }
  /// Of a frame.
  double seconds() const { return 1 / frameRateOf(mParameters.type); }

  host::SimulatedHost host;
  audio::VirtualAudioDevice* played = nullptr;  // the service's, as the next
  audio::VirtualAudioDevice* heard = nullptr;
  std::shared_ptr<KVLTCGenerator> generator;
  std::shared_ptr<VLLTCReader> reader;

 private:
  std::uint64_t nanoseconds(double frames) const {
    return static_cast<std::uint64_t>(std::llround(frames * seconds() * 1e9));
  }
  std::uint64_t dueAt(std::int32_t number) const { return mBegin + nanoseconds(number - mFirst); }

  static void take(const host::RealtimeContext& /*realtime*/, const SMPTETime& time,
                   const std::uint8_t* userBits, void* refCon, std::uint64_t hostTime, double fps) {
    auto& self = *static_cast<LTCLoop*>(refCon);
    const std::size_t at = self.mCount;
    if (at < self.mTold.size()) {
      Told& told = self.mTold[at];
      told.frame = ltc_frame_number_from_smptetime(time);
      std::memcpy(&told.userbits, userBits, sizeof told.userbits);
      told.hostTime = hostTime;
      told.fps = fps;
      told.type = time.mType;
      told.counter = time.mCounter;
      self.mCount = at + 1;
    }
  }

  const Parameters mParameters;
  std::unique_ptr<audio::AudioService> mService;
  std::vector<Told> mTold;
  std::atomic<std::size_t> mCount{0};
  std::unique_ptr<host::Thread> mSource;
  std::uint64_t mBegin = 0;
  std::int32_t mFirst = 0;
  bool mEnding = true;
};

}  // namespace velor
