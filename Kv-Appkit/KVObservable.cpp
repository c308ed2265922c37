// SPDX-License-Identifier: MIT
#include "Kv-Appkit/KVObservable.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace velor {
namespace {

// The key and all that depends on it, directly or through others, each once.
std::vector<std::string_view> affectedBy(std::string_view key,
                                         std::span<const KVDependency> dependencies) {
  std::vector<std::string_view> affected{key};
  for (std::size_t i = 0; i < affected.size(); ++i) {
    for (const KVDependency& row : dependencies) {
      if (row.dependsOn == affected[i] &&
          std::find(affected.begin(), affected.end(), row.property) == affected.end()) {
        affected.push_back(row.property);
      }
    }
  }
  return affected;
}

}  // namespace

KVObserverToken KVObservable::addObserver(std::string_view key, Observer observer) {
  return mObservers.add(key, std::move(observer));
}

void KVObservable::willChangeValueForKey(std::string_view key) {
  const std::lock_guard lock(mMutex);
  ++mWills[std::string(key)];
}

void KVObservable::didChangeValueForKey(std::string_view key) {
  if (!takeWill(key)) {
    return;
  }
  for (const std::string_view affected : affectedBy(key, mDependencies)) {
    mObservers.notify(affected, affected);
  }
}

bool KVObservable::takeWill(std::string_view key) {
  const std::lock_guard lock(mMutex);
  const auto open = mWills.find(key);
  if (open == mWills.end()) {
    return false;
  }
  if (--open->second == 0) {
    mWills.erase(open);
  }
  return true;
}

}  // namespace velor
