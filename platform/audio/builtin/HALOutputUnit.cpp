// SPDX-License-Identifier: MIT
#include "platform/audio/builtin/HALOutputUnit.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <span>
#include <utility>

#include "platform/host/Log.h"

namespace velor::audio {
namespace {

constexpr AudioUnitElement kOutputElement = 0;
constexpr AudioUnitElement kInputElement = 1;
constexpr double kNsPerSecond = 1e9;

std::uint32_t channelCount(const AudioDeviceDescription::Side& side) {
  std::uint32_t count = 0;
  for (const auto& stream : side.streams) {
    count += stream.channels;
  }
  return std::min(count, kMaxChannels);
}

AudioObjectPropertyScope objectScope(AudioUnitScope scope) {
  switch (scope) {
    case kAudioUnitScope_Input:
      return kAudioObjectPropertyScopeInput;
    case kAudioUnitScope_Output:
      return kAudioObjectPropertyScopeOutput;
    default:
      return kAudioObjectPropertyScopeGlobal;
  }
}

}  // namespace

HALOutputUnit::HALOutputUnit(AudioDeviceTable& devices)
    : mDevices(devices), mDevice(devices.defaultDevice(AudioDirection::output)) {
  direction(AudioDirection::output).cycle = &outputCycle;
  direction(AudioDirection::output).enabled = true;
  direction(AudioDirection::input).cycle = &inputCycle;
  takeOverDevice();
}

HALOutputUnit::~HALOutputUnit() {
  stop();
}

// --- properties ---

AudioDeviceDescription HALOutputUnit::description() {
  return mDevices.description(mDevice).value_or(AudioDeviceDescription{});
}

// The format of a side: that of the device on the outer scope of each element,
// that of the program on the inner one.
std::optional<AudioStreamBasicDescription> HALOutputUnit::format(
    const UnitPropertyAddress& address) {
  if (address.element > kInputElement ||
      (address.scope != kAudioUnitScope_Input && address.scope != kAudioUnitScope_Output)) {
    return std::nullopt;
  }
  const auto which =
      address.element == kOutputElement ? AudioDirection::output : AudioDirection::input;
  const AudioDeviceDescription device = description();
  if (isWritable(address) && direction(which).clientFormat) {
    return direction(which).clientFormat;
  }
  return streamFormat(device.sampleRate, channelCount(device.side(which)));
}

OSStatus HALOutputUnit::setFormat(const UnitPropertyAddress& address,
                                  const AudioStreamBasicDescription& format) {
  if (address.element > kInputElement) {
    return kAudioUnitErr_InvalidElement;
  }
  if (!isWritable(address)) {
    return kAudioUnitErr_PropertyNotWritable;
  }
  if (isInitialized()) {
    return kAudioUnitErr_CannotDoInCurrentContext;
  }
  if (!isStreamFormat(format)) {
    return kAudioUnitErr_FormatNotSupported;
  }
  direction(address.element == kOutputElement ? AudioDirection::output : AudioDirection::input)
      .clientFormat = format;
  return 0;
}

bool HALOutputUnit::isWritable(const UnitPropertyAddress& address) {
  switch (address.property) {
    case kAudioUnitProperty_StreamFormat:
      return (address.element == kOutputElement && address.scope == kAudioUnitScope_Input) ||
             (address.element == kInputElement && address.scope == kAudioUnitScope_Output);
    case kAudioUnitProperty_SampleRate:
    case kAudioUnitProperty_MaximumFramesPerSlice:
    case kAudioOutputUnitProperty_IsRunning:
    case kAudioDevicePropertyLatency:
    case kAudioDevicePropertyNominalSampleRate:
      return false;
    default:
      return true;
  }
}

OSStatus HALOutputUnit::setProperty(const UnitPropertyAddress& address, const void* data,
                                    std::uint32_t size) {
  const auto number = take<std::uint32_t>(data, size);
  switch (address.property) {
    case kAudioUnitProperty_StreamFormat: {
      const auto wanted = take<AudioStreamBasicDescription>(data, size);
      return wanted ? setFormat(address, *wanted) : kAudioUnitErr_InvalidPropertyValue;
    }
    case kAudioUnitProperty_SetRenderCallback:
    case kAudioOutputUnitProperty_SetInputCallback: {
      const auto callback = take<AURenderCallbackStruct>(data, size);
      if (!callback) {
        return kAudioUnitErr_InvalidPropertyValue;
      }
      if (address.property == kAudioUnitProperty_SetRenderCallback) {
        mInputBus.setCallback(*callback);
      } else {
        mInputCallback.store(*callback);
      }
      return 0;
    }
    case kAudioUnitProperty_NickName:
      if (data == nullptr) {
        return kAudioUnitErr_InvalidPropertyValue;
      }
      mName.assign(static_cast<const char*>(data), size);
      return 0;
    case kAudioOutputUnitProperty_CurrentDevice:
      return number ? setDevice(*number) : kAudioUnitErr_InvalidPropertyValue;
    case kAudioOutputUnitProperty_ChannelMap:
      return setChannelMap(address, data, size);
    case kAudioOutputUnitProperty_EnableIO:
      return number ? setEnabled(address, *number != 0) : kAudioUnitErr_InvalidPropertyValue;
    case kAudioOutputUnitProperty_StartTimestampsAtZero:
      if (!number || *number > 1) {
        return kAudioUnitErr_InvalidPropertyValue;
      }
      mStartsAtZero.store(*number != 0, std::memory_order_relaxed);
      return 0;
    case kAudioDevicePropertyBufferFrameSize:
      if (!number || *number == 0) {
        return kAudioUnitErr_InvalidPropertyValue;
      }
      mDevices.requestBufferFrames(mDevice, *number);
      return 0;
    default:
      return isWritable(address) ? kAudioUnitErr_InvalidProperty
                                 : kAudioUnitErr_PropertyNotWritable;
  }
}

OSStatus HALOutputUnit::getProperty(const UnitPropertyAddress& address,
                                    std::vector<std::byte>& value) {
  switch (address.property) {
    case kAudioUnitProperty_StreamFormat: {
      const auto found = format(address);
      if (!found) {
        return kAudioUnitErr_InvalidScope;
      }
      put(*found, value);
      return 0;
    }
    case kAudioUnitProperty_SampleRate:
    case kAudioDevicePropertyNominalSampleRate:
    case kAudioDevicePropertyLatency:
    case kAudioDevicePropertyBufferFrameSize:
      return getDeviceProperty(address, value);
    case kAudioUnitProperty_MaximumFramesPerSlice:
      put(kMaxFramesPerSlice, value);
      return 0;
    case kAudioUnitProperty_NickName: {
      const auto name = std::as_bytes(std::span(mName));
      value.assign(name.begin(), name.end());
      return 0;
    }
    case kAudioOutputUnitProperty_CurrentDevice:
      put(mDevice, value);
      return 0;
    case kAudioOutputUnitProperty_IsRunning:
      put(std::uint32_t{mRunning}, value);
      return 0;
    case kAudioOutputUnitProperty_ChannelMap:
      return getChannelMap(address, value);
    case kAudioOutputUnitProperty_EnableIO:
      put(std::uint32_t{direction(address.element == kOutputElement ? AudioDirection::output
                                                                    : AudioDirection::input)
                            .enabled},
          value);
      return 0;
    case kAudioOutputUnitProperty_StartTimestampsAtZero:
      put(std::uint32_t{mStartsAtZero.load(std::memory_order_relaxed)}, value);
      return 0;
    default:
      return kAudioUnitErr_InvalidProperty;
  }
}

// Of a device that is away: as it was.
OSStatus HALOutputUnit::getDeviceProperty(const UnitPropertyAddress& address,
                                          std::vector<std::byte>& value) {
  const auto device = mDevices.description(mDevice);
  if (!device) {
    return kAudioHardwareBadDeviceError;
  }
  switch (address.property) {
    case kAudioDevicePropertyLatency:
      put(AudioDeviceTable::latencyInScope(*device, objectScope(address.scope)), value);
      return 0;
    case kAudioDevicePropertyBufferFrameSize:
      put(device->bufferFrames, value);
      return 0;
    default:
      put(device->sampleRate, value);
      return 0;
  }
}

OSStatus HALOutputUnit::setEnabled(const UnitPropertyAddress& address, bool enabled) {
  const bool isOutput =
      address.scope == kAudioUnitScope_Output && address.element == kOutputElement;
  if (!isOutput && (address.scope != kAudioUnitScope_Input || address.element != kInputElement)) {
    return kAudioUnitErr_InvalidElement;
  }
  if (isInitialized()) {
    return kAudioUnitErr_CannotDoInCurrentContext;
  }
  direction(isOutput ? AudioDirection::output : AudioDirection::input).enabled = enabled;
  return 0;
}

// --- the channel map ---

std::optional<AudioDirection> HALOutputUnit::mappedDirection(
    const UnitPropertyAddress& address) const {
  if (address.scope == kAudioUnitScope_Output && address.element == kOutputElement) {
    return AudioDirection::output;
  }
  if (address.scope == kAudioUnitScope_Input && address.element == kInputElement) {
    return AudioDirection::input;
  }
  return std::nullopt;
}

OSStatus HALOutputUnit::setChannelMap(const UnitPropertyAddress& address, const void* data,
                                      std::uint32_t size) {
  const auto which = mappedDirection(address);
  if (!which) {
    return kAudioUnitErr_InvalidScope;
  }
  if (data == nullptr || size % sizeof(std::int32_t) != 0 ||
      size > kMaxChannels * sizeof(std::int32_t)) {
    return kAudioUnitErr_InvalidPropertyValue;
  }
  Direction& side = direction(*which);
  side.map.assign(size / sizeof(std::int32_t), -1);
  std::memcpy(side.map.data(), data, size);
  if (side.stream != nullptr) {
    side.stream->setChannelMap(side.map);
  }
  return 0;
}

OSStatus HALOutputUnit::getChannelMap(const UnitPropertyAddress& address,
                                      std::vector<std::byte>& value) {
  const auto which = mappedDirection(address);
  if (!which) {
    return kAudioUnitErr_InvalidScope;
  }
  const Direction& side = direction(*which);
  AudioChannelMap map = side.stream != nullptr ? side.stream->channelMap() : side.map;
  map.resize(channelCount(description().side(*which)), -1);
  const auto bytes = std::as_bytes(std::span(map));
  value.assign(bytes.begin(), bytes.end());
  return 0;
}

// --- the device ---

void HALOutputUnit::takeOverDevice() {
  mSampleRate.store(description().sampleRate, std::memory_order_relaxed);
  for (Direction& side : mDirections) {
    side.map.resize(kMaxChannels);
    std::iota(side.map.begin(), side.map.end(), 0);
  }
}

OSStatus HALOutputUnit::setDevice(AudioObjectID device) {
  if (!mDevices.description(device)) {
    return kAudioHardwareBadDeviceError;
  }
  if (device == mDevice) {
    return 0;
  }
  closeStreams();
  mDevice = device;
  takeOverDevice();
  return mRunning ? openStreams() : 0;
}

void HALOutputUnit::deviceChanged() {
  mSampleRate.store(description().sampleRate, std::memory_order_relaxed);
  if (mRunning && openStreams() != 0) {
    VELOR_LOG_WARNING("audio: %s cannot be opened, and stays silent", description().name.c_str());
  }
}

std::uint32_t HALOutputUnit::programChannels(AudioDirection which) {
  if (which == AudioDirection::output && mSource != nullptr) {
    return mSource->outputFormat().mChannelsPerFrame;
  }
  const bool isOutput = which == AudioDirection::output;
  return format({kAudioUnitProperty_StreamFormat,
                 isOutput ? kAudioUnitScope_Input : kAudioUnitScope_Output,
                 isOutput ? kOutputElement : kInputElement})
      ->mChannelsPerFrame;
}

OSStatus HALOutputUnit::openStream(AudioDirection which) {
  Direction& side = direction(which);
  if (!side.enabled || side.stream != nullptr || channelCount(description().side(which)) == 0) {
    return 0;
  }
  side.stream =
      mDevices.open(mDevice, {which, mName, programChannels(which), side.map, side.cycle, this});
  return side.stream != nullptr || !mDevices.isPresent(mDevice) ? 0
                                                                : kAudioHardwareUnspecifiedError;
}

OSStatus HALOutputUnit::openStreams() {
  if (!mDevices.isPresent(mDevice)) {
    return 0;
  }
  const OSStatus status = openStream(AudioDirection::output);
  return status != 0 ? status : openStream(AudioDirection::input);
}

void HALOutputUnit::closeStreams() {
  for (Direction& side : mDirections) {
    if (side.stream != nullptr) {
      side.map = side.stream->channelMap();
      side.stream.reset();
    }
  }
  rt.outputCount = {};
  rt.inputCount = {};
}

OSStatus HALOutputUnit::start() {
  if (!isInitialized()) {
    return kAudioUnitErr_Uninitialized;
  }
  if (mRunning) {
    return 0;
  }
  if (!mDevices.description(mDevice)) {
    return kAudioHardwareBadDeviceError;
  }
  const std::uint32_t channels =
      direction(AudioDirection::output).enabled ? programChannels(AudioDirection::output) : 0;
  rt.samples.assign(std::size_t{channels} * kMaxFramesPerSlice, 0.0F);
  rt.buffers.mNumberBuffers = channels;
  rt.silence.assign(kMaxFramesPerSlice, 0.0F);
  mRunning = true;
  const OSStatus status = openStreams();
  if (status != 0) {
    stop();
  }
  return status;
}

void HALOutputUnit::stop() {
  mRunning = false;
  closeStreams();
}

OSStatus HALOutputUnit::connect(RenderUnit& source) {
  if (mSource != nullptr && mSource != &source) {
    return kAUGraphErr_InvalidConnection;
  }
  mSource = &source;
  mInputBus.connect(source);
  return 0;
}

// --- cycles ---

AudioTimeStamp HALOutputUnit::stamp(const AudioTimeStamp& cycle, std::uint32_t offset,
                                    Count& count) const noexcept {
  if (!std::exchange(count.begun, true)) {
    count.first = cycle.mSampleTime;
  }
  AudioTimeStamp time = cycle;
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

bool HALOutputUnit::pullPiece(const host::RealtimeContext& realtime, const AudioTimeStamp& time,
                              std::uint32_t frames) noexcept {
  for (std::uint32_t i = 0; i < rt.buffers.mNumberBuffers; ++i) {
    rt.buffers.mBuffers[i] = {1, static_cast<std::uint32_t>(frames * sizeof(float)),
                              &rt.samples[std::size_t{i} * kMaxFramesPerSlice]};
  }
  AudioUnitRenderActionFlags flags = 0;
  return mInputBus.pull(realtime, flags, time, frames, rt.buffers) == 0;
}

void HALOutputUnit::outputCycle(const host::RealtimeContext& realtime, void* refCon,
                                const AudioTimeStamp& time, std::uint32_t frames,
                                std::span<float* const> channels) noexcept {
  auto& self = *static_cast<HALOutputUnit*>(refCon);
  std::uint32_t piece = 0;
  for (std::uint32_t offset = 0; offset < frames; offset += piece) {
    piece = std::min(frames - offset, kMaxFramesPerSlice);
    const AudioTimeStamp pieceTime = self.stamp(time, offset, self.rt.outputCount);
    if (!self.pullPiece(realtime, pieceTime, piece)) {
      continue;  // the channels hold silence already
    }
    const auto count = std::min<std::size_t>(channels.size(), self.rt.buffers.mNumberBuffers);
    for (std::size_t i = 0; i < count; ++i) {
      if (channels[i] != nullptr) {
        std::copy_n(self.rt.buffers.mBuffers[i].mData, piece, channels[i] + offset);
      }
    }
  }
}

void HALOutputUnit::inputCycle(const host::RealtimeContext& realtime, void* refCon,
                               const AudioTimeStamp& time, std::uint32_t frames,
                               std::span<float* const> channels) noexcept {
  auto& self = *static_cast<HALOutputUnit*>(refCon);
  const AURenderCallbackStruct callback = self.mInputCallback.load();
  if (callback.inputProc == nullptr) {
    return;
  }
  self.rt.arrived = channels;
  std::uint32_t piece = 0;
  for (std::uint32_t offset = 0; offset < frames; offset += piece) {
    piece = std::min(frames - offset, kMaxFramesPerSlice);
    self.rt.arrivedOffset = offset;
    self.rt.arrivedFrames = piece;
    AudioUnitRenderActionFlags flags = 0;
    callback.inputProc(realtime, callback.inputProcRefCon, flags,
                       self.stamp(time, offset, self.rt.inputCount), kInputElement, piece, nullptr);
  }
  self.rt.arrived = {};
}

OSStatus HALOutputUnit::render(const host::RealtimeContext&, AudioUnitRenderActionFlags&,
                               const AudioTimeStamp&, std::uint32_t bus, std::uint32_t frames,
                               AudioBufferList& data) noexcept {
  if (bus != kInputElement) {
    return kAudioUnitErr_InvalidElement;
  }
  if (rt.arrived.empty()) {
    return kAudioUnitErr_CannotDoInCurrentContext;
  }
  if (frames > rt.arrivedFrames) {
    return kAudioUnitErr_TooManyFramesToProcess;
  }
  for (std::uint32_t i = 0; i < data.mNumberBuffers; ++i) {
    AudioBuffer& buffer = data.mBuffers[i];
    if (i >= rt.arrived.size()) {
      if (buffer.mData == nullptr) {
        return kAudioUnitErr_InvalidPropertyValue;
      }
      std::fill_n(buffer.mData, frames, 0.0F);
      continue;
    }
    float* arrived = rt.silence.data();
    if (rt.arrived[i] != nullptr) {
      arrived = rt.arrived[i] + rt.arrivedOffset;
    } else {
      std::fill_n(arrived, frames, 0.0F);  // who was lent it may have written there
    }
    if (buffer.mData == nullptr) {
      buffer.mData = arrived;
      buffer.mDataByteSize = static_cast<std::uint32_t>(frames * sizeof(float));
    } else {
      std::copy_n(arrived, frames, buffer.mData);
    }
  }
  return 0;
}

}  // namespace velor::audio
