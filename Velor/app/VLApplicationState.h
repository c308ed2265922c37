// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <optional>
#include <span>
#include <string>

#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedCoding.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {

class VLAppDelegate;

/// The working state as a document: its keys, and the order in which they are written
/// and read. Queue: main.
class VLApplicationState {
 public:
  /// The classes of objects that a document may hold.
  static std::span<const store::KeyedClass> classes();

  // Limits for a document: a slower clock would not tick within a show, and a faster one
  // would send all its ticks at once.
  static constexpr double kLeastPlayRate = 0.1;
  static constexpr double kMostPlayRate = 10;

  explicit VLApplicationState(VLAppDelegate& app) : mApp(app) {}

  /// Whether it was written.
  bool saveToURL(const std::filesystem::path& path);
  /// False for a file that is not a document, which changes nothing, and for a damaged
  /// document, which is applied up to the damage.
  bool loadFromURL(const std::filesystem::path& path);
  /// Why the last save or load failed, or which part of a document was not applied, for
  /// people; the log has it too.
  const std::string& error() const noexcept { return mError; }

  /// The document. None when it exceeds the limits.
  std::optional<std::string> data();
  void encode(store::KeyedArchiver& coder) const;
  bool decode(store::KeyedUnarchiver& coder);

 private:
  void decodeClock(store::KeyedUnarchiver& coder);
  void decodePlayMode(store::KeyedUnarchiver& coder);
  void decodeSource(store::KeyedUnarchiver& coder);
  void decodeMarkers(store::KeyedUnarchiver& coder);
  bool failedToSave(const std::filesystem::path& path, const std::string& why);

  VLAppDelegate& mApp;
  store::KeyedRemainder mRemainder;  // what the document held for a later version
  std::string mError;
};

}  // namespace velor
