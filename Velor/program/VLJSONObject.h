// SPDX-License-Identifier: MIT
#pragma once

#include <cmath>
#include <cstdint>
#include <string>

#include "Velor/program/VLAnalysisWords.h"

namespace velor {

/// The members of a JSON object.
class VLJSONObject {
 public:
  void number(const char* key, double value, int digits = 6) {
    add(key, std::isfinite(value)
                 ? VLAnalysisWords::of("%.*f", digits, VLAnalysisWords::rounded(value, digits))
                 : "null");
  }
  void count(const char* key, std::uint64_t value) { add(key, std::to_string(value)); }
  /// The value must have neither quotes nor backslashes.
  void text(const char* key, const std::string& value) { add(key, '"' + value + '"'); }
  void add(const char* key, const std::string& json) {
    mText += (mText.empty() ? "{\"" : ",\"") + std::string(key) + "\":" + json;
  }
  std::string take() const { return (mText.empty() ? "{" : mText) + "}"; }

 private:
  std::string mText;
};

class VLJSONArray {
 public:
  void add(const std::string& json) { mText += (mText.empty() ? "[" : ",") + json; }
  std::string take() const { return (mText.empty() ? "[" : mText) + "]"; }

 private:
  std::string mText;
};

}  // namespace velor
