// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <memory_resource>
#include <string>
#include <string_view>
#include <variant>

namespace velor::store {

/// The values of a document that was read, as they stand there. All of them, with their
/// texts, lie in memory that is taken in large pieces: a document of many objects is read
/// and freed at the cost of its bytes.
class KeyedTree {
 public:
  struct Member;

  class Members {
   public:
    Members() = default;
    Members(const Member* first, std::size_t count) : mFirst(first), mCount(count) {}

    std::size_t size() const noexcept { return mCount; }
    const Member* begin() const noexcept { return mFirst; }
    const Member* end() const noexcept;

   private:
    const Member* mFirst = nullptr;
    std::size_t mCount = 0;
  };

  /// Its elements have no keys.
  struct Array : Members {
    using Members::Members;
  };
  struct Object : Members {
    using Members::Members;
  };
  using Value = std::variant<std::nullptr_t, bool, std::int64_t, std::uint64_t, double,
                             std::string_view, Array, Object>;
  struct Member {
    std::string_view key;
    Value value;
  };

  /// The tree, or why there is none, for people and with the place: a line and column, or a
  /// path.
  struct Result {
    std::unique_ptr<const KeyedTree> tree;
    std::string error;
  };

  /// Of a text in JSON, within the limits of an archive.
  static Result read(std::string_view text);

  KeyedTree() = default;
  KeyedTree(const KeyedTree&) = delete;
  KeyedTree& operator=(const KeyedTree&) = delete;

  const Value& root() const noexcept { return mRoot; }
  /// The value under the key; null where there is none.
  static const Value* find(const Object& object, std::string_view key) noexcept;

 private:
  class Builder;

  std::pmr::monotonic_buffer_resource mMemory;
  Value mRoot;
};

inline const KeyedTree::Member* KeyedTree::Members::end() const noexcept {
  return mFirst + mCount;
}

}  // namespace velor::store
