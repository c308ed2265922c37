// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

namespace velor {

/// The checked options of `velor analyse`. Exactly one of `file`, `live` and `mtc` is set.
struct VLAnalyseOptions {
  std::optional<std::string> file;
  int channel = 1;                  // of the file, from 1 on
  std::optional<std::string> live;  // DEVICE:CHANNEL, as typed
  std::optional<std::string> mtc;   // a MIDI source, as typed
  bool isJSON = false;
  std::optional<std::string> plot;  // a file to write
};

/// Analyses a file, and prints the report on standard output. Gives the exit status: 0, 1
/// when the file cannot be read or holds no LTC, 2 when it has no such channel. Main thread.
int VLAnalyseRun(const VLAnalyseOptions& options);

}  // namespace velor
