// SPDX-License-Identifier: MIT
#include "kva/KADefaultOutputUnit.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <numeric>
#include <utility>

#include "kva/KACheck.h"
#include "platform/host/Log.h"

namespace velor {
namespace {

using audio::AudioDirection;
using audio::OSStatus;

constexpr KAUnitElement kOutputElement = 0;
constexpr KAUnitElement kInputElement = 1;
constexpr double kNsPerSecond = 1e9;

AudioDirection directionOf(KAUnitElement element) {
  return element == kOutputElement ? AudioDirection::output : AudioDirection::input;
}

// The program's side of an element, and the device's.
KAUnitScope innerScope(KAUnitElement element) {
  return element == kOutputElement ? KAUnitScope::input : KAUnitScope::output;
}
KAUnitScope outerScope(KAUnitElement element) {
  return element == kOutputElement ? KAUnitScope::output : KAUnitScope::input;
}

}  // namespace

KADefaultOutputUnit::KADefaultOutputUnit()
    : mService(audio::service()), mDevice(mService.defaultDevice(AudioDirection::output)) {
  direction(AudioDirection::output).cycle = &outputCycle;
  direction(AudioDirection::output).enabled = true;
  direction(AudioDirection::input).cycle = &inputCycle;
  takeOverDevice();
  mService.addListener(mDeviceListener);
}

KADefaultOutputUnit::~KADefaultOutputUnit() {
  mService.removeListener(mDeviceListener);
  closeStreams();
}

// --- properties ---

audio::AudioDeviceDescription KADefaultOutputUnit::description() const {
  return mService.description(mDevice).value_or(audio::AudioDeviceDescription{});
}

audio::AudioStreamBasicDescription KADefaultOutputUnit::format(AudioDirection which,
                                                               bool isClient) const {
  if (isClient && direction(which).clientFormat) {
    return *direction(which).clientFormat;
  }
  const audio::AudioDeviceDescription device = description();
  return KAStreamFormat(device.sampleRate, device.channels(which));
}

bool KADefaultOutputUnit::isWriteable(const Address& address) const {
  switch (address.property) {
    case KAUnitProperty::streamFormat:
      return address.scope == innerScope(address.element);
    case KAUnitProperty::sampleRate:
    case KAUnitProperty::maximumFramesPerSlice:
    case KAUnitProperty::isRunning:
    case KAUnitProperty::latency:
    case KAUnitProperty::nominalSampleRate:
      return false;
    default:
      return true;
  }
}

OSStatus KADefaultOutputUnit::set(const Address& address, const KAPropertyValue& value) {
  if (address.element > kInputElement) {
    return audio::kAudioUnitErr_InvalidElement;
  }
  Direction& side = direction(directionOf(address.element));
  if (const auto* number = std::get_if<std::uint32_t>(&value)) {
    return setNumber(address, *number);
  }
  if (const auto* format = std::get_if<audio::AudioStreamBasicDescription>(&value);
      format != nullptr && address.property == KAUnitProperty::streamFormat) {
    return setFormat(side, *format);
  }
  if (const auto* callback = std::get_if<audio::AURenderCallbackStruct>(&value)) {
    if (address.property == KAUnitProperty::renderCallback) {
      mRenderCallback.store(*callback);
      return 0;
    }
    if (address.property == KAUnitProperty::inputCallback) {
      mInputCallback.store(*callback);
      return 0;
    }
  }
  if (const auto* name = std::get_if<std::string>(&value);
      name != nullptr && address.property == KAUnitProperty::nickName) {
    mName = *name;
    return 0;
  }
  if (const auto* map = std::get_if<audio::AudioChannelMap>(&value);
      map != nullptr && address.property == KAUnitProperty::channelMap &&
      address.scope == outerScope(address.element) && map->size() <= audio::kMaxChannels) {
    side.map = *map;
    if (side.stream != nullptr) {
      side.stream->setChannelMap(*map);
    }
    return 0;
  }
  return audio::kAudioUnitErr_InvalidPropertyValue;
}

OSStatus KADefaultOutputUnit::setNumber(const Address& address, std::uint32_t number) {
  switch (address.property) {
    case KAUnitProperty::currentDevice:
      return setDevice(number);
    case KAUnitProperty::enableIO:
      if (address.scope != outerScope(address.element)) {
        return audio::kAudioUnitErr_InvalidElement;
      }
      if (isInitialized()) {
        return audio::kAudioUnitErr_CannotDoInCurrentContext;
      }
      direction(directionOf(address.element)).enabled = number != 0;
      return 0;
    case KAUnitProperty::startTimestampsAtZero:
      mStartsAtZero.store(number != 0, std::memory_order_relaxed);
      return 0;
    case KAUnitProperty::bufferFrameSize:
      if (number == 0) {
        return audio::kAudioUnitErr_InvalidPropertyValue;
      }
      mService.requestBufferFrames(mDevice, number);
      return 0;
    default:
      return audio::kAudioUnitErr_InvalidProperty;
  }
}

OSStatus KADefaultOutputUnit::setFormat(Direction& side,
                                        const audio::AudioStreamBasicDescription& format) {
  if (isInitialized()) {
    return audio::kAudioUnitErr_CannotDoInCurrentContext;
  }
  if (!KAIsStreamFormat(format)) {
    return audio::kAudioUnitErr_FormatNotSupported;
  }
  side.clientFormat = format;
  return 0;
}

// Of a device that is missing: as it was.
OSStatus KADefaultOutputUnit::get(const Address& address, KAPropertyValue& value) const {
  if (address.element > kInputElement) {
    return audio::kAudioUnitErr_InvalidElement;
  }
  const AudioDirection which = directionOf(address.element);
  const audio::AudioDeviceDescription device = description();
  switch (address.property) {
    case KAUnitProperty::streamFormat:
      value = format(which, address.scope == innerScope(address.element));
      return 0;
    case KAUnitProperty::sampleRate:
    case KAUnitProperty::nominalSampleRate:
      value = device.sampleRate;
      break;
    case KAUnitProperty::latency:
      value = address.scope == KAUnitScope::input ? device.input.latency : device.output.latency;
      break;
    case KAUnitProperty::bufferFrameSize:
      value = device.bufferFrames;
      break;
    case KAUnitProperty::maximumFramesPerSlice:
      value = audio::kMaxFramesPerSlice;
      return 0;
    case KAUnitProperty::nickName:
      value = mName;
      return 0;
    case KAUnitProperty::currentDevice:
      value = mDevice;
      return 0;
    case KAUnitProperty::isRunning:
      value = std::uint32_t{mRunning};
      return 0;
    case KAUnitProperty::enableIO:
      value = std::uint32_t{direction(which).enabled};
      return 0;
    case KAUnitProperty::startTimestampsAtZero:
      value = std::uint32_t{mStartsAtZero.load(std::memory_order_relaxed)};
      return 0;
    case KAUnitProperty::channelMap: {
      const Direction& side = direction(which);
      audio::AudioChannelMap map = side.stream != nullptr ? side.stream->channelMap() : side.map;
      map.resize(device.channels(which), -1);
      value = std::move(map);
      return 0;
    }
    default:
      return audio::kAudioUnitErr_InvalidProperty;
  }
  return device.uid.empty() ? audio::kAudioHardwareBadDeviceError : 0;
}

// --- the device ---

void KADefaultOutputUnit::takeOverDevice() {
  mSampleRate.store(description().sampleRate, std::memory_order_relaxed);
  for (Direction& side : mDirections) {
    side.map.resize(audio::kMaxChannels);
    std::iota(side.map.begin(), side.map.end(), 0);
  }
}

OSStatus KADefaultOutputUnit::setDevice(audio::AudioObjectID device) {
  if (!mService.description(device)) {
    return audio::kAudioHardwareBadDeviceError;
  }
  if (device == mDevice) {
    return 0;
  }
  closeStreams();
  mDevice = device;
  takeOverDevice();
  notify(KAUnitProperty::currentDevice);
  return mRunning ? openStreams() : 0;
}

void KADefaultOutputUnit::deviceChanged(const audio::AudioDeviceChange& change) {
  {
    const std::lock_guard lock(mControl);
    if (change.device != mDevice) {
      return;
    }
    mSampleRate.store(description().sampleRate, std::memory_order_relaxed);
    if (mRunning && openStreams() != 0) {
      VELOR_LOG_WARNING("audio: %s cannot be opened, and stays silent", description().name.c_str());
    }
  }
  if (change.sampleRate) {
    notify(KAUnitProperty::nominalSampleRate);
  }
  if (change.presence || change.channels) {
    notify(KAUnitProperty::currentDevice);
  }
}

audio::AudioObjectID KADefaultOutputUnit::deviceID() const {
  return getPropertyUInt32(KAUnitProperty::currentDevice, KAUnitScope::global, 0);
}

double KADefaultOutputUnit::sampleRate() const {
  return getPropertyFloat64(KAUnitProperty::sampleRate, KAUnitScope::output, 0);
}

// --- streams ---

std::uint32_t KADefaultOutputUnit::programChannels(AudioDirection which) const {
  return which == AudioDirection::output && source() != nullptr
             ? source()->outputFormat().mChannelsPerFrame
             : format(which, true).mChannelsPerFrame;
}

OSStatus KADefaultOutputUnit::openStream(AudioDirection which) {
  Direction& side = direction(which);
  if (!side.enabled || side.stream != nullptr || description().channels(which) == 0) {
    return 0;
  }
  side.stream =
      mService.open(mDevice, {which, mName, programChannels(which), side.map, side.cycle, this});
  return side.stream != nullptr || !mService.isPresent(mDevice)
             ? 0
             : audio::kAudioHardwareUnspecifiedError;
}

OSStatus KADefaultOutputUnit::openStreams() {
  if (!mService.isPresent(mDevice)) {
    return 0;
  }
  const OSStatus status = openStream(AudioDirection::output);
  return status != 0 ? status : openStream(AudioDirection::input);
}

void KADefaultOutputUnit::closeStreams() {
  for (Direction& side : mDirections) {
    if (side.stream != nullptr) {
      side.map = side.stream->channelMap();
      side.stream.reset();
    }
  }
  rt.outputCount = {};
  rt.inputCount = {};
}

OSStatus KADefaultOutputUnit::startStreams() {
  if (!isInitialized()) {
    return audio::kAudioUnitErr_Uninitialized;
  }
  if (mRunning) {
    return 0;
  }
  if (!mService.description(mDevice)) {
    return audio::kAudioHardwareBadDeviceError;
  }
  const std::size_t channels =
      direction(AudioDirection::output).enabled ? programChannels(AudioDirection::output) : 0;
  rt.samples.assign(channels * audio::kMaxFramesPerSlice, 0.0F);
  rt.signal.resize(channels);
  for (std::size_t i = 0; i < channels; ++i) {
    rt.signal[i] = &rt.samples[i * audio::kMaxFramesPerSlice];
  }
  rt.silence.assign(audio::kMaxFramesPerSlice, 0.0F);
  const OSStatus status = openStreams();
  if (status != 0) {
    closeStreams();
    return status;
  }
  mRunning = true;
  notify(KAUnitProperty::isRunning);
  return 0;
}

void KADefaultOutputUnit::start() {
  const std::lock_guard lock(mControl);
  KACheck("KADefaultOutputUnit::start", startStreams());
}

void KADefaultOutputUnit::stop() {
  const std::lock_guard lock(mControl);
  if (std::exchange(mRunning, false)) {
    closeStreams();
    notify(KAUnitProperty::isRunning);
  }
}

bool KADefaultOutputUnit::isRunning() const {
  return getPropertyUInt32(KAUnitProperty::isRunning, KAUnitScope::global, 0) == 1;
}

// --- cycles ---

audio::AudioTimeStamp KADefaultOutputUnit::stamp(const audio::AudioTimeStamp& cycle,
                                                 std::uint32_t offset,
                                                 Count& count) const noexcept {
  if (!std::exchange(count.begun, true)) {
    count.first = cycle.mSampleTime;
  }
  audio::AudioTimeStamp time = cycle;
  time.mSampleTime += offset;
  if (mStartsAtZero.load(std::memory_order_relaxed)) {
    time.mSampleTime -= count.first;
  }
  const double rate = mSampleRate.load(std::memory_order_relaxed);
  if (offset != 0 && rate > 0) {
    time.mHostTime += static_cast<std::uint64_t>(std::llround(offset * kNsPerSecond / rate));
  }
  return time;
}

void KADefaultOutputUnit::outputCycle(const host::RealtimeContext& realtime, void* refCon,
                                      const audio::AudioTimeStamp& time, std::uint32_t frames,
                                      std::span<float* const> channels) noexcept {
  auto& self = *static_cast<KADefaultOutputUnit*>(refCon);
  const auto& callback = self.mRenderCallback.load();
  std::uint32_t piece = 0;
  for (std::uint32_t offset = 0; offset < frames; offset += piece) {
    piece = std::min(frames - offset, audio::kMaxFramesPerSlice);
    const audio::AudioTimeStamp pieceTime = self.stamp(time, offset, self.rt.outputCount);
    OSStatus status = audio::kAudioUnitErr_NoConnection;
    if (self.source() != nullptr) {
      status = self.source()->render(realtime, pieceTime, piece, self.rt.signal);
    } else if (callback.inputProc != nullptr) {
      status =
          callback.inputProc(realtime, callback.inputProcRefCon, pieceTime, piece, self.rt.signal);
    }
    if (status != 0) {
      continue;  // the channels hold silence already
    }
    for (std::size_t i = 0; i < std::min(channels.size(), self.rt.signal.size()); ++i) {
      if (channels[i] != nullptr) {
        std::copy_n(self.rt.signal[i], piece, channels[i] + offset);
      }
    }
  }
}

void KADefaultOutputUnit::inputCycle(const host::RealtimeContext& realtime, void* refCon,
                                     const audio::AudioTimeStamp& time, std::uint32_t frames,
                                     std::span<float* const> channels) noexcept {
  auto& self = *static_cast<KADefaultOutputUnit*>(refCon);
  const auto& callback = self.mInputCallback.load();
  if (callback.inputProc == nullptr) {
    return;
  }
  std::uint32_t piece = 0;
  for (std::uint32_t offset = 0; offset < frames; offset += piece) {
    piece = std::min(frames - offset, audio::kMaxFramesPerSlice);
    for (std::size_t i = 0; i < channels.size(); ++i) {
      if (channels[i] != nullptr) {
        self.rt.arrived[i] = channels[i] + offset;
      } else {
        self.rt.arrived[i] = self.rt.silence.data();
        std::fill_n(self.rt.silence.begin(), piece, 0.0F);  // whoever got it may have written
      }
    }
    callback.inputProc(realtime, callback.inputProcRefCon,
                       self.stamp(time, offset, self.rt.inputCount), piece,
                       std::span<float* const>(self.rt.arrived.data(), channels.size()));
  }
}

}  // namespace velor
