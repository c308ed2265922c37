// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace velor {

/// What a document says, for people.
struct VLInspection {
  std::string text;  ///< lines
  std::vector<std::string>
      problems;       ///< with their places; of what opening it would refuse or change
  std::string error;  ///< it is no document, and where it ceases to be one
};

/// Reads a document without making anything of what stands in it.
VLInspection VLInspectDocument(std::string_view document);

/// The command: what the document says on standard output. Gives the exit status: 0, or
/// 1 when it has problems or is no document, then with a line on standard error. Needs
/// neither a host nor a service. Main thread.
int VLInspectRun(const std::string& file);

}  // namespace velor
