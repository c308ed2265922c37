// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Velor/program/VLAnalyse.h"
#include "Velor/program/VLDecode.h"
#include "Velor/program/VLEncode.h"
#include "Velor/program/VLOptions.h"

namespace velor {

/// The options of a run or of one of the commands, or what to print and the exit status.
struct VLCommandLine {
  std::optional<VLOptions> options;
  std::optional<VLEncodeOptions> encode;
  std::optional<VLDecodeOptions> decode;
  std::optional<VLAnalyseOptions> analyse;
  std::optional<std::string> inspect;  // a document
  int exitStatus = 0;
  std::string output;  // to stdout when the status is 0, else to stderr
};

/// Reads the arguments after the program's name. An error is one line that names the
/// argument, with the status 2.
VLCommandLine VLParseCommandLine(const std::vector<std::string>& arguments);

}  // namespace velor
