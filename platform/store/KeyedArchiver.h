// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/host/Error.h"
#include "platform/store/KeyedCoding.h"

namespace velor::store {

/// Writes values under keys into a document of JSON (RFC 8259) that people can
/// read: keys in the order of the calls, a byte block as {"$base64": ...}, an
/// object as its keys behind {"$class": ...}.
///
/// A document cannot hold a key twice in an object or with a '$' in front, a number that is
/// not finite, or anything over the limits. The archiver keeps the first such error, with its
/// place, writes nothing from there on, and `data` reports it. Bytes of a text that are not
/// UTF-8 are written as the replacement character: a name that some other program made badly
/// must not stand in the way of all the rest.
///
/// One thread at a time. Realtime-safe: no.
class KeyedArchiver {
 public:
  KeyedArchiver();
  ~KeyedArchiver();
  KeyedArchiver(const KeyedArchiver&) = delete;
  KeyedArchiver& operator=(const KeyedArchiver&) = delete;

  void encodeBool(bool value, std::string_view key);
  void encodeInt32(std::int32_t value, std::string_view key);
  void encodeInt64(std::int64_t value, std::string_view key);
  void encodeDouble(double value, std::string_view key);
  void encodeString(std::string_view value, std::string_view key);
  void encodeBytes(std::span<const std::uint8_t> value, std::string_view key);
  void encodeNull(std::string_view key);

  /// Null is written as null.
  void encodeObject(const KeyedCoding* object, std::string_view key);
  template <class T>
  void encodeObject(const std::shared_ptr<T>& object, std::string_view key) {
    encodeObject(static_cast<const KeyedCoding*>(object.get()), key);
  }
  template <class T>
  void encodeArray(const std::vector<std::shared_ptr<T>>& objects, std::string_view key) {
    std::vector<const KeyedCoding*> elements;
    for (const auto& object : objects) {
      elements.push_back(object.get());
    }
    encodeElements(elements, key);
  }

  /// Writes the unknown members of a document that was read. Call it last: it leaves out
  /// keys that are there already.
  void encodeRemainder(const KeyedRemainder& remainder);

  /// Makes this the error, unless there is one: there is no value for the key.
  void refuse(std::string_view key, const std::string& why);

  /// The document, in UTF-8.
  Expected<std::string> data() const;

 private:
  struct State;

  void encodeElements(std::span<const KeyedCoding* const> elements, std::string_view key);

  const std::unique_ptr<State> mState;
};

}  // namespace velor::store
