// SPDX-License-Identifier: MIT
#include "kva/KAAudioUnit.h"

#include "kva/KAAUGraph.h"
#include "kva/KACheck.h"
#include "platform/audio/AudioService.h"

namespace velor {

KAAudioUnit::KAAudioUnit(audio::AUNode node, const KAAUGraph& inGraph)
    : mUnit(inGraph.nodeInfo(node)) {}

void KAAudioUnit::setProperty(audio::AudioUnitPropertyID property, audio::AudioUnitScope scope,
                              audio::AudioUnitElement element, const void* data,
                              std::uint32_t size) {
  KACheck("-[KAAudioUnit setProperty:scope:element:data:size:]",
          audio::service().AudioUnitSetProperty(mUnit, property, scope, element, data, size));
}

void KAAudioUnit::getProperty(audio::AudioUnitPropertyID property, audio::AudioUnitScope scope,
                              audio::AudioUnitElement element, void* data,
                              std::uint32_t& size) const {
  KACheck("-[KAAudioUnit getProperty:scope:element:data:size:]",
          audio::service().AudioUnitGetProperty(mUnit, property, scope, element, data, &size));
}

void KAAudioUnit::getPropertyInfo(audio::AudioUnitPropertyID property, audio::AudioUnitScope scope,
                                  audio::AudioUnitElement element, std::uint32_t& size,
                                  bool& writeable) const {
  KACheck("-[KAAudioUnit getPropertyInfo:scope:element:size:writeable:]",
          audio::service().AudioUnitGetPropertyInfo(mUnit, property, scope, element, &size,
                                                    &writeable));
}

void KAAudioUnit::setPropertyGlobal(audio::AudioUnitPropertyID property, const void* data,
                                    std::uint32_t size) {
  KACheck("-[KAAudioUnit setPropertyGlobal:data:size:]",
          audio::service().AudioUnitSetProperty(mUnit, property, audio::kAudioUnitScope_Global, 0,
                                                data, size));
}

double KAAudioUnit::getPropertyFloat64(audio::AudioUnitPropertyID property,
                                       audio::AudioUnitScope scope,
                                       audio::AudioUnitElement element) const {
  double value = 0;
  std::uint32_t size = sizeof value;
  KACheck("-[KAAudioUnit getPropertyFloat64:scope:element:]",
          audio::service().AudioUnitGetProperty(mUnit, property, scope, element, &value, &size));
  return value;
}

std::uint32_t KAAudioUnit::getPropertyUInt32(audio::AudioUnitPropertyID property,
                                             audio::AudioUnitScope scope,
                                             audio::AudioUnitElement element) const {
  std::uint32_t value = 0;
  std::uint32_t size = sizeof value;
  KACheck("-[KAAudioUnit getPropertyUInt32:scope:element:]",
          audio::service().AudioUnitGetProperty(mUnit, property, scope, element, &value, &size));
  return value;
}

void KAAudioUnit::setParameter(audio::AudioUnitParameterID parameter, audio::AudioUnitScope scope,
                               audio::AudioUnitElement element, float value, std::uint32_t offset) {
  KACheck("-[KAAudioUnit setParameter:scope:element:value:offset:]",
          audio::service().AUParameterSet(mUnit, parameter, scope, element, value, offset));
}

void KAAudioUnit::setInputRenderCallback(audio::AURenderCallback callback, void* refCon,
                                         audio::AudioUnitElement bus) {
  const audio::AURenderCallbackStruct data{callback, refCon};
  KACheck(
      "-[KAAudioUnit setInputRenderCallback:refCon:bus:]",
      audio::service().AudioUnitSetProperty(mUnit, audio::kAudioUnitProperty_SetRenderCallback,
                                            audio::kAudioUnitScope_Input, bus, &data, sizeof data));
}

audio::AudioStreamBasicDescription KAAudioUnit::getStreamDescription(
    audio::AudioUnitScope scope, audio::AudioUnitElement element) const {
  audio::AudioStreamBasicDescription description;
  std::uint32_t size = sizeof description;
  KACheck("-[KAAudioUnit getStreamDescription:scope:element:]",
          audio::service().AudioUnitGetProperty(mUnit, audio::kAudioUnitProperty_StreamFormat,
                                                scope, element, &description, &size));
  return description;
}

void KAAudioUnit::setStreamDescription(const audio::AudioStreamBasicDescription& description,
                                       audio::AudioUnitScope scope,
                                       audio::AudioUnitElement element) {
  KACheck("-[KAAudioUnit setStreamDescription:scope:element:]",
          audio::service().AudioUnitSetProperty(mUnit, audio::kAudioUnitProperty_StreamFormat,
                                                scope, element, &description, sizeof description));
}

void KAAudioUnit::addPropertyListener(audio::AudioUnitPropertyID property,
                                      audio::AudioUnitPropertyListenerProc listenerProc,
                                      void* userData) {
  KACheck("-[KAAudioUnit addPropertyListener:listenerProc:userData:]",
          audio::service().AudioUnitAddPropertyListener(mUnit, property, listenerProc, userData));
}

void KAAudioUnit::removePropertyListener(audio::AudioUnitPropertyID property,
                                         audio::AudioUnitPropertyListenerProc listenerProc,
                                         void* userData) {
  KACheck("-[KAAudioUnit removePropertyListener:listenerProc:userData:]",
          audio::service().AudioUnitRemovePropertyListenerWithUserData(mUnit, property,
                                                                       listenerProc, userData));
}

void KAAudioUnit::initialize() {
  KACheck("-[KAAudioUnit initialize]", audio::service().AudioUnitInitialize(mUnit));
}

void KAAudioUnit::reset() {
  KACheck("-[KAAudioUnit reset]",
          audio::service().AudioUnitReset(mUnit, audio::kAudioUnitScope_Global, 0));
}

}  // namespace velor
