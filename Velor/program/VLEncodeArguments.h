// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "Velor/program/VLEncode.h"
#include "platform/host/Error.h"

namespace CLI {
class App;
}

namespace velor {

/// The arguments of `velor encode`, as they were typed.
class VLEncodeArguments {
 public:
  /// Adds the command to `app`, which fills this in when it parses.
  explicit VLEncodeArguments(CLI::App& app);
  VLEncodeArguments(const VLEncodeArguments&) = delete;
  VLEncodeArguments& operator=(const VLEncodeArguments&) = delete;

  const CLI::App& command() const noexcept { return mCommand; }
  /// Checks them.
  Expected<VLEncodeOptions> options() const;

 private:
  CLI::App& mCommand;
  std::string mFormat = "25";
  std::string mStart = "00:00:00:00";
  std::string mDuration;
  std::string mRate = "48000";
  std::string mLevel = "-20dB";
  std::string mUserBits = "00000000";
  std::string mBits = "16";
  std::string mFile;
  bool mForce = false;
};

}  // namespace velor
