// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <functional>
#include <span>
#include <string>

#include "platform/host/Error.h"
#include "platform/store/KeyedCoding.h"

namespace velor::store {

/// Settings of the application that outlive a run and belong to no document, in one
/// file: a keyed archive.
///
/// One thread at a time; it waits for the disk. Realtime-safe: no.
class UserDefaults {
 public:
  /// `classes` must outlive it. Nothing is read yet.
  UserDefaults(std::filesystem::path file, std::span<const KeyedClass> classes)
      : mFile(std::move(file)), mClasses(classes) {}

  /// Gives the reader of the file to `decode`, unless there is no file. A damaged file, or one
  /// with a value that `decode` could not read, is an error with the place of the damage: the
  /// file is then renamed to "NAME.damaged", so that the next writing does not destroy what
  /// could be repaired. The caller discards what `decode` has read.
  [[nodiscard]] Expected<> read(const std::function<void(KeyedUnarchiver&)>& decode) const;

  /// For damage in what `read` gave out that is only found later: warns likewise, and
  /// keeps a copy of the file as "NAME.damaged".
  void keepDamaged(const std::string& damage) const;

  /// Replaces the file by what `encode` writes.
  [[nodiscard]] Expected<> write(const std::function<void(KeyedArchiver&)>& encode) const;

 private:
  std::filesystem::path damagedName() const;
  tl::unexpected<Error> putAside(const std::string& damage) const;

  const std::filesystem::path mFile;
  const std::span<const KeyedClass> mClasses;
};

}  // namespace velor::store
