// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string_view>

#include "platform/store/KeyedRemainder.h"

namespace velor::store {

class KeyedArchiver;
class KeyedUnarchiver;

/// An object that can stand in a keyed archive. A class of its own there has a
/// static `kClassName`, which is stored and must never change, and a static
/// `initWithCoder(KeyedUnarchiver&)` that gives a std::shared_ptr of the class,
/// or null where what is stored stands for nothing any more.
///
/// Keys that `initWithCoder` does not ask for stay with the object, and are written
/// again behind its own. So it asks for every key that the class knows, wanted or not:
/// one that is passed over comes back.
class KeyedCoding {
 public:
  virtual ~KeyedCoding() = default;

  /// The name under which the object's class is stored.
  virtual std::string_view archiveClassName() const = 0;

  /// Writes what `initWithCoder` reads.
  virtual void encodeWithCoder(KeyedArchiver& coder) const = 0;

  /// Has the keys stay with this object that stayed with the other, which stands for the
  /// same.
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

/// A row of the table of classes that a document may name: nothing else in it can
/// become an object.
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
