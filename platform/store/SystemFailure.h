// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>

#include "platform/host/Error.h"

namespace velor::store {

/// The system call that failed last in this thread, as an error: "cannot open /a/b: No such
/// file or directory". Any thread. Realtime-safe: no.
tl::unexpected<Error> systemFailure(const char* step, const std::filesystem::path& path);

}  // namespace velor::store
