// SPDX-License-Identifier: MIT
#include "platform/audio/builtin/AudioUnitTable.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "platform/audio/builtin/ConverterUnit.h"
#include "platform/audio/builtin/LowPassUnit.h"

namespace velor::audio {
namespace {

struct Component {
  AudioComponentDescription description;
  std::unique_ptr<RenderUnit> (*make)(AudioDeviceTable& devices);
};

constexpr Component kComponents[] = {
    {kHALOutputComponent,
     [](AudioDeviceTable& devices) -> std::unique_ptr<RenderUnit> {
       return std::make_unique<HALOutputUnit>(devices);
     }},
    {kLowPassComponent,
     [](AudioDeviceTable&) -> std::unique_ptr<RenderUnit> {
       return std::make_unique<LowPassUnit>();
     }},
    {kConverterComponent,
     [](AudioDeviceTable&) -> std::unique_ptr<RenderUnit> {
       return std::make_unique<ConverterUnit>();
     }},
};

const Component* findComponent(const AudioComponentDescription& description) {
  const auto* it = std::find_if(
      std::begin(kComponents), std::end(kComponents),
      [&description](const Component& component) { return component.description == description; });
  return it == std::end(kComponents) ? nullptr : it;
}

// A number holds the unit's place, from 1 up, and how many were made before it:
// a number of one that is gone is not soon another's.
constexpr unsigned kPlaceBits = 10;
static_assert(AudioUnitTable::kUnits < 1U << kPlaceBits);

constexpr std::uint32_t placeOf(AudioUnit unit) {
  return (unit & ((1U << kPlaceBits) - 1)) - 1;
}

}  // namespace

bool AudioUnitTable::hasComponent(const AudioComponentDescription& description) {
  return findComponent(description) != nullptr;
}

AudioUnit AudioUnitTable::make(const AudioComponentDescription& description,
                               AudioDeviceTable& devices) {
  const Component* component = findComponent(description);
  const auto place = std::find_if(mPlaces.begin(), mPlaces.end(),
                                  [](const Place& candidate) { return candidate.unit == nullptr; });
  if (component == nullptr || place == mPlaces.end()) {
    return 0;
  }
  auto unit = component->make(devices);
  const AudioUnit number =
      mMade++ << kPlaceBits | static_cast<AudioUnit>(place - mPlaces.begin() + 1);
  place->unit = unit.get();
  place->number.store(number, std::memory_order_release);
  mUnits[number] = std::move(unit);
  return number;
}

void AudioUnitTable::dispose(AudioUnit unit) {
  const auto it = mUnits.find(unit);
  if (it == mUnits.end()) {
    return;
  }
  {
    const std::lock_guard lock(mListenerMutex);
    std::erase_if(mListeners, [unit](const Listener& listener) { return listener.unit == unit; });
  }
  if (HALOutputUnit* output = findOutput(unit); output != nullptr) {
    output->stop();  // its last cycle may still look for it
  }
  Place& place = mPlaces[placeOf(unit)];
  place.number.store(0, std::memory_order_release);
  place.unit = nullptr;
  mUnits.erase(it);
}

void AudioUnitTable::disposeAll() {
  for (const auto& [number, unit] : mUnits) {
    stop(number);  // they may hang together
  }
  while (!mUnits.empty()) {
    dispose(mUnits.begin()->first);
  }
}

RenderUnit* AudioUnitTable::find(AudioUnit unit) {
  const auto it = mUnits.find(unit);
  return it == mUnits.end() ? nullptr : it->second.get();
}

HALOutputUnit* AudioUnitTable::findOutput(AudioUnit unit) {
  return dynamic_cast<HALOutputUnit*>(find(unit));
}

RenderUnit* AudioUnitTable::findForRender(AudioUnit unit) const noexcept {
  const std::uint32_t index = placeOf(unit);
  return index < kUnits && mPlaces[index].number.load(std::memory_order_acquire) == unit
             ? mPlaces[index].unit
             : nullptr;
}

OSStatus AudioUnitTable::setProperty(AudioUnit unit, const UnitPropertyAddress& address,
                                     const void* data, std::uint32_t size) {
  RenderUnit* found = find(unit);
  if (found == nullptr) {
    return kAudioHardwareBadObjectError;
  }
  const HALOutputUnit* output = findOutput(unit);
  const AudioObjectID before = output == nullptr ? kAudioObjectUnknown : output->device();
  const OSStatus status = found->setProperty(address, data, size);
  if (output != nullptr && output->device() != before) {
    notify(unit, kAudioOutputUnitProperty_CurrentDevice);
  }
  return status;
}

OSStatus AudioUnitTable::start(AudioUnit unit) {
  HALOutputUnit* output = findOutput(unit);
  if (output == nullptr) {
    return kAudioHardwareBadObjectError;
  }
  const bool wasRunning = output->isRunning();
  const OSStatus status = output->start();
  if (output->isRunning() != wasRunning) {
    notify(unit, kAudioOutputUnitProperty_IsRunning);
  }
  return status;
}

OSStatus AudioUnitTable::stop(AudioUnit unit) {
  HALOutputUnit* output = findOutput(unit);
  if (output == nullptr) {
    return kAudioHardwareBadObjectError;
  }
  if (output->isRunning()) {
    output->stop();
    notify(unit, kAudioOutputUnitProperty_IsRunning);
  }
  return 0;
}

void AudioUnitTable::deviceChanged(AudioObjectID device, const AudioDeviceChange& change) {
  mNotifications.async([this, device, change] {
    std::vector<AudioUnit> concerned;
    {
      const std::lock_guard lock(mControl);
      for (const auto& [number, unit] : mUnits) {
        HALOutputUnit* output = findOutput(number);
        if (output != nullptr && output->device() == device) {
          output->deviceChanged();
          concerned.push_back(number);
        }
      }
    }
    for (const AudioUnit unit : concerned) {
      if (change.sampleRate) {
        callListeners(unit, kAudioDevicePropertyNominalSampleRate);
      }
      // With other channels it is another device for all that its users know.
      if (change.presence || change.channels) {
        callListeners(unit, kAudioOutputUnitProperty_CurrentDevice);
      }
    }
  });
}

// --- listeners ---

OSStatus AudioUnitTable::addListener(AudioUnit unit, AudioUnitPropertyID property,
                                     AudioUnitPropertyListenerProc proc, void* refCon) {
  const std::lock_guard control(mControl);
  if (find(unit) == nullptr) {
    return kAudioHardwareBadObjectError;
  }
  const std::lock_guard lock(mListenerMutex);
  mListeners.push_back({unit, property, proc, refCon});
  return 0;
}

OSStatus AudioUnitTable::removeListener(AudioUnit unit, AudioUnitPropertyID property,
                                        AudioUnitPropertyListenerProc proc, void* refCon) {
  {
    const std::lock_guard lock(mListenerMutex);
    const auto it =
        std::find(mListeners.begin(), mListeners.end(), Listener{unit, property, proc, refCon});
    if (it == mListeners.end()) {
      return kAudioUnitErr_PropertyNotInUse;
    }
    mListeners.erase(it);
  }
  waitForListeners();
  return 0;
}

void AudioUnitTable::waitForListeners() {
  if (!mNotifications.isCurrent()) {
    mNotifications.sync([] {});
  }
}

void AudioUnitTable::notify(AudioUnit unit, AudioUnitPropertyID property) {
  mNotifications.async([this, unit, property] { callListeners(unit, property); });
}

void AudioUnitTable::callListeners(AudioUnit unit, AudioUnitPropertyID property) {
  std::vector<Listener> listeners;
  {
    const std::lock_guard lock(mListenerMutex);
    std::copy_if(mListeners.begin(), mListeners.end(), std::back_inserter(listeners),
                 [unit, property](const Listener& listener) {
                   return listener.unit == unit && listener.property == property;
                 });
  }
  for (const Listener& listener : listeners) {
    {
      // It may have been removed since, and its reference be gone.
      const std::lock_guard lock(mListenerMutex);
      if (std::find(mListeners.begin(), mListeners.end(), listener) == mListeners.end()) {
        continue;
      }
    }
    listener.proc(listener.refCon, unit, property, kAudioUnitScope_Global, 0);
  }
}

}  // namespace velor::audio
