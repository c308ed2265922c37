// SPDX-License-Identifier: MIT
#include "platform/store/KeyedRemainder.h"

#include "platform/store/KeyedDocument.h"

namespace velor::store {

bool KeyedRemainder::contains(std::string_view key) const {
  return mMembers != nullptr && KeyedDocument::find(mMembers->object, key) != nullptr;
}

}  // namespace velor::store
