// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

#include "Velor/program/VLAnalyse.h"
#include "platform/host/Error.h"

namespace CLI {
class App;
}

namespace velor {

/// The arguments of `velor analyse`, as they were typed.
class VLAnalyseArguments {
 public:
  /// Adds the command to `app`, which fills this in when it parses.
  explicit VLAnalyseArguments(CLI::App& app);
  VLAnalyseArguments(const VLAnalyseArguments&) = delete;
  VLAnalyseArguments& operator=(const VLAnalyseArguments&) = delete;

  const CLI::App& command() const noexcept { return mCommand; }
  /// Checks the arguments that were typed.
  Expected<VLAnalyseOptions> options() const;

 private:
  CLI::App& mCommand;
  VLAnalyseOptions mGiven;  // what needs no check
  std::optional<std::string> mChannel;
};

}  // namespace velor
