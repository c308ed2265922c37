// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Velor/mtc/VLMTCAnalysis.h"
#include "Velor/program/VLPlot.h"

namespace velor {

/// Writes a report of MTC as lines for people, as one JSON object in a line, or as a plot.
struct VLMTCAnalysisText {
  static std::string text(const VLMTCReport& report);
  static std::string json(const VLMTCReport& report);
  static VLPlot plot(const VLMTCReport& report, const std::string& name);

  /// One line without a line feed, for a measurement that still runs.
  static std::string status(const VLMTCReport& report);
};

}  // namespace velor
