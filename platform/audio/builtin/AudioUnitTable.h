// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <vector>

#include "platform/audio/builtin/AudioDeviceTable.h"
#include "platform/audio/builtin/HALOutputUnit.h"
#include "platform/audio/builtin/RenderUnit.h"
#include "platform/host/PriorityMutex.h"
#include "platform/host/Queue.h"
#include "platform/host/RecursiveMutex.h"

namespace velor::audio {

/// All units by their numbers, and the listeners of their properties, which are
/// called on the queue "velor.audio".
class AudioUnitTable {
 public:
  /// Units that can exist at once.
  static constexpr std::uint32_t kUnits = 1023;

  AudioUnitTable() = default;
  AudioUnitTable(const AudioUnitTable&) = delete;
  AudioUnitTable& operator=(const AudioUnitTable&) = delete;

  /// To be held for all below up to the listeners.
  host::RecursiveMutex& control() noexcept { return mControl; }

  static bool hasComponent(const AudioComponentDescription& description);
  /// 0 when there is no such component, or no place.
  AudioUnit make(const AudioComponentDescription& description, AudioDeviceTable& devices);
  /// Stops it first. None of its callbacks runs any more; for its listeners, see
  /// `waitForListeners`.
  void dispose(AudioUnit unit);
  void disposeAll();
  /// Null for a number that is none, or for another kind of unit.
  RenderUnit* find(AudioUnit unit);
  HALOutputUnit* findOutput(AudioUnit unit);

  OSStatus setProperty(AudioUnit unit, const UnitPropertyAddress& address, const void* data,
                       std::uint32_t size);
  OSStatus start(AudioUnit unit);
  OSStatus stop(AudioUnit unit);

  // Without `control` held.

  OSStatus addListener(AudioUnit unit, AudioUnitPropertyID property,
                       AudioUnitPropertyListenerProc proc, void* refCon);
  OSStatus removeListener(AudioUnit unit, AudioUnitPropertyID property,
                          AudioUnitPropertyListenerProc proc, void* refCon);
  /// None that was removed is running any more when it returns, unless it is what
  /// calls.
  void waitForListeners();
  /// Any thread but a real-time one; waits for nothing.
  void deviceChanged(AudioObjectID device, const AudioDeviceChange& change);

  /// Without any lock. Realtime-safe: yes. The unit must not be disposed of
  /// meanwhile.
  RenderUnit* findForRender(AudioUnit unit) const noexcept;

 private:
  struct Listener {
    AudioUnit unit;
    AudioUnitPropertyID property;
    AudioUnitPropertyListenerProc proc;
    void* refCon;
    bool operator==(const Listener&) const = default;
  };
  struct Place {
    std::atomic<AudioUnit> number{0};
    RenderUnit* unit = nullptr;
  };

  void notify(AudioUnit unit, AudioUnitPropertyID property);
  void callListeners(AudioUnit unit, AudioUnitPropertyID property);

  host::RecursiveMutex mControl;
  std::map<AudioUnit, std::unique_ptr<RenderUnit>> mUnits;
  std::uint32_t mMade = 0;
  std::array<Place, kUnits> mPlaces;

  host::PriorityMutex mListenerMutex;
  std::vector<Listener> mListeners;

  // The last, so that its jobs find the others.
  host::Queue mNotifications{"velor.audio"};
};

}  // namespace velor::audio
