// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <optional>
#include <span>
#include <string>

#include "platform/host/Error.h"
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

  /// The devices of a document that was loaded, when they could not all be restored.
  using Unrestored = std::optional<Error>;

  /// The log has the error too.
  Expected<> saveToURL(const std::filesystem::path& path);
  /// Fails for a file that is not a document, which changes nothing, and for a damaged
  /// document, which is applied up to the damage. The log has each error too.
  Expected<Unrestored> loadFromURL(const std::filesystem::path& path);

  /// The document. Fails when it exceeds the limits. Clips are found again in its folder when
  /// that moves; empty for a document that lies in none.
  Expected<std::string> data(const std::filesystem::path& folder = {}) const;
  void encode(store::KeyedArchiver& coder, const std::filesystem::path& folder = {}) const;
  Expected<Unrestored> decode(store::KeyedUnarchiver& coder,
                              const std::filesystem::path& folder = {});

 private:
  void decodeClock(store::KeyedUnarchiver& coder);
  void decodePlayMode(store::KeyedUnarchiver& coder);
  void decodeSource(store::KeyedUnarchiver& coder);
  void decodeMarkers(store::KeyedUnarchiver& coder);

  VLAppDelegate& mApp;
  store::KeyedRemainder mRemainder;  // what the document held for a later version
};

}  // namespace velor
