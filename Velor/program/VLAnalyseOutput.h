// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <string>

#include "Velor/program/VLAnalyse.h"
#include "Velor/program/VLPlot.h"
#include "Velor/program/VLStandardOutput.h"
#include "platform/store/AtomicFile.h"
#include "platform/store/Printable.h"

namespace velor {

/// How all kinds of `velor analyse` end: with a report, or with an error.
struct VLAnalyseOutput {
  static int fail(const std::string& error, int status) {
    std::fprintf(stderr, "velor: analyse: %s\n", store::printable(error).c_str());
    return status;
  }
  /// Prints the report, and writes its plot. Gives the exit status.
  template <class Text, class Report>
  static int end(const Report& report, const VLAnalyseOptions& options, const std::string& name) {
    const std::string text = options.isJSON ? Text::json(report) : Text::text(report);
    std::fputs(text.c_str(), stdout);
    if (!VLStandardOutput::hasTaken()) {
      return fail(VLStandardOutput::kRefusal, 1);
    }
    if (options.plot) {
      const VLPlot plot = Text::plot(report, store::printable(name));
      if (const auto written = store::AtomicFile::write(*options.plot, plot.svg()); !written) {
        return fail(written.error().text, 1);
      }
    }
    return 0;
  }
};

}  // namespace velor
