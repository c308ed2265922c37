// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Velor/mtc/VLMTCAnalysis.h"
#include "Velor/program/VLPlot.h"

namespace velor {

/// Reports of MTC as lines for people, as one JSON object in a line, and as a plot.
struct VLMTCAnalysisText {
  static std::string text(const VLMTCReport& report);
  static std::string json(const VLMTCReport& report);
  static VLPlot plot(const VLMTCReport& report, const std::string& name);

  /// The state of a run that goes on, in one line without its end.
  static std::string status(const VLMTCReport& report);
};

}  // namespace velor
