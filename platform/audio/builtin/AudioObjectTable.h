// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/audio/AudioOutside.h"
#include "platform/audio/AudioService.h"
#include "platform/audio/builtin/AudioDeviceTable.h"
#include "platform/audio/builtin/AudioGraph.h"
#include "platform/audio/builtin/AudioUnitTable.h"

namespace velor::audio {

/// The audio service of the process: devices of any number of back ends, units and
/// graphs. What lies outside is the back ends'; units and graphs are the same for
/// all. Ends before the host that was in force at its making.
class AudioObjectTable final : public AudioService {
 public:
  /// In order of preference: the first that has a device fit to be the default
  /// one gives it.
  explicit AudioObjectTable(std::vector<std::unique_ptr<AudioOutside>> outsides);
  /// Stops and disposes of everything.
  ~AudioObjectTable() override;

  OSStatus AudioObjectGetPropertyData(AudioObjectID object,
                                      const AudioObjectPropertyAddress& address,
                                      std::uint32_t* value, const std::string& uid) override;
  OSStatus AudioObjectGetPropertyData(AudioObjectID object,
                                      const AudioObjectPropertyAddress& address,
                                      double* value) override;
  OSStatus AudioObjectGetPropertyData(AudioObjectID object,
                                      const AudioObjectPropertyAddress& address,
                                      std::string* value) override;
  OSStatus AudioObjectGetPropertyData(AudioObjectID object,
                                      const AudioObjectPropertyAddress& address,
                                      std::vector<std::uint32_t>* value) override;
  OSStatus AudioObjectAddPropertyListener(AudioObjectID object,
                                          const AudioObjectPropertyAddress& address,
                                          AudioObjectPropertyListenerProc proc,
                                          void* refCon) override;
  OSStatus AudioObjectRemovePropertyListener(AudioObjectID object,
                                             const AudioObjectPropertyAddress& address,
                                             AudioObjectPropertyListenerProc proc,
                                             void* refCon) override;
  OSStatus AudioDeviceTranslateTime(AudioObjectID device, const AudioTimeStamp& in,
                                    AudioTimeStamp& out) noexcept override;
  double AudioGetHostClockFrequency() const noexcept override;

  bool AudioComponentFindNext(const AudioComponentDescription& description) override;
  OSStatus AudioComponentInstanceNew(const AudioComponentDescription& description,
                                     AudioUnit* unit) override;
  OSStatus AudioComponentInstanceDispose(AudioUnit unit) override;
  OSStatus AudioUnitSetProperty(AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope,
                                AudioUnitElement element, const void* data,
                                std::uint32_t size) override;
  OSStatus AudioUnitGetProperty(AudioUnit unit, AudioUnitPropertyID property, AudioUnitScope scope,
                                AudioUnitElement element, void* data, std::uint32_t* size) override;
  OSStatus AudioUnitGetPropertyInfo(AudioUnit unit, AudioUnitPropertyID property,
                                    AudioUnitScope scope, AudioUnitElement element,
                                    std::uint32_t* size, bool* writable) override;
  OSStatus AudioUnitAddPropertyListener(AudioUnit unit, AudioUnitPropertyID property,
                                        AudioUnitPropertyListenerProc proc, void* refCon) override;
  OSStatus AudioUnitRemovePropertyListenerWithUserData(AudioUnit unit, AudioUnitPropertyID property,
                                                       AudioUnitPropertyListenerProc proc,
                                                       void* refCon) override;
  OSStatus AUParameterSet(AudioUnit unit, AudioUnitParameterID parameter, AudioUnitScope scope,
                          AudioUnitElement element, float value, std::uint32_t offset) override;
  OSStatus AudioUnitInitialize(AudioUnit unit) override;
  OSStatus AudioUnitReset(AudioUnit unit, AudioUnitScope scope, AudioUnitElement element) override;
  OSStatus AudioOutputUnitStart(AudioUnit unit) override;
  OSStatus AudioOutputUnitStop(AudioUnit unit) override;
  OSStatus AudioUnitRender(const host::RealtimeContext& realtime, AudioUnit unit,
                           AudioUnitRenderActionFlags& flags, const AudioTimeStamp& timeStamp,
                           std::uint32_t bus, std::uint32_t frames,
                           AudioBufferList* data) noexcept override;

  OSStatus NewAUGraph(AUGraph* graph) override;
  OSStatus DisposeAUGraph(AUGraph graph) override;
  OSStatus AUGraphAddNode(AUGraph graph, const AudioComponentDescription& description,
                          AUNode* node) override;
  OSStatus AUGraphOpen(AUGraph graph) override;
  OSStatus AUGraphNodeInfo(AUGraph graph, AUNode node, AudioUnit* unit) override;
  OSStatus AUGraphConnectNodeInput(AUGraph graph, AUNode source, std::uint32_t output,
                                   AUNode destination, std::uint32_t input) override;
  OSStatus AUGraphInitialize(AUGraph graph) override;
  OSStatus AUGraphStart(AUGraph graph) override;
  OSStatus AUGraphStop(AUGraph graph) override;

  std::string serverDescription() override;

 private:
  // With the control of the units held. A status if there is no such thing.
  template <class Operation>
  OSStatus onUnit(AudioUnit unit, Operation&& operation);
  template <class Operation>
  OSStatus onGraph(AUGraph graph, Operation&& operation);

  AudioUnitTable mUnits;  // before the devices, which tell it of their changes
  AudioDeviceTable mDevices;
  std::map<AUGraph, AudioGraph> mGraphs;
  AUGraph mNextGraph = 1;
};

}  // namespace velor::audio
