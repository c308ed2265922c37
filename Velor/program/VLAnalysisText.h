// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Velor/ltc/VLLTCReport.h"
#include "Velor/program/VLPlot.h"

namespace velor {

/// Writes a report of LTC as lines for people, as one JSON object in a line, or as a plot.
struct VLAnalysisText {
  static std::string text(const VLLTCReport& report);
  static std::string json(const VLLTCReport& report);
  static VLPlot plot(const VLLTCReport& report, const std::string& name);

  /// One line without a line feed, for a measurement that still runs.
  static std::string status(const VLLTCReport& report);
};

}  // namespace velor
