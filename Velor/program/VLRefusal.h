// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "platform/host/Error.h"

namespace velor {

/// Collects the values of options and keeps the first thing that is wrong with them: one line
/// for people that names the option.
class VLRefusal {
 public:
  void refuseIf(bool condition, std::string text) {
    if (condition && !mError) {
      mError = Error{std::move(text)};
    }
  }
  /// Refuses an error as it is.
  template <class Value>
  void check(const Expected<Value>& value) {
    refuseIf(!value, value ? "" : value.error().text);
  }
  /// Refuses an error in the option's name.
  void check(const char* option, const Expected<>& value) {
    refuseIf(!value, std::string(option) + ": " + (value ? "" : value.error().text));
  }
  /// A value that cannot be read is refused in the option's name; the default stands in for it.
  template <class Value>
  Value read(const char* option, Expected<Value> value) {
    if (value) {
      return *std::move(value);
    }
    refuseIf(true, std::string(option) + ": " + value.error().text);
    return Value{};
  }

  bool isRefused() const noexcept { return mError.has_value(); }
  /// The options, unless something is wrong with them.
  template <class Options>
  Expected<Options> resultOf(Options options) const {
    return mError ? Expected<Options>(tl::unexpected(*mError))
                  : Expected<Options>(std::move(options));
  }

 private:
  std::optional<Error> mError;
};

}  // namespace velor
