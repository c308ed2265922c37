// SPDX-License-Identifier: MIT
#include "platform/audio/builtin/AudioDeviceTable.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "platform/host/Host.h"
#include "platform/host/Log.h"

namespace velor::audio {
namespace {

using Streams = std::vector<AudioDeviceDescription::Stream>;

// Ids: the system is 1, then the devices; a stream's holds its device, direction
// and place, so that it is as stable as those.
constexpr AudioObjectID kFirstDevice = kAudioObjectSystemObject + 1;
constexpr unsigned kDeviceShift = 12;
constexpr AudioObjectID kOutputBit = 1U << 11;
constexpr AudioObjectID kStreamIndexMask = kOutputBit - 1;
static_assert(kFirstDevice + AudioDeviceTable::kDevices < kFirstDevice << kDeviceShift);

constexpr AudioObjectID streamId(AudioObjectID device, AudioDirection direction,
                                 std::size_t index) {
  return device << kDeviceShift | (direction == AudioDirection::output ? kOutputBit : 0U) |
         static_cast<AudioObjectID>(index);
}

bool includes(AudioObjectPropertyScope scope, AudioDirection direction) {
  return scope == kAudioObjectPropertyScopeGlobal ||
         scope == (direction == AudioDirection::input ? kAudioObjectPropertyScopeInput
                                                      : kAudioObjectPropertyScopeOutput);
}

constexpr AudioDirection kDirections[] = {AudioDirection::input, AudioDirection::output};

std::uint32_t channelCount(const Streams& streams) {
  std::uint32_t count = 0;
  for (const auto& stream : streams) {
    count += stream.channels;
  }
  return count;
}

}  // namespace

AudioDeviceTable::AudioDeviceTable(std::vector<std::unique_ptr<AudioOutside>> outsides,
                                   ChangeHandler handler)
    : mOutsides(std::move(outsides)),
      mChangeHandler(std::move(handler)),
      mSelf(std::make_shared<AudioDeviceTable*>(this)) {
  for (const auto& outside : mOutsides) {
    outside->start(*this);
  }
}

AudioDeviceTable::~AudioDeviceTable() {
  for (const auto& outside : mOutsides) {
    outside->stop();
  }
}

// --- what the back ends tell ---

AudioObjectID AudioDeviceTable::deviceAppeared(AudioOutside& from,
                                               const AudioDeviceDescription& device) {
  const auto outside = static_cast<std::size_t>(
      std::find_if(mOutsides.begin(), mOutsides.end(),
                   [&from](const auto& candidate) { return candidate.get() == &from; }) -
      mOutsides.begin());
  AudioObjectID id = 0;
  AudioDeviceChange change;
  {
    const std::lock_guard lock(mMutex);
    const Defaults before = defaults();
    auto known = std::find_if(mDevices.begin(), mDevices.end(), [&](const Device& candidate) {
      return candidate.outside == outside && candidate.description.uid == device.uid;
    });
    const bool isNew = known == mDevices.end();
    if (isNew) {
      if (mDevices.size() == kDevices) {
        VELOR_LOG_WARNING("audio: %u devices have been seen, %s is one too many", kDevices,
                          device.name.c_str());
        return kAudioObjectUnknown;
      }
      known = mDevices.insert(mDevices.end(), {outside, false, device});
    }
    const auto index = static_cast<std::size_t>(known - mDevices.begin());
    id = kFirstDevice + static_cast<AudioObjectID>(index);
    mOutsideOf[index].store(&from, std::memory_order_release);
    const AudioDeviceDescription old = std::exchange(known->description, device);
    change.presence = !std::exchange(known->present, true);
    change.sampleRate = old.sampleRate != device.sampleRate;
    change.channels =
        old.input.streams != device.input.streams || old.output.streams != device.output.streams;
    notifyOfChange(before, change.presence);
    if (isNew) {
      return id;
    }
  }
  mChangeHandler(id, change);
  return id;
}

void AudioDeviceTable::deviceVanished(AudioObjectID id) {
  {
    const std::lock_guard lock(mMutex);
    Device* device = findPresent(id);
    if (device == nullptr) {
      return;
    }
    const Defaults before = defaults();
    device->present = false;
    notifyOfChange(before, true);
  }
  mChangeHandler(id, {.presence = true});
}

// --- lists ---

AudioDeviceTable::Device* AudioDeviceTable::find(AudioObjectID device) {
  const std::size_t index = device - kFirstDevice;  // wraps below, and is out of range then
  return device >= kFirstDevice && index < mDevices.size() ? &mDevices[index] : nullptr;
}

AudioDeviceTable::Device* AudioDeviceTable::findPresent(AudioObjectID device) {
  Device* found = find(device);
  return found != nullptr && found->present ? found : nullptr;
}

const AudioDeviceDescription::Stream* AudioDeviceTable::findStream(AudioObjectID stream) {
  const Device* device = findPresent(stream >> kDeviceShift);
  if (device == nullptr) {
    return nullptr;
  }
  const auto direction =
      (stream & kOutputBit) != 0 ? AudioDirection::output : AudioDirection::input;
  const Streams& streams = device->description.side(direction).streams;
  const std::size_t index = stream & kStreamIndexMask;
  return index < streams.size() ? &streams[index] : nullptr;
}

template <class Predicate>
AudioObjectID AudioDeviceTable::preferred(Predicate&& isWanted) const {
  const Device* best = nullptr;
  for (const Device& device : mDevices) {
    if (device.present && isWanted(device.description) &&
        (best == nullptr || device.outside < best->outside)) {
      best = &device;
    }
  }
  return best == nullptr ? kAudioObjectUnknown
                         : kFirstDevice + static_cast<AudioObjectID>(best - mDevices.data());
}

AudioObjectID AudioDeviceTable::defaultOf(AudioDirection direction) const {
  return preferred([direction](const AudioDeviceDescription& device) {
    const auto& side = device.side(direction);
    return side.isDefault && channelCount(side.streams) != 0;
  });
}

AudioDeviceTable::Defaults AudioDeviceTable::defaults() const {
  return {defaultOf(AudioDirection::input), defaultOf(AudioDirection::output)};
}

std::vector<AudioObjectID> AudioDeviceTable::presentDevices() const {
  std::vector<AudioObjectID> ids;
  for (std::size_t i = 0; i < mDevices.size(); ++i) {
    if (mDevices[i].present) {
      ids.push_back(kFirstDevice + static_cast<AudioObjectID>(i));
    }
  }
  const Defaults first = defaults();
  std::stable_partition(ids.begin(), ids.end(), [&first](AudioObjectID id) {
    return id == first.output || id == first.input;
  });
  return ids;
}

AudioObjectID AudioDeviceTable::defaultDevice(AudioDirection direction) {
  const std::lock_guard lock(mMutex);
  return defaultOf(direction);
}

bool AudioDeviceTable::isPresent(AudioObjectID device) {
  const std::lock_guard lock(mMutex);
  return findPresent(device) != nullptr;
}

std::optional<AudioDeviceDescription> AudioDeviceTable::description(AudioObjectID device) {
  const std::lock_guard lock(mMutex);
  const Device* found = find(device);
  return found == nullptr ? std::nullopt : std::optional(found->description);
}

std::uint32_t AudioDeviceTable::latencyInScope(const AudioDeviceDescription& device,
                                               AudioObjectPropertyScope scope) {
  const bool isInput = scope == kAudioObjectPropertyScopeInput ||
                       (scope == kAudioObjectPropertyScopeGlobal && device.output.streams.empty());
  return isInput ? device.input.latency : device.output.latency;
}

// --- properties ---

OSStatus AudioDeviceTable::getNumber(AudioObjectID object,
                                     const AudioObjectPropertyAddress& address,
                                     const std::string& uid, std::uint32_t* value) {
  const std::lock_guard lock(mMutex);
  if (object == kAudioObjectSystemObject) {
    switch (address.mSelector) {
      case kAudioHardwarePropertyDefaultInputDevice:
        *value = defaultOf(AudioDirection::input);
        return 0;
      case kAudioHardwarePropertyDefaultOutputDevice:
        *value = defaultOf(AudioDirection::output);
        return 0;
      case kAudioHardwarePropertyDeviceForUID:
        *value =
            preferred([&uid](const AudioDeviceDescription& device) { return device.uid == uid; });
        return 0;
      default:
        return kAudioHardwareUnknownPropertyError;
    }
  }
  const Device* device = findPresent(object);
  if (device == nullptr) {
    return findStream(object) == nullptr ? kAudioHardwareBadObjectError
                                         : kAudioHardwareUnknownPropertyError;
  }
  switch (address.mSelector) {
    case kAudioDevicePropertyLatency:
      *value = latencyInScope(device->description, address.mScope);
      return 0;
    case kAudioDevicePropertyBufferFrameSize:
      *value = device->description.bufferFrames;
      return 0;
    default:
      return kAudioHardwareUnknownPropertyError;
  }
}

OSStatus AudioDeviceTable::getRate(AudioObjectID object, const AudioObjectPropertyAddress& address,
                                   double* value) {
  const std::lock_guard lock(mMutex);
  const Device* device = findPresent(object);
  if (device == nullptr) {
    return object == kAudioObjectSystemObject || findStream(object) != nullptr
               ? kAudioHardwareUnknownPropertyError
               : kAudioHardwareBadObjectError;
  }
  if (address.mSelector != kAudioDevicePropertyNominalSampleRate) {
    return kAudioHardwareUnknownPropertyError;
  }
  *value = device->description.sampleRate;
  return 0;
}

OSStatus AudioDeviceTable::getText(AudioObjectID object, const AudioObjectPropertyAddress& address,
                                   std::string* value) {
  const std::lock_guard lock(mMutex);
  if (const Device* device = findPresent(object); device != nullptr) {
    switch (address.mSelector) {
      case kAudioObjectPropertyName:
        *value = device->description.name;
        return 0;
      case kAudioDevicePropertyDeviceUID:
        *value = device->description.uid;
        return 0;
      default:
        return kAudioHardwareUnknownPropertyError;
    }
  }
  if (object == kAudioObjectSystemObject) {
    return kAudioHardwareUnknownPropertyError;
  }
  const auto* stream = findStream(object);
  if (stream == nullptr) {
    return kAudioHardwareBadObjectError;
  }
  if (address.mSelector != kAudioObjectPropertyName || stream->name.empty()) {
    return kAudioHardwareUnknownPropertyError;
  }
  *value = stream->name;
  return 0;
}

OSStatus AudioDeviceTable::getList(AudioObjectID object, const AudioObjectPropertyAddress& address,
                                   std::vector<std::uint32_t>* value) {
  const std::lock_guard lock(mMutex);
  if (object == kAudioObjectSystemObject) {
    if (address.mSelector != kAudioHardwarePropertyDevices) {
      return kAudioHardwareUnknownPropertyError;
    }
    *value = presentDevices();
    return 0;
  }
  const Device* device = findPresent(object);
  if (device == nullptr) {
    return findStream(object) == nullptr ? kAudioHardwareBadObjectError
                                         : kAudioHardwareUnknownPropertyError;
  }
  if (address.mSelector != kAudioDevicePropertyStreams &&
      address.mSelector != kAudioDevicePropertyStreamConfiguration) {
    return kAudioHardwareUnknownPropertyError;
  }
  value->clear();
  for (const AudioDirection direction : kDirections) {
    if (!includes(address.mScope, direction)) {
      continue;
    }
    const Streams& streams = device->description.side(direction).streams;
    for (std::size_t i = 0; i < streams.size(); ++i) {
      value->push_back(address.mSelector == kAudioDevicePropertyStreams
                           ? streamId(object, direction, i)
                           : streams[i].channels);
    }
  }
  return 0;
}

// --- listeners ---

OSStatus AudioDeviceTable::addListener(AudioObjectID object,
                                       const AudioObjectPropertyAddress& address,
                                       AudioObjectPropertyListenerProc proc, void* refCon) {
  if (object != kAudioObjectSystemObject) {
    return kAudioHardwareBadObjectError;
  }
  if (address.mSelector != kAudioHardwarePropertyDevices &&
      address.mSelector != kAudioHardwarePropertyDefaultInputDevice &&
      address.mSelector != kAudioHardwarePropertyDefaultOutputDevice) {
    return kAudioHardwareUnknownPropertyError;
  }
  const std::lock_guard lock(mMutex);
  mListeners.push_back({address.mSelector, proc, refCon});
  return 0;
}

OSStatus AudioDeviceTable::removeListener(AudioObjectID object,
                                          const AudioObjectPropertyAddress& address,
                                          AudioObjectPropertyListenerProc proc, void* refCon) {
  if (object != kAudioObjectSystemObject) {
    return kAudioHardwareBadObjectError;
  }
  const std::lock_guard lock(mMutex);
  const auto it =
      std::find(mListeners.begin(), mListeners.end(), Listener{address.mSelector, proc, refCon});
  if (it == mListeners.end()) {
    return kAudioHardwareIllegalOperationError;
  }
  mListeners.erase(it);
  return 0;
}

void AudioDeviceTable::notifyOfChange(const Defaults& before, bool listChanged) {
  if (listChanged) {
    notify(kAudioHardwarePropertyDevices);
  }
  const Defaults after = defaults();
  if (after.input != before.input) {
    notify(kAudioHardwarePropertyDefaultInputDevice);
  }
  if (after.output != before.output) {
    notify(kAudioHardwarePropertyDefaultOutputDevice);
  }
}

void AudioDeviceTable::notify(AudioObjectPropertySelector selector) {
  // Who listens from now on looks for itself at what is there.
  if (std::none_of(mListeners.begin(), mListeners.end(), [selector](const Listener& listener) {
        return listener.selector == selector;
      })) {
    return;
  }
  host::current().mainQueue().async([weak = std::weak_ptr(mSelf), selector] {
    const auto self = weak.lock();
    if (self == nullptr) {
      return;
    }
    AudioDeviceTable& table = **self;
    std::vector<Listener> listeners;
    {
      const std::lock_guard lock(table.mMutex);
      std::copy_if(table.mListeners.begin(), table.mListeners.end(), std::back_inserter(listeners),
                   [selector](const Listener& listener) { return listener.selector == selector; });
    }
    for (const Listener& listener : listeners) {
      {
        // One before it may have removed it.
        const std::lock_guard lock(table.mMutex);
        if (std::find(table.mListeners.begin(), table.mListeners.end(), listener) ==
            table.mListeners.end()) {
          continue;
        }
      }
      listener.proc(kAudioObjectSystemObject, {selector}, listener.refCon);
    }
  });
}

// --- the way to the back ends ---

AudioOutside* AudioDeviceTable::outsideOf(AudioObjectID device) const noexcept {
  const std::size_t index = device - kFirstDevice;
  return device >= kFirstDevice && index < kDevices
             ? mOutsideOf[index].load(std::memory_order_acquire)
             : nullptr;
}

OSStatus AudioDeviceTable::translateTime(AudioObjectID device, const AudioTimeStamp& in,
                                         AudioTimeStamp& out) const noexcept {
  AudioOutside* outside = outsideOf(device);
  return outside == nullptr ? kAudioHardwareBadDeviceError
                            : outside->translateTime(device, in, out);
}

std::unique_ptr<AudioDeviceStream> AudioDeviceTable::open(AudioObjectID device,
                                                          const AudioStreamRequest& request) {
  AudioOutside* outside = outsideOf(device);
  return outside == nullptr ? nullptr : outside->open(device, request);
}

void AudioDeviceTable::requestBufferFrames(AudioObjectID device, std::uint32_t frames) {
  if (AudioOutside* outside = outsideOf(device); outside != nullptr) {
    outside->requestBufferFrames(device, frames);
  }
}

std::string AudioDeviceTable::serverDescription() {
  for (const auto& outside : mOutsides) {
    std::string description = outside->description();
    if (!description.empty()) {
      return description;
    }
  }
  return "in process";
}

}  // namespace velor::audio
