// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <numbers>
#include <optional>
#include <random>
#include <tuple>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVShared.h"
#include "kvtimecode/generator/KVLTCGenerator.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/audio/AudioService.h"
#include "platform/audio/builtin/BuiltinAudio.h"
#include "sim/SimulatedHost.h"
#include "tests/support/AudioLoop.h"
#include "tests/support/LTCSignalReader.h"
#include "tests/support/LTCTime.h"
#include "tests/support/PublishedLTC.h"

namespace velor {

/// A course of time for a generator, and the device on which it plays.
struct LTCScenario {
  std::uint32_t type = kSMPTETimeType25;
  double sampleRate = 48000;
  double ppm = 0;               ///< by which the device's clock is fast
  double speed = 1;             ///< of the time that comes in
  std::uint64_t jitter = 0;     ///< ns by which its host times are late at most
  std::uint64_t lateness = 0;   ///< ns by which its calls are late at most
  std::uint32_t latency = 137;  ///< samples from the device to its connector
  std::uint32_t period = 256;
  std::int32_t firstFrame = 0;  ///< number of the first time that comes in
  std::uint32_t userbits = 0x89ABCDEF;
};

/// Runs a generator on a simulated device, hears what leaves it and judges each frame:
/// by the published bits, and by the moment at which it is due at the connector.
class LTCRun {
 public:
  /// Calls after which the smoothed length has met the real one.
  static constexpr int kSettlingCalls = 60;

  explicit LTCRun(const LTCScenario& scenario)
      : mScenario(scenario), mCourse{scenario.firstFrame, 0, scenario.userbits} {
    mParameters = audio::BuiltinAudio::loopback();
    mParameters.sampleRate = scenario.sampleRate;
    mParameters.rateError = scenario.ppm;
    mParameters.outputLatency = scenario.latency;
    mParameters.period = scenario.period;
    auto builtin = std::make_unique<audio::BuiltinAudio>(std::vector{mParameters});
    device = &builtin->device();
    service = audio::serviceOver(std::move(builtin));
    generator = KVLTCGenerator::initWithAudioObjectID(0);
    generator->setLevel(1);
    generator->setUserbits(scenario.userbits);
    mRecorder = std::make_unique<audio::AudioRecorder>(device->id());
    mReader = std::make_unique<LTCSignalReader>(
        scenario.sampleRate * frameSeconds() / scenario.speed,
        [this](const PublishedBits& bits, double start) { judge(bits, start); });
  }
  ~LTCRun() {
    stop();
    mRecorder.reset();
    generator.reset();
    KVSharedInstances::clear();
    service.reset();
    audio::setService(nullptr);
  }
  LTCRun(const LTCRun&) = delete;
  LTCRun& operator=(const LTCRun&) = delete;

  /// Time begins to come in at the host time that is now, as MTC would bring it: each
  /// call as the last of its eight pieces arrives, with the host time of the first.
  void start() {
    std::uint64_t begin = host.AudioGetCurrentHostTime();
    mCourse = {mScenario.firstFrame, begin, mCourse.userbits};
    mHeard = -1;
    mEnding = false;
    mSource = host.startThread("time", [this, begin]() mutable {
      std::int32_t number = mScenario.firstFrame;
      for (int call = 0; !mEnding; ++call, number += 2) {
        std::uint64_t due = begin + nanoseconds(2 * call);
        host.mach_wait_until(due + nanoseconds(1.75) + upTo(mScenario.lateness));
        if (mEnding) {
          return;
        }
        if (mJump) {
          begin += mJump->begin;
          due += mJump->begin;
          host.mach_wait_until(due + nanoseconds(1.75));
          mNextCourse = {number = mJump->first, due, mJump->userbits};
          mJump.reset();
        }
        SMPTETime time = ltc_smptetime_from_frame_number(number, mScenario.type);
        time.mFlags = kSMPTETimeValid | kSMPTETimeRunning;
        const std::uint64_t stamp = due + upTo(mScenario.jitter);
        if (call == 0) {
          generator->copyTime(time, stamp);  // logs
        } else {
          const host::RealtimeContext realtime;  // an allocation ends the program
          generator->copyTime(time, stamp);
        }
      }
    });
  }
  void stop() {
    mEnding = true;
    mSource.reset();
  }

  /// The next call brings this frame, `shift` ns later or earlier than the one that was
  /// to come, and its batch has these user bits.
  void jump(std::int32_t frame, std::uint32_t userbits, std::int64_t shift = 0) {
    mJump = {frame, static_cast<std::uint64_t>(shift), userbits};
    generator->setUserbits(userbits);
  }

  void run(double seconds) {
    for (; seconds > 0; --seconds) {
      host.advance(static_cast<std::uint64_t>(std::min(seconds, 1.0) * 1e9));
      double place = 0;
      std::tie(place, heard) = mRecorder->drain();
      if (onSamples) {
        onSamples(heard);
      }
      mReader->read(place - static_cast<double>(mScenario.latency + mScenario.period), heard);
    }
  }

  int torn() const { return mReader->torn; }
  int silences() const { return mReader->silences; }
  /// The sample at which a frame is due to enter the device, by its number: two nominal
  /// frames behind the moment at which the time two frames before it came in.
  double dueAt(double frame) const {
    return sampleAt(frame - 2) + 2 * frameSeconds() * mScenario.sampleRate - mScenario.latency;
  }
  /// The sample that leaves the connector at the moment of the frame.
  double connectorAt(double frame) const { return sampleAt(frame) - mScenario.latency; }
  double onset() const { return mReader->onset; }
  /// Of a frame, nominal.
  double frameSeconds() const { return 1 / frameRateOf(mScenario.type); }
  void forgetErrors() { worst = settledWorst = worstAtConnector = 0; }

  host::SimulatedHost host;
  std::unique_ptr<audio::AudioService> service;
  audio::VirtualAudioDevice* device = nullptr;  // the service's
  std::shared_ptr<KVLTCGenerator> generator;
  std::vector<float> heard;  // in the last second
  std::function<void(std::vector<float>&)> onSamples;

  // What was heard.
  std::int64_t frames = 0;
  std::int64_t wrong = 0;  ///< frames with other bits than those that were to come
  std::int32_t first = 0;  ///< number of the first frame since `start`
  // Samples that a frame's start was off, at worst: ever, and once settled.
  double worst = 0;
  double settledWorst = 0;
  double worstAtConnector = 0;

 private:
  std::uint64_t nanoseconds(double frameCount) const {
    return static_cast<std::uint64_t>(
        std::llround(frameCount * frameSeconds() / mScenario.speed * 1e9));
  }
  std::uint64_t upTo(std::uint64_t limit) { return limit == 0 ? 0 : mRandom() % (limit + 1); }

  // Samples from a change to where the low-pass goes through zero: a second-order
  // section by R. Bristow-Johnson's Audio EQ Cookbook, given a step from -1 to 1.
  double filterDelay() const {
    const double w = 2 * std::numbers::pi * 14000 / mScenario.sampleRate;
    const double alpha = std::sin(w) / (2 * std::numbers::sqrt2 / 2);
    const double c = (1 - std::cos(w)) / 2;
    double in[2] = {-1, -1};
    double out[2] = {-1, -1};
    for (int place = 0;; ++place) {
      const double now =
          (c * (1 + 2 * in[0] + in[1]) + 2 * std::cos(w) * out[0] - (1 - alpha) * out[1]) /
          (1 + alpha);
      if (now > 0) {
        return place - now / (now - out[0]);
      }
      in[1] = std::exchange(in[0], 1);
      out[1] = std::exchange(out[0], now);
    }
  }

  double sampleAt(double frame) const {
    audio::AudioTimeStamp in;
    in.mHostTime = mCourse.begin + nanoseconds(frame - mCourse.first);
    in.mFlags = audio::kAudioTimeStampHostTimeValid;
    audio::AudioTimeStamp out;
    service->AudioDeviceTranslateTime(device->id(), in, out);
    return out.mSampleTime;
  }

  // Numbers that run on from `first`, which was due at the host time `begin`.
  struct Course {
    std::int32_t first;
    std::uint64_t begin;
    std::uint32_t userbits;
  };

  PublishedBits bitsOf(std::int32_t frame) const {
    const std::uint32_t user = mCourse.userbits;
    return publishedLTC(
        ltc_smptetime_from_frame_number(frame, mScenario.type),
        {static_cast<std::uint8_t>(user), static_cast<std::uint8_t>(user >> 8),
         static_cast<std::uint8_t>(user >> 16), static_cast<std::uint8_t>(user >> 24)});
  }

  void judge(const PublishedBits& bits, double start) {
    ++frames;
    if (mNextCourse && (mHeard < 0 || bitsOf(mHeard + 1) != bits)) {
      mCourse = *std::exchange(mNextCourse, std::nullopt);
      mHeard = -1;
    }
    const std::int32_t expected = mHeard < 0 ? mCourse.first + 2 : mHeard + 1;
    const bool isFirst = mHeard < 0;
    // Out of step it is looked for among those that would come next.
    mHeard = expected;
    while (mHeard < expected + 20 && bitsOf(mHeard) != bits) {
      ++mHeard;
    }
    if (mHeard == expected + 20) {
      mHeard = expected;
      ++wrong;
      return;  // none of them
    }
    if (isFirst) {
      first = mHeard;
    } else if (mHeard != expected) {
      ++wrong;
    }
    // Out of silence the first sample tells the place, not the way through zero.
    const double place = start == mReader->onset ? start : start - mFilterDelay;
    const double error = std::fabs(place - dueAt(mHeard));
    worst = std::max(worst, error);
    if (mHeard - first > 2 * kSettlingCalls) {
      settledWorst = std::max(settledWorst, error);
      worstAtConnector = std::max(worstAtConnector, std::fabs(place - connectorAt(mHeard)));
    }
  }

  const LTCScenario mScenario;
  const double mFilterDelay = filterDelay();
  audio::VirtualAudioDevice::Parameters mParameters;
  std::unique_ptr<audio::AudioRecorder> mRecorder;
  std::unique_ptr<LTCSignalReader> mReader;
  std::unique_ptr<host::Thread> mSource;
  Course mCourse;
  std::optional<Course> mJump;        // for the next call
  std::optional<Course> mNextCourse;  // whose frames will be heard
  std::int32_t mHeard = -1;
  bool mEnding = true;
  std::mt19937_64 mRandom{1};
};

}  // namespace velor
