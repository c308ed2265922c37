// SPDX-License-Identifier: MIT
#pragma once

namespace velor::host {

/// The calling thread's depth of nested real-time scopes; 0 outside of one.
/// Test binaries abort on an allocation, a free or a log call while it is not 0.
int& realtimeDepth() noexcept;

/// The witness that code runs where nothing may allocate, lock, wait or log.
/// Real-time functions take it as their first argument; only the callback of a
/// back end or of a real-time thread makes one (scripts/check-architecture
/// holds the list of the files that may).
class RealtimeContext {
 public:
  RealtimeContext() noexcept { ++realtimeDepth(); }
  ~RealtimeContext() { --realtimeDepth(); }
  RealtimeContext(const RealtimeContext&) = delete;
  RealtimeContext& operator=(const RealtimeContext&) = delete;
};

}  // namespace velor::host
