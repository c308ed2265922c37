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
  /// What a document may name.
  static std::span<const store::KeyedClass> classes();

  // Of a document. Beyond, a tick would not come in the life of a show, or all of them at
  // once.
  static constexpr double kLeastPlayRate = 0.1;
  static constexpr double kMostPlayRate = 10;

  explicit VLApplicationState(VLAppDelegate& app) : mApp(app) {}

  /// Whether it was written.
  bool saveToURL(const std::filesystem::path& path);
  /// False for what is no document, which changes nothing, and for a damaged one, of
  /// which what stood before the damage is taken over.
  bool loadFromURL(const std::filesystem::path& path);
  /// Why the last one failed, or which part of a document was left out, for people; the
  /// log has it too.
  const std::string& error() const noexcept { return mError; }

  /// The document. None when it would be over the limits.
  std::optional<std::string> data();
  void encode(store::KeyedArchiver& coder) const;
  bool decode(store::KeyedUnarchiver& coder);

 private:
  void decodeClock(store::KeyedUnarchiver& coder);
  void decodePlayMode(store::KeyedUnarchiver& coder);
  void decodeMarkers(store::KeyedUnarchiver& coder);
  bool failedToSave(const std::filesystem::path& path, const std::string& why);

  VLAppDelegate& mApp;
  store::KeyedRemainder mRemainder;  // what the document held for a later version
  std::string mError;
};

}  // namespace velor
