// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>
#include <string_view>

#include "platform/host/Error.h"
#include "platform/store/KeyedRemainder.h"

namespace velor::store {

/// The form of a document, for the writer and the reader. Only their sources include it.
struct KeyedDocument {
  using Json = nlohmann::ordered_json;

  /// The first key of an object that has a class, and the one key of a byte block.
  static constexpr std::string_view kClassKey = "$class";
  static constexpr std::string_view kBytesKey = "$base64";
  static constexpr char kReservedMark = '$';

  /// Parses JSON within the limits of an archive; nothing beyond a limit is kept. An error
  /// has the place: a line and column, or a path.
  static Expected<Json> read(std::string_view text);
};

struct KeyedRemainder::Members {
  KeyedDocument::Json object;
};

}  // namespace velor::store
