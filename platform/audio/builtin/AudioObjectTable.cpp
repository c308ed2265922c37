// SPDX-License-Identifier: MIT
#include "platform/audio/builtin/AudioObjectTable.h"

#include <algorithm>
#include <mutex>
#include <utility>

#include "platform/host/Host.h"

namespace velor::audio {

AudioObjectTable::AudioObjectTable(std::vector<std::unique_ptr<AudioOutside>> outsides)
    : mDevices(std::move(outsides), [this](AudioObjectID device, const AudioDeviceChange& change) {
        mUnits.deviceChanged(device, change);
      }) {}

AudioObjectTable::~AudioObjectTable() {
  const std::lock_guard lock(mUnits.control());
  mGraphs.clear();
  mUnits.disposeAll();
}

template <class Operation>
OSStatus AudioObjectTable::onUnit(AudioUnit unit, Operation&& operation) {
  const std::lock_guard lock(mUnits.control());
  RenderUnit* found = mUnits.find(unit);
  return found == nullptr ? kAudioHardwareBadObjectError : operation(*found);
}

template <class Operation>
OSStatus AudioObjectTable::onGraph(AUGraph graph, Operation&& operation) {
  const std::lock_guard lock(mUnits.control());
  const auto it = mGraphs.find(graph);
  return it == mGraphs.end() ? kAudioHardwareBadObjectError : operation(it->second);
}

// --- objects ---

OSStatus AudioObjectTable::AudioObjectGetPropertyData(AudioObjectID object,
                                                      const AudioObjectPropertyAddress& address,
                                                      std::uint32_t* value,
                                                      const std::string& uid) {
  return mDevices.getNumber(object, address, uid, value);
}
OSStatus AudioObjectTable::AudioObjectGetPropertyData(AudioObjectID object,
                                                      const AudioObjectPropertyAddress& address,
                                                      double* value) {
  return mDevices.getRate(object, address, value);
}
OSStatus AudioObjectTable::AudioObjectGetPropertyData(AudioObjectID object,
                                                      const AudioObjectPropertyAddress& address,
                                                      std::string* value) {
  return mDevices.getText(object, address, value);
}
OSStatus AudioObjectTable::AudioObjectGetPropertyData(AudioObjectID object,
                                                      const AudioObjectPropertyAddress& address,
                                                      std::vector<std::uint32_t>* value) {
  return mDevices.getList(object, address, value);
}
OSStatus AudioObjectTable::AudioObjectAddPropertyListener(AudioObjectID object,
                                                          const AudioObjectPropertyAddress& address,
                                                          AudioObjectPropertyListenerProc proc,
                                                          void* refCon) {
  return mDevices.addListener(object, address, proc, refCon);
}
OSStatus AudioObjectTable::AudioObjectRemovePropertyListener(
    AudioObjectID object, const AudioObjectPropertyAddress& address,
    AudioObjectPropertyListenerProc proc, void* refCon) {
  return mDevices.removeListener(object, address, proc, refCon);
}

OSStatus AudioObjectTable::AudioDeviceTranslateTime(AudioObjectID device, const AudioTimeStamp& in,
                                                    AudioTimeStamp& out) noexcept {
  return mDevices.translateTime(device, in, out);
}

double AudioObjectTable::AudioGetHostClockFrequency() const noexcept {
  host::MachTimebaseInfo timebase;
  constexpr double kNsPerSecond = 1e9;
  return host::current().mach_timebase_info(timebase) == 0
             ? kNsPerSecond * timebase.denom / timebase.numer
             : 0;
}

std::string AudioObjectTable::serverDescription() {
  return mDevices.serverDescription();
}

// --- units ---

bool AudioObjectTable::AudioComponentFindNext(const AudioComponentDescription& description) {
  return AudioUnitTable::hasComponent(description);
}

OSStatus AudioObjectTable::AudioComponentInstanceNew(const AudioComponentDescription& description,
                                                     AudioUnit* unit) {
  const std::lock_guard lock(mUnits.control());
  *unit = mUnits.make(description, mDevices);
  return *unit == 0 ? kAudioHardwareUnspecifiedError : 0;
}

OSStatus AudioObjectTable::AudioComponentInstanceDispose(AudioUnit unit) {
  const OSStatus status = onUnit(unit, [this, unit](RenderUnit&) {
    if (std::any_of(mGraphs.begin(), mGraphs.end(),
                    [unit](const auto& entry) { return entry.second.contains(unit); })) {
      return kAudioUnitErr_CannotDoInCurrentContext;
    }
    mUnits.dispose(unit);
    return OSStatus{0};
  });
  mUnits.waitForListeners();
  return status;
}

OSStatus AudioObjectTable::AudioUnitSetProperty(AudioUnit unit, AudioUnitPropertyID property,
                                                AudioUnitScope scope, AudioUnitElement element,
                                                const void* data, std::uint32_t size) {
  const std::lock_guard lock(mUnits.control());
  return mUnits.setProperty(unit, {property, scope, element}, data, size);
}

OSStatus AudioObjectTable::AudioUnitGetProperty(AudioUnit unit, AudioUnitPropertyID property,
                                                AudioUnitScope scope, AudioUnitElement element,
                                                void* data, std::uint32_t* size) {
  return onUnit(unit, [&](RenderUnit& found) {
    std::vector<std::byte> value;
    const OSStatus status = found.getProperty({property, scope, element}, value);
    if (status == 0) {
      *size = std::min(*size, static_cast<std::uint32_t>(value.size()));
      std::copy_n(value.data(), *size, static_cast<std::byte*>(data));
    }
    return status;
  });
}

OSStatus AudioObjectTable::AudioUnitGetPropertyInfo(AudioUnit unit, AudioUnitPropertyID property,
                                                    AudioUnitScope scope, AudioUnitElement element,
                                                    std::uint32_t* size, bool* writable) {
  return onUnit(unit, [&](RenderUnit& found) {
    std::vector<std::byte> value;
    const OSStatus status = found.getProperty({property, scope, element}, value);
    if (status == 0) {
      *size = static_cast<std::uint32_t>(value.size());
      *writable = found.isWritable({property, scope, element});
    }
    return status;
  });
}

OSStatus AudioObjectTable::AudioUnitAddPropertyListener(AudioUnit unit,
                                                        AudioUnitPropertyID property,
                                                        AudioUnitPropertyListenerProc proc,
                                                        void* refCon) {
  return mUnits.addListener(unit, property, proc, refCon);
}
OSStatus AudioObjectTable::AudioUnitRemovePropertyListenerWithUserData(
    AudioUnit unit, AudioUnitPropertyID property, AudioUnitPropertyListenerProc proc,
    void* refCon) {
  return mUnits.removeListener(unit, property, proc, refCon);
}

OSStatus AudioObjectTable::AUParameterSet(AudioUnit unit, AudioUnitParameterID parameter,
                                          AudioUnitScope scope, AudioUnitElement element,
                                          float value, std::uint32_t) {
  return onUnit(unit, [&](RenderUnit& found) {
    if (scope != kAudioUnitScope_Global) {
      return kAudioUnitErr_InvalidScope;
    }
    return element != 0 ? kAudioUnitErr_InvalidElement : found.setParameter(parameter, value);
  });
}

OSStatus AudioObjectTable::AudioUnitInitialize(AudioUnit unit) {
  return onUnit(unit, [](RenderUnit& found) { return found.initialize(); });
}

OSStatus AudioObjectTable::AudioUnitReset(AudioUnit unit, AudioUnitScope, AudioUnitElement) {
  return onUnit(unit, [](RenderUnit& found) {
    found.reset();
    return OSStatus{0};
  });
}

OSStatus AudioObjectTable::AudioOutputUnitStart(AudioUnit unit) {
  const std::lock_guard lock(mUnits.control());
  return mUnits.start(unit);
}
OSStatus AudioObjectTable::AudioOutputUnitStop(AudioUnit unit) {
  const std::lock_guard lock(mUnits.control());
  return mUnits.stop(unit);
}

OSStatus AudioObjectTable::AudioUnitRender(const host::RealtimeContext& realtime, AudioUnit unit,
                                           AudioUnitRenderActionFlags& flags,
                                           const AudioTimeStamp& timeStamp, std::uint32_t bus,
                                           std::uint32_t frames, AudioBufferList* data) noexcept {
  RenderUnit* found = mUnits.findForRender(unit);
  return found == nullptr ? kAudioHardwareBadObjectError
                          : found->renderChecked(realtime, flags, timeStamp, bus, frames, data);
}

// --- graphs ---

OSStatus AudioObjectTable::NewAUGraph(AUGraph* graph) {
  const std::lock_guard lock(mUnits.control());
  *graph = mNextGraph++;
  mGraphs.try_emplace(*graph, mUnits, mDevices);
  return 0;
}

OSStatus AudioObjectTable::DisposeAUGraph(AUGraph graph) {
  const OSStatus status = onGraph(graph, [this, graph](AudioGraph&) {
    mGraphs.erase(graph);
    return OSStatus{0};
  });
  mUnits.waitForListeners();
  return status;
}

OSStatus AudioObjectTable::AUGraphAddNode(AUGraph graph,
                                          const AudioComponentDescription& description,
                                          AUNode* node) {
  return onGraph(graph, [&](AudioGraph& found) { return found.addNode(description, node); });
}
OSStatus AudioObjectTable::AUGraphOpen(AUGraph graph) {
  return onGraph(graph, [](AudioGraph& found) { return found.open(); });
}
OSStatus AudioObjectTable::AUGraphNodeInfo(AUGraph graph, AUNode node, AudioUnit* unit) {
  return onGraph(graph, [&](AudioGraph& found) { return found.nodeInfo(node, unit); });
}
OSStatus AudioObjectTable::AUGraphConnectNodeInput(AUGraph graph, AUNode source,
                                                   std::uint32_t output, AUNode destination,
                                                   std::uint32_t input) {
  return onGraph(
      graph, [&](AudioGraph& found) { return found.connect(source, output, destination, input); });
}
OSStatus AudioObjectTable::AUGraphInitialize(AUGraph graph) {
  return onGraph(graph, [](AudioGraph& found) { return found.initialize(); });
}
OSStatus AudioObjectTable::AUGraphStart(AUGraph graph) {
  return onGraph(graph, [](AudioGraph& found) { return found.start(); });
}
OSStatus AudioObjectTable::AUGraphStop(AUGraph graph) {
  return onGraph(graph, [](AudioGraph& found) { return found.stop(); });
}

}  // namespace velor::audio
