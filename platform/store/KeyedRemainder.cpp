// SPDX-License-Identifier: MIT
#include "platform/store/KeyedRemainder.h"

#include "platform/store/KeyedDocument.h"

namespace velor::store {

bool KeyedRemainder::contains(std::string_view key) const {
  return mMembers != nullptr && mMembers->object.contains(key);
}

std::vector<std::string> KeyedRemainder::keys() const {
  std::vector<std::string> keys;
  if (mMembers != nullptr) {
    for (const auto& [key, value] :
         mMembers->object.get_ref<const KeyedDocument::Json::object_t&>()) {
      keys.push_back(key);
    }
  }
  return keys;
}

}  // namespace velor::store
