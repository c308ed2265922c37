// SPDX-License-Identifier: MIT
#include "platform/audio/AudioService.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "platform/host/Log.h"

namespace velor::audio {
namespace {

constexpr AudioObjectID kFirstDevice = kAudioObjectUnknown + 1;

AudioService* gService = nullptr;

AudioObjectID idOf(std::size_t index) {
  return kFirstDevice + static_cast<AudioObjectID>(index);
}

}  // namespace

AudioService::AudioService(std::vector<std::unique_ptr<AudioOutside>> outsides)
    : mOutsides(std::move(outsides)) {
  for (const auto& outside : mOutsides) {
    outside->start(*this);
  }
}

AudioService::~AudioService() {
  for (const auto& outside : mOutsides) {
    outside->stop();
  }
}

// --- what the back ends announce ---

AudioObjectID AudioService::deviceAppeared(AudioOutside& from,
                                           const AudioDeviceDescription& device) {
  const auto outside = static_cast<std::size_t>(
      std::find_if(mOutsides.begin(), mOutsides.end(),
                   [&from](const auto& candidate) { return candidate.get() == &from; }) -
      mOutsides.begin());
  const std::lock_guard lock(mMutex);
  const Defaults before = defaults();
  auto known = std::find_if(mDevices.begin(), mDevices.end(), [&](const Device& candidate) {
    return candidate.outside == outside && candidate.description.uid == device.uid;
  });
  if (known == mDevices.end()) {
    if (mDevices.size() == kDevices) {
      VELOR_LOG_WARNING("audio: %u devices have been seen, %s is one too many", kDevices,
                        device.name.c_str());
      return kAudioObjectUnknown;
    }
    known = mDevices.insert(mDevices.end(), {outside, false, device});
  }
  const auto index = static_cast<std::size_t>(known - mDevices.begin());
  mOutsideOf[index].store(&from, std::memory_order_release);
  const AudioDeviceDescription old = std::exchange(known->description, device);
  AudioDeviceChange change;
  change.device = idOf(index);
  change.presence = !std::exchange(known->present, true);
  change.sampleRate = old.sampleRate != device.sampleRate;
  change.channels =
      old.input.streams != device.input.streams || old.output.streams != device.output.streams;
  announce(change, before);
  return change.device;
}

void AudioService::deviceVanished(AudioObjectID id) {
  const std::lock_guard lock(mMutex);
  const Device* device = find(id);
  if (device == nullptr || !device->present) {
    return;
  }
  const Defaults before = defaults();
  mDevices[id - kFirstDevice].present = false;
  announce({.device = id, .presence = true}, before);
}

void AudioService::announce(AudioDeviceChange change, const Defaults& before) {
  const Defaults after = defaults();
  change.defaultInput = after.input != before.input;
  change.defaultOutput = after.output != before.output;
  callListeners([change](AudioDeviceListener& listener) { listener.deviceChanged(change); });
}

void AudioService::serverChanged() {
  const std::lock_guard lock(mMutex);
  callListeners([](AudioDeviceListener& listener) { listener.serverChanged(); });
}

void AudioService::callListeners(std::function<void(AudioDeviceListener&)> call) {
  // Later listeners look at the devices themselves.
  mQueue.async([this, call = std::move(call), listeners = mListeners] {
    for (AudioDeviceListener* listener : listeners) {
      {
        // One before it may have removed it.
        const std::lock_guard lock(mMutex);
        if (std::find(mListeners.begin(), mListeners.end(), listener) == mListeners.end()) {
          continue;
        }
      }
      call(*listener);
    }
  });
}

void AudioService::addListener(AudioDeviceListener& listener) {
  const std::lock_guard lock(mMutex);
  mListeners.push_back(&listener);
}

void AudioService::removeListener(AudioDeviceListener& listener) {
  {
    const std::lock_guard lock(mMutex);
    std::erase(mListeners, &listener);
  }
  if (!mQueue.isCurrent()) {
    mQueue.sync([] {});
  }
}

// --- lists ---

const AudioService::Device* AudioService::find(AudioObjectID device) const {
  const std::size_t index = device - kFirstDevice;  // wraps below, and is out of range then
  return index < mDevices.size() ? &mDevices[index] : nullptr;
}

template <class Predicate>
AudioObjectID AudioService::preferred(Predicate&& isWanted) const {
  const Device* best = nullptr;
  for (const Device& device : mDevices) {
    if (device.present && isWanted(device.description) &&
        (best == nullptr || device.outside < best->outside)) {
      best = &device;
    }
  }
  return best == nullptr ? kAudioObjectUnknown
                         : idOf(static_cast<std::size_t>(best - mDevices.data()));
}

AudioObjectID AudioService::defaultOf(AudioDirection direction) const {
  return preferred([direction](const AudioDeviceDescription& device) {
    return device.side(direction).isDefault && device.channels(direction) != 0;
  });
}

AudioService::Defaults AudioService::defaults() const {
  return {defaultOf(AudioDirection::input), defaultOf(AudioDirection::output)};
}

std::vector<AudioObjectID> AudioService::devices() const {
  const std::lock_guard lock(mMutex);
  std::vector<AudioObjectID> ids;
  for (std::size_t i = 0; i < mDevices.size(); ++i) {
    if (mDevices[i].present) {
      ids.push_back(idOf(i));
    }
  }
  const Defaults first = defaults();
  std::stable_partition(ids.begin(), ids.end(), [&first](AudioObjectID id) {
    return id == first.output || id == first.input;
  });
  return ids;
}

AudioObjectID AudioService::defaultDevice(AudioDirection direction) const {
  const std::lock_guard lock(mMutex);
  return defaultOf(direction);
}

AudioObjectID AudioService::deviceForUID(const std::string& uid) const {
  const std::lock_guard lock(mMutex);
  return preferred([&uid](const AudioDeviceDescription& device) { return device.uid == uid; });
}

bool AudioService::isPresent(AudioObjectID device) const {
  const std::lock_guard lock(mMutex);
  const Device* found = find(device);
  return found != nullptr && found->present;
}

std::optional<AudioDeviceDescription> AudioService::description(AudioObjectID device) const {
  const std::lock_guard lock(mMutex);
  const Device* found = find(device);
  return found == nullptr ? std::nullopt : std::optional(found->description);
}

// --- the way to the back ends, without the lock ---

AudioOutside* AudioService::outsideOf(AudioObjectID device) const noexcept {
  const std::size_t index = device - kFirstDevice;
  return index < kDevices ? mOutsideOf[index].load(std::memory_order_acquire) : nullptr;
}

std::unique_ptr<AudioDeviceStream> AudioService::open(AudioObjectID device,
                                                      const AudioStreamRequest& request) {
  AudioOutside* outside = outsideOf(device);
  return outside == nullptr ? nullptr : outside->open(device, request);
}

void AudioService::requestBufferFrames(AudioObjectID device, std::uint32_t frames) {
  if (AudioOutside* outside = outsideOf(device); outside != nullptr) {
    outside->requestBufferFrames(device, frames);
  }
}

OSStatus AudioService::AudioDeviceTranslateTime(AudioObjectID device, const AudioTimeStamp& in,
                                                AudioTimeStamp& out) const noexcept {
  AudioOutside* outside = outsideOf(device);
  return outside == nullptr ? kAudioHardwareBadDeviceError
                            : outside->translateTime(device, in, out);
}

double AudioService::AudioGetHostClockFrequency() const noexcept {
  host::MachTimebaseInfo timebase;
  constexpr double kNsPerSecond = 1e9;
  return host::current().mach_timebase_info(timebase) == 0
             ? kNsPerSecond * timebase.denom / timebase.numer
             : 0;
}

std::string AudioService::serverDescription() const {
  for (const auto& outside : mOutsides) {
    std::string description = outside->description();
    if (!description.empty()) {
      return description;
    }
  }
  return "internal";
}

AudioServerStatus AudioService::serverStatus() const {
  for (const auto& outside : mOutsides) {
    if (const auto status = outside->serverStatus()) {
      return *status;
    }
  }
  return {};
}

AudioService& service() noexcept {
  return *gService;
}
void setService(AudioService* service) noexcept {
  gService = service;
}

}  // namespace velor::audio
