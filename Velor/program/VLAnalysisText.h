// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Velor/ltc/VLLTCReport.h"
#include "Velor/program/VLPlot.h"

namespace velor {

/// Reports of LTC as lines for people, as one JSON object in a line, and as a plot.
struct VLAnalysisText {
  static std::string text(const VLLTCReport& report);
  static std::string json(const VLLTCReport& report);
  static VLPlot plot(const VLLTCReport& report, const std::string& name);

  /// The state of a run that goes on, in one line without its end.
  static std::string status(const VLLTCReport& report);
};

}  // namespace velor
