// SPDX-License-Identifier: MIT
#include "kva/KAAudioUnit.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <utility>

#include "kva/KAAUGraph.h"
#include "kva/KACheck.h"
#include "platform/audio/AudioService.h"

namespace velor {

using audio::OSStatus;

std::shared_ptr<KAAudioUnit> KAAudioUnit::initWithNode(KANode node, const KAAUGraph& inGraph) {
  return inGraph.nodeInfo(node);
}

// --- properties ---

void KAAudioUnit::setChecked(const char* method, const Address& address,
                             const KAPropertyValue& value) {
  const std::lock_guard lock(mControl);
  KACheck(method,
          isWriteable(address) ? set(address, value) : audio::kAudioUnitErr_PropertyNotWritable);
}

template <class T>
T KAAudioUnit::getAs(const char* method, KAUnitProperty property, KAUnitScope scope,
                     KAUnitElement element) const {
  const std::lock_guard lock(mControl);
  KAPropertyValue value;
  KACheck(method, get({property, scope, element}, value));
  const T* found = std::get_if<T>(&value);
  KACheck(method, found != nullptr ? 0 : audio::kAudioUnitErr_InvalidPropertyValue);
  return *found;
}

void KAAudioUnit::setProperty(KAUnitProperty property, KAUnitScope scope, KAUnitElement element,
                              const KAPropertyValue& value) {
  setChecked("KAAudioUnit::setProperty", {property, scope, element}, value);
}

KAPropertyValue KAAudioUnit::getProperty(KAUnitProperty property, KAUnitScope scope,
                                         KAUnitElement element) const {
  const std::lock_guard lock(mControl);
  KAPropertyValue value;
  KACheck("KAAudioUnit::getProperty", get({property, scope, element}, value));
  return value;
}

void KAAudioUnit::getPropertyInfo(KAUnitProperty property, KAUnitScope scope, KAUnitElement element,
                                  bool& writeable) const {
  const std::lock_guard lock(mControl);
  KAPropertyValue value;
  KACheck("KAAudioUnit::getPropertyInfo", get({property, scope, element}, value));
  writeable = isWriteable({property, scope, element});
}

void KAAudioUnit::setPropertyGlobal(KAUnitProperty property, const KAPropertyValue& value) {
  setChecked("KAAudioUnit::setPropertyGlobal", {property, KAUnitScope::global, 0}, value);
}

double KAAudioUnit::getPropertyFloat64(KAUnitProperty property, KAUnitScope scope,
                                       KAUnitElement element) const {
  return getAs<double>("KAAudioUnit::getPropertyFloat64", property, scope, element);
}

std::uint32_t KAAudioUnit::getPropertyUInt32(KAUnitProperty property, KAUnitScope scope,
                                             KAUnitElement element) const {
  return getAs<std::uint32_t>("KAAudioUnit::getPropertyUInt32", property, scope, element);
}

audio::AudioStreamBasicDescription KAAudioUnit::getStreamDescription(KAUnitScope scope,
                                                                     KAUnitElement element) const {
  return getAs<audio::AudioStreamBasicDescription>("KAAudioUnit::getStreamDescription",
                                                   KAUnitProperty::streamFormat, scope, element);
}

void KAAudioUnit::setStreamDescription(const audio::AudioStreamBasicDescription& description,
                                       KAUnitScope scope, KAUnitElement element) {
  setChecked("KAAudioUnit::setStreamDescription", {KAUnitProperty::streamFormat, scope, element},
             description);
}

void KAAudioUnit::setInputRenderCallback(audio::AURenderCallback callback, void* refCon,
                                         KAUnitElement bus) {
  setChecked("KAAudioUnit::setInputRenderCallback",
             {KAUnitProperty::renderCallback, KAUnitScope::input, bus},
             audio::AURenderCallbackStruct{callback, refCon});
}

void KAAudioUnit::setParameter(KAUnitParameter parameter, KAUnitScope scope, KAUnitElement element,
                               float value, std::uint32_t /*offset*/) {
  const std::lock_guard lock(mControl);
  KACheck("KAAudioUnit::setParameter", scope == KAUnitScope::global && element == 0
                                           ? applyParameter(parameter, value)
                                           : audio::kAudioUnitErr_InvalidElement);
}

OSStatus KAAudioUnit::applyParameter(KAUnitParameter, float) {
  return audio::kAudioUnitErr_InvalidParameter;
}

void KAAudioUnit::initialize() {
  const std::lock_guard lock(mControl);
  KACheck("KAAudioUnit::initialize", prepare());
  mInitialized = true;
}

OSStatus KAAudioUnit::render(const host::RealtimeContext&, const audio::AudioTimeStamp&,
                             std::uint32_t, std::span<float* const>) noexcept {
  return audio::kAudioUnitErr_NoConnection;
}

// --- listeners ---

void KAAudioUnit::addPropertyListener(KAUnitProperty property, PropertyListener listenerProc,
                                      void* userData) {
  const std::lock_guard lock(mListenerMutex);
  mListeners.push_back({property, listenerProc, userData});
}

void KAAudioUnit::removePropertyListener(KAUnitProperty property, PropertyListener listenerProc,
                                         void* userData) {
  {
    const std::lock_guard lock(mListenerMutex);
    const auto it =
        std::find(mListeners.begin(), mListeners.end(), Listener{property, listenerProc, userData});
    KACheck("KAAudioUnit::removePropertyListener",
            it != mListeners.end() ? 0 : audio::kAudioUnitErr_PropertyNotInUse);
    mListeners.erase(it);
  }
  host::Queue& queue = audio::service().queue();
  if (!queue.isCurrent()) {
    queue.sync([] {});
  }
}

void KAAudioUnit::notify(KAUnitProperty property) {
  std::vector<Listener> listeners;
  {
    const std::lock_guard lock(mListenerMutex);
    listeners = mListeners;
  }
  for (const Listener& listener : listeners) {
    {
      // One before it may have removed it, and its reference be gone.
      const std::lock_guard lock(mListenerMutex);
      if (std::find(mListeners.begin(), mListeners.end(), listener) == mListeners.end()) {
        continue;
      }
    }
    if (listener.property == property) {
      listener.proc(listener.userData, property);
    }
  }
}

// --- formats ---

audio::AudioStreamBasicDescription KAStreamFormat(double sampleRate, std::uint32_t channels) {
  audio::AudioStreamBasicDescription format;
  format.mSampleRate = sampleRate;
  format.mFormatID = audio::kAudioFormatLinearPCM;
  format.mFormatFlags = audio::kAudioFormatFlagIsFloat | audio::kAudioFormatFlagIsPacked |
                        (channels == 1 ? 0 : audio::kAudioFormatFlagIsNonInterleaved);
  format.mBytesPerPacket = sizeof(float);
  format.mFramesPerPacket = 1;
  format.mBytesPerFrame = sizeof(float);
  format.mChannelsPerFrame = channels;
  format.mBitsPerChannel = 8 * sizeof(float);
  return format;
}

bool KAIsStreamFormat(const audio::AudioStreamBasicDescription& format) {
  auto wanted = KAStreamFormat(format.mSampleRate, format.mChannelsPerFrame);
  if (format.mChannelsPerFrame == 1) {
    wanted.mFormatFlags |= format.mFormatFlags & audio::kAudioFormatFlagIsNonInterleaved;
  }
  return std::isfinite(format.mSampleRate) && format.mSampleRate > 0 &&
         format.mChannelsPerFrame >= 1 && format.mChannelsPerFrame <= audio::kMaxChannels &&
         format == wanted;
}

}  // namespace velor
