// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <utility>

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
  static constexpr std::size_t kLeastRoom = 4;  // members; a marker has as many

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

  /// Puts a value behind the others, without a look for the key; gives its place. Makes
  /// room itself: members have constant keys, so that they would be copied, with all that
  /// stands in them, where they are to move.
  static Json& append(Json& object, std::string key, Json value) {
    auto& members = object.get_ref<Json::object_t&>();
    if (members.size() == members.capacity()) {
      Json::object_t larger;
      larger.reserve(std::max(kLeastRoom, 2 * members.capacity()));
      for (auto& [name, inner] : members) {
        larger.emplace_back(name, std::move(inner));
      }
      members.swap(larger);
    }
    return members.emplace_back(std::move(key), std::move(value)).second;
  }
};

struct KeyedRemainder::Members {
  KeyedDocument::Json object;
};

}  // namespace velor::store
