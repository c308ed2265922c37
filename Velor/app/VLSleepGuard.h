// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "platform/host/WeakSelf.h"

namespace velor {

class VLClock;

/// Keeps the screen saver and the sleep of the system away while the clock runs, by itself or
/// as it follows, or a generator generates. Queue: main, to which it brings the changes.
class VLSleepGuard {
 public:
  /// The clock outlives it.
  explicit VLSleepGuard(VLClock& clock) : mClock(clock) {}
  /// Releases.
  ~VLSleepGuard();
  VLSleepGuard(const VLSleepGuard&) = delete;
  VLSleepGuard& operator=(const VLSleepGuard&) = delete;

  /// From now on it follows the clock and the devices.
  void follow();

 private:
  bool isNeeded() const;
  void observeGenerators();
  void update();

  VLClock& mClock;
  bool mIsInhibiting = false;
  const host::WeakSelf<VLSleepGuard> mSelf{this};
  std::vector<KVObserverToken> mTokens;
  std::vector<KVObserverToken> mTokensOfGenerators;
};

}  // namespace velor
