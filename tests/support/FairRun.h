// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <functional>

namespace velor::test {

/// For tests that judge real time to the millisecond, on a machine that others
/// use as well. When the body fails, and a StallWatch saw the machine stand still for longer
/// than `stall` meanwhile, the body is run again, at most four times. The default is less than
/// the shortest cycle of the servers: one that is lost moves the server's count of frames, by
/// which all is judged. A failure on a machine that ran stands, and so does that of the fifth
/// run.
///
/// The body begins from nothing each time: it starts its own servers. Its
/// failures, those of other threads included, are not fatal to the caller.
void inFairRun(const std::function<void()>& body,
               std::chrono::microseconds stall = std::chrono::milliseconds(2));

}  // namespace velor::test
