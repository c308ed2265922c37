// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <string>

namespace velor {

/// How far a longer piece of work is, on a line of the terminal that goes with the
/// object; silent where standard error is no terminal, and in the first second.
class VLProgressBar {
 public:
  explicit VLProgressBar(std::string what);
  ~VLProgressBar();
  VLProgressBar(const VLProgressBar&) = delete;
  VLProgressBar& operator=(const VLProgressBar&) = delete;

  /// `part` from 0 to 1.
  void show(double part);

 private:
  using Clock = std::chrono::steady_clock;

  const std::string mWhat;
  const bool mIsTerminal;
  Clock::time_point mNext;
  bool mIsShown = false;
};

}  // namespace velor
