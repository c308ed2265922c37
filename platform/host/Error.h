// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <tl/expected.hpp>
#include <utility>

namespace velor {

/// Why something failed: one line for people that names the file, key or device. No code
/// decides by its words.
struct Error {
  std::string text;
};

/// A value, or why there is none.
template <class T = void>
using Expected = tl::expected<T, Error>;

/// A failed Expected.
inline tl::unexpected<Error> failure(std::string text) {
  return tl::unexpected<Error>(Error{std::move(text)});
}

}  // namespace velor
