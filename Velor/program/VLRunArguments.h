// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Velor/program/VLOptions.h"
#include "platform/host/Error.h"

namespace CLI {
class App;
}

namespace velor {

class VLRefusal;

/// The arguments of a run, as they were typed.
class VLRunArguments {
 public:
  /// Adds the options to `app`, which fills this in when it parses.
  explicit VLRunArguments(CLI::App& app);
  VLRunArguments(const VLRunArguments&) = delete;
  VLRunArguments& operator=(const VLRunArguments&) = delete;

  /// Checks them.
  Expected<VLOptions> options() const;

 private:
  using Text = std::optional<std::string>;

  void addClock(CLI::App& app);
  void addMTC(CLI::App& app);
  void addLTC(CLI::App& app);
  void addOSC(CLI::App& app);
  void addMedia(CLI::App& app);
  void addDocument(CLI::App& app);
  void addRun(CLI::App& app);
  void readClock(VLOptions& options, VLRefusal& refusal) const;
  void readPlayMode(VLOptions& options, VLRefusal& refusal) const;
  void readLTC(VLOptions& options, VLRefusal& refusal) const;
  void readOSC(VLOptions& options, VLRefusal& refusal) const;
  void readMedia(VLOptions& options, VLRefusal& refusal) const;

  VLOptions mGiven;  // what needs no check
  Text mFormat;
  bool mIsExactDrop = false;
  bool mIsNoExactDrop = false;
  Text mMode;
  Text mRatePercent;
  Text mPreroll;
  std::vector<std::string> mLoop;
  Text mLTCLevel;
  Text mLTCUserBits;
  Text mFreewheel;
  bool mConditions = false;
  bool mConditionsNot = false;
  Text mOSCPort;
  std::vector<std::string> mOSCAllow;
  std::vector<std::string> mOSCTargets;
  std::vector<std::string> mOSCForget;
  std::vector<std::string> mMedia;
  std::vector<std::string> mMediaFullscreen;  // one, maybe empty, when it is given
};

}  // namespace velor
