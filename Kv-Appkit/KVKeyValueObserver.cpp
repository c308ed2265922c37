// SPDX-License-Identifier: MIT
#include "Kv-Appkit/KVKeyValueObserver.h"

namespace velor {

void KVKeyValueObserver::observe(KVObservable& object, std::string_view keyPath,
                                 KVObservable::Observer observer) {
  mTokens.push_back(object.addObserver(keyPath, std::move(observer)));
}

}  // namespace velor
