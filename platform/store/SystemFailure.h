// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

namespace velor::store {

/// For people, of the call that failed last in this thread: "cannot open /a/b: No such
/// file or directory". Any thread. Realtime-safe: no.
std::string systemFailure(const char* step, const std::filesystem::path& path);

}  // namespace velor::store
