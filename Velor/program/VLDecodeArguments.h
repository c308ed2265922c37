// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Velor/program/VLDecode.h"
#include "platform/host/Error.h"

namespace CLI {
class App;
}

namespace velor {

/// The arguments of `velor decode`, as they were typed.
class VLDecodeArguments {
 public:
  /// Adds the command to `app`, which fills this in when it parses.
  explicit VLDecodeArguments(CLI::App& app);
  VLDecodeArguments(const VLDecodeArguments&) = delete;
  VLDecodeArguments& operator=(const VLDecodeArguments&) = delete;

  const CLI::App& command() const noexcept { return mCommand; }
  /// Checks the arguments that were typed.
  Expected<VLDecodeOptions> options() const;

 private:
  CLI::App& mCommand;
  std::string mChannel = "1";
  bool mCSV = false;
  bool mJSON = false;
  bool mIsPlain = false;
  std::string mFile;
};

}  // namespace velor
