// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "platform/audio/AudioTypes.h"

namespace velor {

class KAAUGraph;

/// An audio unit, here one of a graph, which owns it. Properties, scopes and
/// elements are those of the service. Any thread but a real-time callback.
class KAAudioUnit {
 public:
  KAAudioUnit(audio::AUNode node, const KAAUGraph& inGraph);
  virtual ~KAAudioUnit() = default;
  KAAudioUnit(const KAAudioUnit&) = delete;
  KAAudioUnit& operator=(const KAAudioUnit&) = delete;

  audio::AudioUnit au() const noexcept { return mUnit; }

  void setProperty(audio::AudioUnitPropertyID property, audio::AudioUnitScope scope,
                   audio::AudioUnitElement element, const void* data, std::uint32_t size);
  /// `size`: the room at `data` on entry, what was written on return; bytes.
  void getProperty(audio::AudioUnitPropertyID property, audio::AudioUnitScope scope,
                   audio::AudioUnitElement element, void* data, std::uint32_t& size) const;
  void getPropertyInfo(audio::AudioUnitPropertyID property, audio::AudioUnitScope scope,
                       audio::AudioUnitElement element, std::uint32_t& size, bool& writeable) const;
  /// Global scope, element 0.
  void setPropertyGlobal(audio::AudioUnitPropertyID property, const void* data, std::uint32_t size);
  double getPropertyFloat64(audio::AudioUnitPropertyID property, audio::AudioUnitScope scope,
                            audio::AudioUnitElement element) const;
  std::uint32_t getPropertyUInt32(audio::AudioUnitPropertyID property, audio::AudioUnitScope scope,
                                  audio::AudioUnitElement element) const;

  /// `offset`: frames.
  void setParameter(audio::AudioUnitParameterID parameter, audio::AudioUnitScope scope,
                    audio::AudioUnitElement element, float value, std::uint32_t offset);
  /// What fills the unit's input; called on a real-time thread while it runs.
  void setInputRenderCallback(audio::AURenderCallback callback, void* refCon,
                              audio::AudioUnitElement bus);

  audio::AudioStreamBasicDescription getStreamDescription(audio::AudioUnitScope scope,
                                                          audio::AudioUnitElement element) const;
  void setStreamDescription(const audio::AudioStreamBasicDescription& description,
                            audio::AudioUnitScope scope, audio::AudioUnitElement element);

  /// Called on any thread but a real-time one.
  void addPropertyListener(audio::AudioUnitPropertyID property,
                           audio::AudioUnitPropertyListenerProc listenerProc, void* userData);
  /// It does not run any more when this returns, unless it is what calls.
  void removePropertyListener(audio::AudioUnitPropertyID property,
                              audio::AudioUnitPropertyListenerProc listenerProc, void* userData);

  void initialize();
  /// Forgets the signal.
  void reset();

 protected:
  explicit KAAudioUnit(audio::AudioUnit unit) noexcept : mUnit(unit) {}

 private:
  const audio::AudioUnit mUnit;
};

}  // namespace velor
