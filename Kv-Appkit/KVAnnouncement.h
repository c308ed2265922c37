// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

#include "Kv-Appkit/KVObservable.h"

namespace velor {

/// Announces a change of a property around a scope. The key lives as long as it does.
class [[nodiscard]] KVAnnouncement {
 public:
  KVAnnouncement(KVObservable& object, std::string_view key) : mObject(object), mKey(key) {
    mObject.willChangeValueForKey(mKey);
  }
  ~KVAnnouncement() { mObject.didChangeValueForKey(mKey); }
  KVAnnouncement(const KVAnnouncement&) = delete;
  KVAnnouncement& operator=(const KVAnnouncement&) = delete;

 private:
  KVObservable& mObject;
  const std::string_view mKey;
};

}  // namespace velor
