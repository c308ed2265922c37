// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

namespace velor::store {

/// Writes all bytes to an open file; false, with the reason in errno, when some do not fit.
/// Any thread; it waits for the disk. Realtime-safe: no.
bool writeAll(int file, std::string_view bytes) noexcept;

}  // namespace velor::store
