// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "platform/audio/AudioTypes.h"

namespace velor::audio {

/// An audio service: devices with their properties, units that render, graphs of
/// units, and translation between host time and a device's count of samples.
///
/// Any thread may call any operation, but from a real-time callback only
/// `AudioUnitRender` and `AudioDeviceTranslateTime`. Callbacks of a unit run on a
/// real-time thread of the device; none is running any more when `AudioOutputUnitStop`
/// (or the graph's) returns, so that must not be called from one.
///
/// A device that goes keeps its id, by its UID, for the day of its return. A unit
/// whose device goes is silent; its listeners for the current device are called
/// then and at the return, those for the nominal rate when the rate changes.
class AudioService {
 public:
  AudioService() = default;
  virtual ~AudioService() = default;
  AudioService(const AudioService&) = delete;
  AudioService& operator=(const AudioService&) = delete;

  // --- objects: the value's type is the property's ---

  /// The default devices, the device for a UID (`uid`, 0 when none that is there
  /// has it), latency in samples, frames of a cycle. kAudioHardwareBadObjectError for what is
  /// not there, kAudioHardwareUnknownPropertyError for what it does not have or
  /// has in another type.
  virtual OSStatus AudioObjectGetPropertyData(AudioObjectID object,
                                              const AudioObjectPropertyAddress& address,
                                              std::uint32_t* value,
                                              const std::string& uid = {}) = 0;
  /// The nominal sample rate.
  virtual OSStatus AudioObjectGetPropertyData(AudioObjectID object,
                                              const AudioObjectPropertyAddress& address,
                                              double* value) = 0;
  /// Name and UID.
  virtual OSStatus AudioObjectGetPropertyData(AudioObjectID object,
                                              const AudioObjectPropertyAddress& address,
                                              std::string* value) = 0;
  /// The devices that are there, default ones first; the streams of a scope; the
  /// channel count of each stream.
  virtual OSStatus AudioObjectGetPropertyData(AudioObjectID object,
                                              const AudioObjectPropertyAddress& address,
                                              std::vector<std::uint32_t>* value) = 0;
  /// Of the system object, for the list of devices and the default ones. The same
  /// pair of procedure and reference is removed; on the main thread, it is not
  /// called any more then.
  virtual OSStatus AudioObjectAddPropertyListener(AudioObjectID object,
                                                  const AudioObjectPropertyAddress& address,
                                                  AudioObjectPropertyListenerProc proc,
                                                  void* refCon) = 0;
  virtual OSStatus AudioObjectRemovePropertyListener(AudioObjectID object,
                                                     const AudioObjectPropertyAddress& address,
                                                     AudioObjectPropertyListenerProc proc,
                                                     void* refCon) = 0;

  /// From the host time to the device's sample time, or the other way, whichever
  /// `in` has valid; both are valid in `out`. Fractions of samples are kept.
  /// kAudioHardwareNotRunningError while the device does not count,
  /// kAudioHardwareBadDeviceError when it is not there. Realtime-safe: yes.
  virtual OSStatus AudioDeviceTranslateTime(AudioObjectID device, const AudioTimeStamp& in,
                                            AudioTimeStamp& out) noexcept = 0;
  /// Ticks of the host's clock a second.
  virtual double AudioGetHostClockFrequency() const noexcept = 0;

  // --- units ---

  /// Whether there is such a component.
  virtual bool AudioComponentFindNext(const AudioComponentDescription& description) = 0;
  virtual OSStatus AudioComponentInstanceNew(const AudioComponentDescription& description,
                                             AudioUnit* unit) = 0;
  /// Stops it first. For units of a graph, the graph does this.
  virtual OSStatus AudioComponentInstanceDispose(AudioUnit unit) = 0;
  virtual OSStatus AudioUnitSetProperty(AudioUnit unit, AudioUnitPropertyID property,
                                        AudioUnitScope scope, AudioUnitElement element,
                                        const void* data, std::uint32_t size) = 0;
  /// `size`: the room at `data` on entry, what was written on return.
  virtual OSStatus AudioUnitGetProperty(AudioUnit unit, AudioUnitPropertyID property,
                                        AudioUnitScope scope, AudioUnitElement element, void* data,
                                        std::uint32_t* size) = 0;
  virtual OSStatus AudioUnitGetPropertyInfo(AudioUnit unit, AudioUnitPropertyID property,
                                            AudioUnitScope scope, AudioUnitElement element,
                                            std::uint32_t* size, bool* writable) = 0;
  virtual OSStatus AudioUnitAddPropertyListener(AudioUnit unit, AudioUnitPropertyID property,
                                                AudioUnitPropertyListenerProc proc,
                                                void* refCon) = 0;
  /// The listener is not running any more when this returns, unless it is what calls.
  virtual OSStatus AudioUnitRemovePropertyListenerWithUserData(AudioUnit unit,
                                                               AudioUnitPropertyID property,
                                                               AudioUnitPropertyListenerProc proc,
                                                               void* refCon) = 0;
  /// `offset`: frames into the next cycle; taken as 0.
  virtual OSStatus AUParameterSet(AudioUnit unit, AudioUnitParameterID parameter,
                                  AudioUnitScope scope, AudioUnitElement element, float value,
                                  std::uint32_t offset) = 0;
  virtual OSStatus AudioUnitInitialize(AudioUnit unit) = 0;
  /// Clears what a unit remembers of the signal.
  virtual OSStatus AudioUnitReset(AudioUnit unit, AudioUnitScope scope,
                                  AudioUnitElement element) = 0;
  virtual OSStatus AudioOutputUnitStart(AudioUnit unit) = 0;
  virtual OSStatus AudioOutputUnitStop(AudioUnit unit) = 0;
  /// Renders output, or fetches the input of the cycle that the input callback is
  /// told of (bus 1). A buffer without data is given the unit's own.
  virtual OSStatus AudioUnitRender(const host::RealtimeContext& realtime, AudioUnit unit,
                                   AudioUnitRenderActionFlags& flags,
                                   const AudioTimeStamp& timeStamp, std::uint32_t bus,
                                   std::uint32_t frames, AudioBufferList* data) noexcept = 0;

  // --- graphs: exactly one node is an output unit, which pulls the others ---

  virtual OSStatus NewAUGraph(AUGraph* graph) = 0;
  /// Stops it, and disposes of its units.
  virtual OSStatus DisposeAUGraph(AUGraph graph) = 0;
  virtual OSStatus AUGraphAddNode(AUGraph graph, const AudioComponentDescription& description,
                                  AUNode* node) = 0;
  /// Makes the units.
  virtual OSStatus AUGraphOpen(AUGraph graph) = 0;
  virtual OSStatus AUGraphNodeInfo(AUGraph graph, AUNode node, AudioUnit* unit) = 0;
  virtual OSStatus AUGraphConnectNodeInput(AUGraph graph, AUNode source, std::uint32_t output,
                                           AUNode destination, std::uint32_t input) = 0;
  virtual OSStatus AUGraphInitialize(AUGraph graph) = 0;
  virtual OSStatus AUGraphStart(AUGraph graph) = 0;
  virtual OSStatus AUGraphStop(AUGraph graph) = 0;

  /// In a few words for people, which server carries the audio of the outside now.
  virtual std::string serverDescription() = 0;
};

/// The service in force; the application chooses it once, a test for each case.
AudioService& service() noexcept;
void setService(AudioService* service) noexcept;

}  // namespace velor::audio
