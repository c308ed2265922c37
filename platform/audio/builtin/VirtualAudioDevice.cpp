// SPDX-License-Identifier: MIT
#include "platform/audio/builtin/VirtualAudioDevice.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <functional>
#include <mutex>
#include <utility>

#include "platform/host/LatestValue.h"
#include "platform/host/Realtime.h"

namespace velor::audio {
namespace {

// The thread makes up for cycles that are late, since no hardware waits; one that is later
// than this is given up.
constexpr double kPatienceSeconds = 0.5;
constexpr std::uint64_t kCloseWaitNs = 100'000;

// Of a power of two, so that the place of a sample is cheap to find.
std::uint32_t historyFrames(const VirtualAudioDevice::Parameters& parameters) {
  return std::bit_ceil(2 * parameters.maxPeriod + parameters.inputLatency +
                       parameters.outputLatency);
}

}  // namespace

class VirtualAudioDevice::Stream final : public AudioDeviceStream {
 public:
  Stream(VirtualAudioDevice& device, const AudioStreamRequest& request)
      : direction(request.direction),
        mDevice(device),
        mChannels(std::min(request.channels, kMaxChannels)),
        mProc(request.proc),
        mRefCon(request.refCon) {
    setChannelMap(request.map);
  }
  ~Stream() override { mDevice.close(*this); }

  // The device's channels are always the same.
  void setChannelMap(const AudioChannelMap& map) override {
    mMap = map;
    std::array<std::int32_t, kMaxChannels> places{};
    places.fill(-1);
    std::copy_n(map.begin(), std::min(map.size(), places.size()), places.begin());
    mPlaces.store(places);
  }
  AudioChannelMap channelMap() const override { return mMap; }

  void call(const host::RealtimeContext& realtime, const AudioTimeStamp& time, std::uint32_t frames,
            std::span<float* const> device) noexcept {
    const auto& places = mPlaces.load();
    mProc(realtime, mRefCon, time, frames, rt.routing.program(device, places, mChannels));
    if (direction == AudioDirection::output) {
      rt.routing.spread(device, places, mChannels, frames);
    }
  }

  const AudioDirection direction;

 private:
  VirtualAudioDevice& mDevice;
  const std::uint32_t mChannels;
  const AudioCycleProc mProc;
  void* const mRefCon;
  AudioChannelMap mMap;
  host::LatestValue<std::array<std::int32_t, kMaxChannels>> mPlaces;
  // The thread's own.
  struct {
    AudioRouting routing;
  } rt;
};

VirtualAudioDevice::Buffers::Buffers(std::uint32_t channelCount, std::uint32_t frames)
    : samples(std::size_t{channelCount} * frames), channels(channelCount) {
  for (std::size_t i = 0; i < channelCount; ++i) {
    channels[i] = samples.data() + i * frames;
  }
}

void VirtualAudioDevice::Buffers::clear(std::uint32_t frames) noexcept {
  for (float* channel : channels) {
    std::fill_n(channel, frames, 0.0F);
  }
}

VirtualAudioDevice::VirtualAudioDevice(const Parameters& parameters)
    : mHost(host::current()),
      mParameters(parameters),
      mPresent(parameters.isPresent),
      mPeriod(std::clamp(parameters.period, kMinPeriod, parameters.maxPeriod)),
      mNominalRate(parameters.sampleRate),
      mWake(mHost.makeSemaphore()),
      rt{Buffers(parameters.inputs, parameters.maxPeriod),
         Buffers(parameters.outputs, parameters.maxPeriod),
         Buffers(parameters.outputs, parameters.maxPeriod),
         Buffers(parameters.outputs, historyFrames(parameters))} {
  mTimeline.store({0, 0, mNominalRate * (1 + parameters.rateError * 1e-6)});
}

VirtualAudioDevice::~VirtualAudioDevice() {
  stopThread();
}

// --- description ---

AudioDeviceDescription VirtualAudioDevice::description() const {
  const std::uint32_t period = mPeriod.load();
  AudioDeviceDescription device;
  device.uid = mParameters.uid;
  device.name = mParameters.name;
  device.sampleRate = mNominalRate;
  device.bufferFrames = period;
  if (mParameters.inputs != 0) {
    device.input = {
        {{"", mParameters.inputs}}, mParameters.inputLatency + period, mParameters.isDefault};
  }
  if (mParameters.outputs != 0) {
    device.output = {{{"", mParameters.outputs}}, mParameters.outputLatency, mParameters.isDefault};
  }
  return device;
}

void VirtualAudioDevice::announce() {
  if (mInside != nullptr && mPresent.load()) {
    mId.store(mInside->deviceAppeared(*mOutside, description()), std::memory_order_release);
    mInside->serverChanged();
  }
}

AudioServerStatus VirtualAudioDevice::status() const {
  const std::lock_guard lock(mControl);
  return {mNominalRate, mPeriod.load(), mXruns.load()};
}

void VirtualAudioDevice::attach(AudioInside* inside, AudioOutside* outside) {
  const std::lock_guard lock(mControl);
  mInside = inside;
  mOutside = outside;
  announce();
}

OSStatus VirtualAudioDevice::translateTime(const AudioTimeStamp& in,
                                           AudioTimeStamp& out) const noexcept {
  if (!mPresent.load(std::memory_order_relaxed)) {
    return kAudioHardwareBadDeviceError;
  }
  const DeviceTimeline timeline = mTimeline.load();
  if ((in.mFlags & kAudioTimeStampHostTimeValid) != 0) {
    out = {timeline.sampleAt(in.mHostTime), in.mHostTime, kAudioTimeStampSampleHostTimeValid};
  } else if ((in.mFlags & kAudioTimeStampSampleTimeValid) != 0) {
    out = {in.mSampleTime, timeline.hostAt(in.mSampleTime), kAudioTimeStampSampleHostTimeValid};
  } else {
    return kAudioHardwareIllegalOperationError;
  }
  return 0;
}

// --- changes ---

void VirtualAudioDevice::vanish() {
  const std::lock_guard lock(mControl);
  if (mPresent.exchange(false)) {
    stopThread();
    if (mInside != nullptr) {
      mInside->deviceVanished(id());
    }
  }
}

void VirtualAudioDevice::appear() {
  const std::lock_guard lock(mControl);
  if (!mPresent.exchange(true)) {
    announce();
    startThread();
  }
}

void VirtualAudioDevice::setSampleRate(double rate) {
  const std::lock_guard lock(mControl);
  const std::uint64_t now = mHost.AudioGetCurrentHostTime();
  mNominalRate = rate;
  mTimeline.store({now, mTimeline.load().sampleAt(now), rate * (1 + mParameters.rateError * 1e-6)});
  mWake->signal();  // its next cycle has another time now
  announce();
}

void VirtualAudioDevice::setPeriod(std::uint32_t frames) {
  const std::lock_guard lock(mControl);
  mPeriod.store(std::clamp(frames, kMinPeriod, mParameters.maxPeriod));
  announce();
}

void VirtualAudioDevice::plugInto(VirtualAudioDevice& to, std::unique_ptr<Cable> cable) {
  const std::lock_guard lock(mControl);
  mCableOut.store(cable.get(), std::memory_order_release);
  to.mCableIn.store(cable.get(), std::memory_order_release);
  mCables.push_back(std::move(cable));
}

// --- streams ---

std::unique_ptr<AudioDeviceStream> VirtualAudioDevice::open(const AudioStreamRequest& request) {
  const std::lock_guard lock(mControl);
  const auto place =
      std::find_if(mStreams.begin(), mStreams.end(),
                   [](const std::atomic<Stream*>& stream) { return stream.load() == nullptr; });
  if (!mPresent.load() || place == mStreams.end()) {
    return nullptr;
  }
  auto stream = std::make_unique<Stream>(*this, request);
  place->store(stream.get());
  ++mOpenStreams;
  startThread();
  return mThread != nullptr ? std::move(stream) : nullptr;  // the system may refuse
}

void VirtualAudioDevice::close(Stream& stream) {
  const std::lock_guard lock(mControl);
  for (auto& place : mStreams) {
    if (place.load() == &stream) {
      place.store(nullptr);
    }
  }
  if (--mOpenStreams == 0) {
    stopThread();
    return;
  }
  // A cycle that has begun may still use it.
  const std::uint64_t mark = mCycleMark.load();
  while (mark % 2 == 1 && mCycleMark.load() == mark) {
    mHost.mach_wait_until(mHost.AudioGetCurrentHostTime() + kCloseWaitNs);
  }
}

void VirtualAudioDevice::startThread() {
  if (mThread != nullptr || mOpenStreams == 0 || !mPresent.load()) {
    return;
  }
  mEnding.store(false);
  mThread = mHost.startThread("velor.audiodev", [this] {
    mHost.thread_policy_set({}, host::ThreadRole::audio);
    run();
  });
}

void VirtualAudioDevice::stopThread() {
  if (mThread != nullptr) {
    mEnding.store(true);
    mWake->signal();
    mThread.reset();
  }
}

// --- the thread ---

std::int64_t VirtualAudioDevice::nextCycleAfter(std::uint64_t hostTime) const noexcept {
  const std::uint32_t period = mPeriod.load(std::memory_order_relaxed);
  const double periods = mTimeline.load().sampleAt(hostTime) / period;
  return (static_cast<std::int64_t>(std::floor(periods)) + 1) * period;
}

void VirtualAudioDevice::run() {
  std::int64_t next = nextCycleAfter(mHost.AudioGetCurrentHostTime());
  while (!mEnding.load()) {
    const DeviceTimeline timeline = mTimeline.load();
    if (mWake->waitUntil(timeline.hostAt(static_cast<double>(next)))) {
      continue;  // something has changed
    }
    const std::uint32_t period = mPeriod.load(std::memory_order_relaxed);
    const std::uint64_t now = mHost.AudioGetCurrentHostTime();
    const double late = timeline.sampleAt(now) - static_cast<double>(next);
    if (late > kPatienceSeconds * timeline.rate) {
      next = nextCycleAfter(now);
      ++mXruns;
      if (mInside != nullptr) {  // does not change while a stream is open
        mInside->serverChanged();
      }
      continue;
    }
    cycle(next, period);
    next += period;
  }
}

void VirtualAudioDevice::cycle(std::int64_t position, std::uint32_t frames) noexcept {
  const host::RealtimeContext realtime;
  mCycleMark.fetch_add(1);
  const DeviceTimeline timeline = mTimeline.load();
  const auto sample = static_cast<double>(position);
  const std::uint64_t came = timeline.hostAt(sample - frames - mParameters.inputLatency);

  for (auto& place : mStreams) {
    Stream* stream = place.load();
    if (stream == nullptr || stream->direction != AudioDirection::input) {
      continue;
    }
    gatherInput(position, came, frames);  // again for each: it may write into the buffers
    stream->call(realtime, {sample, came, kAudioTimeStampSampleHostTimeValid}, frames,
                 rt.input.channels);
  }
  playOutput(realtime, {sample, timeline.hostAt(sample), kAudioTimeStampSampleHostTimeValid},
             frames);
  keep(position, frames);
  if (Cable* cable = mCableOut.load(std::memory_order_acquire); cable != nullptr) {
    cable->write(position + mParameters.outputLatency, frames, rt.mix.channels);
  }
  mCycleMark.fetch_add(1);
}

void VirtualAudioDevice::gatherInput(std::int64_t position, std::uint64_t hostTime,
                                     std::uint32_t frames) noexcept {
  if (const Cable* cable = mCableIn.load(std::memory_order_acquire); cable != nullptr) {
    cable->read(hostTime, mTimeline.load().rate, frames, rt.input.channels);
    return;
  }
  rt.input.clear(frames);
  if (!mParameters.isLoopback) {
    return;
  }
  const std::int64_t first =
      position - frames - mParameters.inputLatency - mParameters.outputLatency;
  const auto room = static_cast<std::int64_t>(historyFrames(mParameters));
  const std::int64_t begin = std::max({first, rt.historyEnd - room, std::int64_t{0}});
  const std::int64_t end = std::min(first + frames, rt.historyEnd);
  const std::size_t channels = std::min(rt.input.channels.size(), rt.history.channels.size());
  for (std::int64_t at = begin; at < end;) {
    const std::int64_t place = at & (room - 1);
    const std::int64_t length = std::min(end - at, room - place);
    for (std::size_t i = 0; i < channels; ++i) {
      std::copy_n(rt.history.channels[i] + place, length, rt.input.channels[i] + (at - first));
    }
    at += length;
  }
}

void VirtualAudioDevice::playOutput(const host::RealtimeContext& realtime,
                                    const AudioTimeStamp& time, std::uint32_t frames) noexcept {
  bool isFirst = true;
  for (auto& place : mStreams) {
    Stream* stream = place.load();
    if (stream == nullptr || stream->direction != AudioDirection::output) {
      continue;
    }
    // The first output plays into the mix itself; the others are added.
    Buffers& target = std::exchange(isFirst, false) ? rt.mix : rt.output;
    target.clear(frames);
    stream->call(realtime, time, frames, target.channels);
    if (&target == &rt.mix) {
      continue;
    }
    for (std::size_t i = 0; i < rt.mix.channels.size(); ++i) {
      std::transform(rt.output.channels[i], rt.output.channels[i] + frames, rt.mix.channels[i],
                     rt.mix.channels[i], std::plus<>());
    }
  }
  if (isFirst) {
    rt.mix.clear(frames);
  }
}

void VirtualAudioDevice::keep(std::int64_t position, std::uint32_t frames) noexcept {
  const auto room = static_cast<std::int64_t>(historyFrames(mParameters));
  const std::int64_t end = position + frames;
  // Cycles that were given up played nothing.
  for (std::int64_t at = std::max(rt.historyEnd, end - room); at < end;) {
    const std::int64_t place = at & (room - 1);
    const std::int64_t until = at < position ? position : end;
    const std::int64_t length = std::min(until - at, room - place);
    for (std::size_t i = 0; i < rt.history.channels.size(); ++i) {
      float* to = rt.history.channels[i] + place;
      if (at < position) {
        std::fill_n(to, length, 0.0F);
      } else {
        std::copy_n(rt.mix.channels[i] + (at - position), length, to);
      }
    }
    at += length;
  }
  rt.historyEnd = end;
}

}  // namespace velor::audio
