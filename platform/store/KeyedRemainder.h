// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace velor::store {

/// The members of an object of a document that its reader did not ask for, in their order:
/// a later version wrote them, and they must survive being opened by this one. An empty
/// one costs a pointer; copies share the members. Any thread. Realtime-safe: no.
class KeyedRemainder {
 public:
  KeyedRemainder() = default;

  bool empty() const noexcept { return mMembers == nullptr; }
  bool contains(std::string_view key) const;
  /// In their order.
  std::vector<std::string> keys() const;

 private:
  friend class KeyedArchiver;
  friend class KeyedUnarchiver;
  struct Members;

  explicit KeyedRemainder(std::shared_ptr<const Members> members) : mMembers(std::move(members)) {}

  std::shared_ptr<const Members> mMembers;  // null for none
};

}  // namespace velor::store
