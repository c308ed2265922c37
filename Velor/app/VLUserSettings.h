// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Velor/app/VLWindowPlace.h"
#include "Velor/osc/VLOSCServerSettings.h"
#include "platform/host/Error.h"
#include "platform/host/Queue.h"
#include "platform/store/ApplicationFolders.h"
#include "platform/store/KeyedRemainder.h"
#include "platform/store/UserDefaults.h"

namespace velor {

/// The settings that outlive a run and belong to no document: the OSC hosts and targets,
/// whether the clock checks for MTC loops, and the places of windows. Queue: main.
class VLUserSettings {
 public:
  explicit VLUserSettings(store::ApplicationFolders folders);

  /// Reads the file, and has OSC take its part over on the queue, where a slow network
  /// holds up nobody. Reports what fails on the main queue. The queue ends first.
  void load(host::Queue& background, std::function<void(const Error&)> tell);
  /// False, with the reason in the log, when it cannot be written.
  bool save() const;
  /// The saved port at which this run could not receive OSC, and the next run will not try.
  std::optional<std::uint16_t> lostOSCPort() const;

  /// Any thread.
  bool disablesMTCLoopCheck() const noexcept { return mDisablesMTCLoopCheck.load(); }
  void setDisablesMTCLoopCheck(bool disables) noexcept { mDisablesMTCLoopCheck.store(disables); }

  /// As it was set last, in this run or an earlier one; empty: never.
  const std::vector<std::uint8_t>& windowPlace(const std::string& name) const;
  void setWindowPlace(const std::string& name, std::vector<std::uint8_t> place);

 private:
  void encode(store::KeyedArchiver& coder) const;

  const store::ApplicationFolders mFolders;
  const store::UserDefaults mDefaults;
  // Both for the keys of a later version.
  std::shared_ptr<const VLOSCServerSettings> mServerSettings;
  store::KeyedRemainder mRemainder;
  std::vector<std::shared_ptr<VLWindowPlace>> mWindowPlaces;
  std::atomic<bool> mDisablesMTCLoopCheck{false};
  std::atomic<std::uint16_t> mRefusedOSCPort{0};
};

}  // namespace velor
