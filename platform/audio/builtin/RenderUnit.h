// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/audio/AudioTypes.h"

namespace velor::audio {

/// Where a property of a unit is found.
struct UnitPropertyAddress {
  AudioUnitPropertyID property = 0;
  AudioUnitScope scope = kAudioUnitScope_Global;
  AudioUnitElement element = 0;
};

/// One unit: numbered properties and parameters, and the signal that it renders.
/// Its operations are called by one thread at a time, but `render` by the cycles
/// of a device meanwhile, one at a time; what crosses is a latest value or atomic.
class RenderUnit {
 public:
  RenderUnit() = default;
  virtual ~RenderUnit() = default;
  RenderUnit(const RenderUnit&) = delete;
  RenderUnit& operator=(const RenderUnit&) = delete;

  virtual OSStatus setProperty(const UnitPropertyAddress& address, const void* data,
                               std::uint32_t size) = 0;
  /// All of its bytes.
  virtual OSStatus getProperty(const UnitPropertyAddress& address,
                               std::vector<std::byte>& value) = 0;
  virtual bool isWritable(const UnitPropertyAddress& address) = 0;
  virtual OSStatus setParameter(AudioUnitParameterID parameter, float value);
  virtual OSStatus initialize();
  bool isInitialized() const noexcept { return mInitialized; }
  /// Forgets the signal so far; takes effect in the next cycle.
  virtual void reset() noexcept {}

  /// Connects what comes in at bus 0; the source outlives the cycles of this unit.
  /// Not while anything renders.
  virtual OSStatus connect(RenderUnit& source);
  /// What `render` gives at bus 0; without channels for a unit that ends a graph.
  virtual AudioStreamBasicDescription outputFormat() const { return {}; }

  /// Fills the buffers, which have room for `frames`.
  virtual OSStatus render(const host::RealtimeContext& realtime, AudioUnitRenderActionFlags& flags,
                          const AudioTimeStamp& time, std::uint32_t bus, std::uint32_t frames,
                          AudioBufferList& data) noexcept = 0;

  /// As `render`, with the checks that callers from outside need, and the unit's
  /// own memory for buffers without data. Realtime-safe: yes.
  OSStatus renderChecked(const host::RealtimeContext& realtime, AudioUnitRenderActionFlags& flags,
                         const AudioTimeStamp& time, std::uint32_t bus, std::uint32_t frames,
                         AudioBufferList* data) noexcept;

 protected:
  template <class T>
  static void put(const T& value, std::vector<std::byte>& bytes) {
    static_assert(std::is_trivially_copyable_v<T>);
    bytes.resize(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
  }
  /// None when the size is another.
  template <class T>
  static std::optional<T> take(const void* data, std::uint32_t size) {
    static_assert(std::is_trivially_copyable_v<T>);
    if (data == nullptr || size != sizeof(T)) {
      return std::nullopt;
    }
    T value;
    std::memcpy(&value, data, sizeof value);
    return value;
  }

 private:
  bool mInitialized = false;
  std::vector<float> mOwn;  // made at initialisation
};

}  // namespace velor::audio
