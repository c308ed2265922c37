// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Kv-Appkit/KVObserverList.h"

namespace velor {

/// A row of a target's table: which operation a change of the key path calls.
/// By custom the operation of "playRate" is `playRateChanged`.
template <class Target>
struct KVKeyPathOperation {
  std::string_view keyPath;
  void (Target::*operation)();
};

/// Calls operations of a target when properties of an object change. It observes
/// as long as it lives, so make it a member of the target or keep it beside it.
class [[nodiscard]] KVKeyValueObserver {
 public:
  /// The target is held weakly: after its end nothing is called, and a running call
  /// keeps it alive. Operations run on the thread of the change. Any thread.
  template <class Target>
  static KVKeyValueObserver observeKeyPaths(
      std::span<const KVKeyPathOperation<std::type_identity_t<Target>>> keyPaths,
      KVObservable& object, std::weak_ptr<Target> target) {
    KVKeyValueObserver observer;
    for (const auto& [keyPath, operation] : keyPaths) {
      observer.observe(object, keyPath, [target, call = operation](const auto&) {
        if (const auto strong = target.lock()) {
          ((*strong).*call)();
        }
      });
    }
    return observer;
  }

  /// Observes nothing.
  KVKeyValueObserver() = default;
  KVKeyValueObserver(KVKeyValueObserver&&) noexcept = default;
  KVKeyValueObserver& operator=(KVKeyValueObserver&&) noexcept = default;

 private:
  void observe(KVObservable& object, std::string_view keyPath, KVObservable::Observer observer);

  std::vector<KVObserverToken> mTokens;
};

}  // namespace velor
