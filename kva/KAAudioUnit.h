// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "platform/audio/AudioRouting.h"
#include "platform/audio/AudioTypes.h"
#include "platform/host/PriorityMutex.h"
#include "platform/host/RecursiveMutex.h"

namespace velor {

class KAAUGraph;

/// Properties of units, and the type of the value of each.
enum class KAUnitProperty : std::uint8_t {
  streamFormat,           ///< AudioStreamBasicDescription
  sampleRate,             ///< double; Hz
  maximumFramesPerSlice,  ///< std::uint32_t
  renderCallback,         ///< AURenderCallbackStruct; of an input
  inputCallback,          ///< AURenderCallbackStruct; gets the channels that came in
  nickName,               ///< std::string; what a server calls the ports, from the start on
  currentDevice,  ///< AudioObjectID; also reported at its loss, return and change of channels
  isRunning,      ///< std::uint32_t, 0 or 1
  channelMap,     ///< AudioChannelMap; of the output's or the input's device
  enableIO,       ///< std::uint32_t, 0 or 1
  startTimestampsAtZero,  ///< std::uint32_t; 1, as it is at first: times count from the start
  latency,                ///< std::uint32_t; samples
  nominalSampleRate,      ///< double; Hz
  bufferFrameSize,        ///< std::uint32_t
};
using KAPropertyValue =
    std::variant<std::uint32_t, double, audio::AudioStreamBasicDescription, audio::AudioChannelMap,
                 std::string, audio::AURenderCallbackStruct>;

enum class KAUnitScope : std::uint8_t { global, input, output };
/// Of an output unit: 0 plays, 1 records. Other units have 0 alone.
using KAUnitElement = std::uint32_t;

enum class KAUnitParameter : std::uint8_t { lowPassCutoff, lowPassResonance };  ///< Hz; Q

/// A kind of unit, for the nodes of a graph.
enum class KAComponent : std::uint8_t { halOutput, lowPass, converter };

/// The place of a unit in a graph, from 1.
using KANode = std::int32_t;

/// A unit of sound: a node of a graph, or one of its own. The object is its own handle.
/// Any thread but a real-time callback.
class KAAudioUnit : public std::enable_shared_from_this<KAAudioUnit> {
 public:
  /// Called on the queue of the audio service, or by whoever changes the property.
  using PropertyListener = void (*)(void* userData, KAUnitProperty property);

  KAAudioUnit() = default;
  virtual ~KAAudioUnit() = default;
  KAAudioUnit(const KAAudioUnit&) = delete;
  KAAudioUnit& operator=(const KAAudioUnit&) = delete;

  /// The node's unit, from the graph's `open` on.
  static std::shared_ptr<KAAudioUnit> initWithNode(KANode node, const KAAUGraph& inGraph);

  void setProperty(KAUnitProperty property, KAUnitScope scope, KAUnitElement element,
                   const KAPropertyValue& value);
  KAPropertyValue getProperty(KAUnitProperty property, KAUnitScope scope,
                              KAUnitElement element) const;
  void getPropertyInfo(KAUnitProperty property, KAUnitScope scope, KAUnitElement element,
                       bool& writeable) const;
  /// Global scope, element 0.
  void setPropertyGlobal(KAUnitProperty property, const KAPropertyValue& value);
  double getPropertyFloat64(KAUnitProperty property, KAUnitScope scope,
                            KAUnitElement element) const;
  std::uint32_t getPropertyUInt32(KAUnitProperty property, KAUnitScope scope,
                                  KAUnitElement element) const;

  /// `offset`: frames into the next cycle; taken as 0.
  void setParameter(KAUnitParameter parameter, KAUnitScope scope, KAUnitElement element,
                    float value, std::uint32_t offset);
  /// Fills the unit's input; called on a real-time thread while it runs.
  void setInputRenderCallback(audio::AURenderCallback callback, void* refCon, KAUnitElement bus);

  audio::AudioStreamBasicDescription getStreamDescription(KAUnitScope scope,
                                                          KAUnitElement element) const;
  void setStreamDescription(const audio::AudioStreamBasicDescription& description,
                            KAUnitScope scope, KAUnitElement element);

  void addPropertyListener(KAUnitProperty property, PropertyListener listenerProc, void* userData);
  /// It does not run any more when this returns, unless it is what calls.
  void removePropertyListener(KAUnitProperty property, PropertyListener listenerProc,
                              void* userData);

  void initialize();
  bool isInitialized() const noexcept { return mInitialized; }
  /// Forgets the signal.
  virtual void reset() {}

  // --- for the units of a graph ---

  /// Takes the signal from `source`, which outlives the cycles of this unit. Not while it runs.
  void connect(KAAudioUnit& source) noexcept { mSource = &source; }
  /// Format of what `render` gives; without channels for a unit that ends a graph.
  virtual audio::AudioStreamBasicDescription outputFormat() const { return {}; }
  /// Fills the channels, each `frames` long. A real-time callback alone.
  virtual audio::OSStatus render(const host::RealtimeContext& realtime,
                                 const audio::AudioTimeStamp& time, std::uint32_t frames,
                                 std::span<float* const> channels) noexcept;

 protected:
  struct Address {
    KAUnitProperty property;
    KAUnitScope scope;
    KAUnitElement element;
  };

  virtual audio::OSStatus set(const Address& address, const KAPropertyValue& value) = 0;
  virtual audio::OSStatus get(const Address& address, KAPropertyValue& value) const = 0;
  virtual bool isWriteable(const Address& address) const = 0;
  virtual audio::OSStatus applyParameter(KAUnitParameter parameter, float value);
  virtual audio::OSStatus prepare() { return 0; }

  KAAudioUnit* source() const noexcept { return mSource; }
  void notify(KAUnitProperty property);

  // Whoever changes the unit, and its device, wait for each other here.
  mutable host::RecursiveMutex mControl;

 private:
  struct Listener {
    KAUnitProperty property;
    PropertyListener proc;
    void* userData;
    bool operator==(const Listener&) const = default;
  };
  template <class T>
  T getAs(const char* method, KAUnitProperty property, KAUnitScope scope,
          KAUnitElement element) const;
  void setChecked(const char* method, const Address& address, const KAPropertyValue& value);

  KAAudioUnit* mSource = nullptr;
  bool mInitialized = false;
  host::PriorityMutex mListenerMutex;
  std::vector<Listener> mListeners;
};

/// The one kind of format that units take: 32-bit float, a buffer for each channel.
audio::AudioStreamBasicDescription KAStreamFormat(double sampleRate, std::uint32_t channels);
/// A single channel may be called non-interleaved, too.
bool KAIsStreamFormat(const audio::AudioStreamBasicDescription& format);

}  // namespace velor
