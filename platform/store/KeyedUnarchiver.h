// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/Error.h"
#include "platform/store/KeyedCoding.h"

namespace velor::store {

/// Reads what KeyedArchiver writes, from a source that is not trusted: a document
/// over the limits, with a key twice in an object, or that is not JSON in UTF-8, is
/// refused as a whole and nothing of it is used.
///
/// Values are asked for by key, in any order; the members that nobody asks for are the
/// remainder, and stay with their object. A key that is missing, or holds null, has no
/// value.
///
/// The reader keeps the first error, a value of another kind than the one asked for, with its
/// place. From there on no key has a value and no object is made, until `check` reports it.
///
/// One thread at a time. Realtime-safe: no.
class KeyedUnarchiver {
 public:
  /// A reader at the top of the document. Errors have the place: a line and column, or a
  /// path. `classes` must outlive the reader.
  static Expected<KeyedUnarchiver> read(std::string_view document,
                                        std::span<const KeyedClass> classes);
  /// The size is checked before anything is read.
  static Expected<KeyedUnarchiver> readFile(const std::filesystem::path& path,
                                            std::span<const KeyedClass> classes);

  ~KeyedUnarchiver();
  KeyedUnarchiver(KeyedUnarchiver&&) noexcept;
  KeyedUnarchiver& operator=(KeyedUnarchiver&&) = delete;

  /// The first error since the last check, "markers[3].time: expected ...", which is
  /// forgotten then.
  [[nodiscard]] Expected<> check();
  /// Whether there is an error that `check` has not reported.
  bool failed() const noexcept;
  /// Makes this the error, unless there is one: the value under the key has been read and
  /// cannot be used.
  void refuse(std::string_view key, const std::string& why);

  /// True for a null, too, and after an error. Counts as asking.
  bool containsValue(std::string_view key) const;

  /// The path of the value under the key, "markers[3].time", for a message.
  std::string pathOf(std::string_view key) const;

  std::optional<bool> decodeBool(std::string_view key);
  std::optional<std::int32_t> decodeInt32(std::string_view key);
  std::optional<std::int64_t> decodeInt64(std::string_view key);
  /// Whole numbers, too.
  std::optional<double> decodeDouble(std::string_view key);
  std::optional<std::string> decodeString(std::string_view key);
  std::optional<std::vector<std::uint8_t>> decodeBytes(std::string_view key);

  /// An object of the class or of one derived from it. Null without one, and if its class
  /// returns null.
  template <class T>
  std::shared_ptr<T> decodeObject(std::string_view key) {
    return std::dynamic_pointer_cast<T>(decodeObjectOf(key, wanted<T>()));
  }
  /// Elements can be null, as with `decodeObject`.
  template <class T>
  std::optional<std::vector<std::shared_ptr<T>>> decodeArray(std::string_view key) {
    const auto elements = decodeArrayOf(key, wanted<T>());
    if (!elements) {
      return std::nullopt;
    }
    std::vector<std::shared_ptr<T>> result;
    for (const auto& element : *elements) {
      result.push_back(std::dynamic_pointer_cast<T>(element));
    }
    return result;
  }

  /// The members that have not been asked for by now, of the current object: the document
  /// outside of any `initWithCoder`.
  KeyedRemainder remainder() const;

 private:
  struct State;
  struct Wanted {
    std::string_view className;
    bool (*isOne)(const KeyedCoding&);
  };
  template <class T>
  static constexpr Wanted wanted() {
    return {T::kClassName,
            [](const KeyedCoding& object) { return dynamic_cast<const T*>(&object) != nullptr; }};
  }

  explicit KeyedUnarchiver(std::unique_ptr<State> state);
  std::shared_ptr<KeyedCoding> decodeObjectOf(std::string_view key, const Wanted& wanted);
  std::optional<std::vector<std::shared_ptr<KeyedCoding>>> decodeArrayOf(std::string_view key,
                                                                         const Wanted& wanted);

  std::unique_ptr<State> mState;
};

}  // namespace velor::store
