// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>

namespace velor::store {

/// The limits of a document: far above those that the application writes, and
/// low enough that a hostile one costs neither memory nor stack. The writer
/// keeps to them too, so that every document it writes can be read.
struct KeyedArchiveLimits {
  static constexpr std::size_t kBytes = std::size_t{16} << 20;
  /// Objects and arrays inside one another, the document itself included.
  static constexpr std::size_t kDepth = 64;
  /// In the whole document, containers included.
  static constexpr std::size_t kValues = 1'000'000;
  static constexpr std::size_t kKeysOfAnObject = 4096;
  /// Bytes of a text, and of the base64 of a byte block.
  static constexpr std::size_t kStringBytes = std::size_t{4} << 20;
};

}  // namespace velor::store
