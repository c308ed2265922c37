// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "Velor/app/VLMTCOutputs.h"
#include "kvtimecode/SMPTETime.h"

namespace velor {

/// What the status line tells.
struct VLStatus {
  SMPTETime time{};
  std::uint64_t clockStatus = 0;
  std::vector<VLMTCOutputs::Output> outputs;
  std::string server;
};

/// One line of at most `columns` characters; cut with "..." when it is longer.
std::string VLStatusText(const VLStatus& status, std::size_t columns);

/// A line on the terminal that is written over in place; silent where standard
/// output is no terminal.
class VLStatusLine {
 public:
  VLStatusLine();
  /// Leaves the last line standing and goes to the next.
  ~VLStatusLine();
  VLStatusLine(const VLStatusLine&) = delete;
  VLStatusLine& operator=(const VLStatusLine&) = delete;

  bool isVisible() const { return mIsTerminal; }
  void show(const VLStatus& status);

 private:
  const bool mIsTerminal;
  std::string mLast;
};

}  // namespace velor
