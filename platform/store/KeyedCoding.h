// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string_view>

#include "platform/store/KeyedRemainder.h"

namespace velor::store {

class KeyedArchiver;
class KeyedUnarchiver;

/// An object that a keyed archive can hold. Its class has a
/// static `kClassName`, which is stored and must never change, and a static
/// `initWithCoder(KeyedUnarchiver&)` that returns a std::shared_ptr of the class,
/// or null if the stored object has no meaning any more.
///
/// Keys that `initWithCoder` does not ask for stay with the object, and are written
/// again after its own. So it must ask for every key that the class knows, used or not:
/// otherwise the old value is written again.
class KeyedCoding {
 public:
  virtual ~KeyedCoding() = default;

  /// The name under which the object's class is stored.
  virtual std::string_view archiveClassName() const = 0;

  /// Writes what `initWithCoder` reads.
  virtual void encodeWithCoder(KeyedArchiver& coder) const = 0;

  /// Takes the keys that stayed with another object for the same thing.
  void takeRemainder(const KeyedCoding& other) { mRemainder = other.mRemainder; }

 protected:
  KeyedCoding() = default;
  KeyedCoding(const KeyedCoding&) = default;
  KeyedCoding& operator=(const KeyedCoding&) = default;

 private:
  friend class KeyedArchiver;
  friend class KeyedUnarchiver;

  KeyedRemainder mRemainder;  // of the document that it was read from last
};

/// A row of the table of classes that a document may name; others are refused.
struct KeyedClass {
  std::string_view name;
  std::shared_ptr<KeyedCoding> (*initWithCoder)(KeyedUnarchiver& coder);

  template <class T>
  static constexpr KeyedClass of() {
    return {T::kClassName, [](KeyedUnarchiver& coder) -> std::shared_ptr<KeyedCoding> {
              return T::initWithCoder(coder);
            }};
  }
};

}  // namespace velor::store
