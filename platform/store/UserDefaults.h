// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <functional>
#include <span>
#include <string>

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

  /// Gives the reader of the file to `decode`. False when there is no file, and when
  /// it is damaged or raises KeyedArchiveError there: then the log warns with the
  /// place of the damage, and the file stays beside as "NAME.damaged", so that the
  /// next writing does not take what could be mended. What `decode` has taken over
  /// until then is for the caller to drop.
  bool read(const std::function<void(KeyedUnarchiver&)>& decode) const;

  /// For damage in what `read` gave out that is only found later: warns likewise, and
  /// keeps a copy of the file as "NAME.damaged".
  void keepDamaged(const std::string& damage) const;

  /// Replaces the file by what `encode` writes. False, with a warning in the log,
  /// when it cannot be written.
  bool write(const std::function<void(KeyedArchiver&)>& encode) const;

 private:
  std::filesystem::path damagedName() const;
  void putAside(const std::string& damage) const;

  const std::filesystem::path mFile;
  const std::span<const KeyedClass> mClasses;
};

}  // namespace velor::store
