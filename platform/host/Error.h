// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <tl/expected.hpp>
#include <utility>

namespace velor {

/// Why something that may fail did: one line for people that names what it happened to. No
/// decision reads its words.
struct Error {
  std::string text;
};

/// A value, or why there is none.
template <class T = void>
using Expected = tl::expected<T, Error>;

/// What a function that returns an Expected returns when it fails.
inline tl::unexpected<Error> failure(std::string text) {
  return tl::unexpected<Error>(Error{std::move(text)});
}

}  // namespace velor
