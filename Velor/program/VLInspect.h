// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/host/Error.h"

namespace velor {

/// The contents of a document, for people.
struct VLInspection {
  std::string text;  ///< lines
  /// With their places; what opening it would refuse or change.
  std::vector<std::string> problems;
};

/// Reads a document without making anything of what stands in it. Fails where the file ceases
/// to be a document.
Expected<VLInspection> VLInspectDocument(std::string_view document);

/// The command: prints the document's content on standard output. Returns the exit status: 0,
/// or 1 with a line on standard error if it has problems or is not a document. Needs
/// neither a host nor a service. Main thread.
int VLInspectRun(const std::string& file);

}  // namespace velor
