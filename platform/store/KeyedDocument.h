// SPDX-License-Identifier: MIT
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

#include "platform/store/KeyedRemainder.h"

namespace velor::store {

/// The document behind the writer and the reader, with what both know of its form.
/// Only their sources include it.
struct KeyedDocument {
  using Json = nlohmann::ordered_json;

  /// The first key of an object that has a class, and the one key of a byte block.
  static constexpr std::string_view kClassKey = "$class";
  static constexpr std::string_view kBytesKey = "$base64";
  static constexpr char kReservedMark = '$';

  /// The value under the key of an object; null where there is none.
  static const Json* find(const Json& object, std::string_view key) {
    const auto& members = object.get_ref<const Json::object_t&>();
    for (const auto& [name, value] : members) {
      if (name == key) {
        return &value;
      }
    }
    return nullptr;
  }

  /// Puts a value behind the others, without a look for the key; gives its place.
  static Json& append(Json& object, std::string key, Json value) {
    return object.get_ref<Json::object_t&>().emplace_back(std::move(key), std::move(value)).second;
  }
};

struct KeyedRemainder::Members {
  KeyedDocument::Json object;
};

}  // namespace velor::store
