// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

namespace velor {

/// Does what the user has asked for. An exception becomes a sheet and a line of the log: the
/// toolkit's loop would end with it.
using VLPerform = std::function<void(const std::function<void()>& action)>;

}  // namespace velor
