// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "platform/host/Queue.h"
#include "platform/store/ApplicationFolders.h"
#include "platform/store/UserDefaults.h"

namespace velor {

/// What outlives a run and belongs to no document: who may command by OSC, who hears of
/// the clock, and whether loops are looked for. Queue: main.
class VLUserSettings {
 public:
  explicit VLUserSettings(store::ApplicationFolders folders);

  /// Reads the file, and has OSC take its part over on the queue, where a network that is
  /// slow holds up nobody; what fails there is told on the main queue. The queue ends first.
  void load(host::Queue& background, std::function<void(const std::string& error)> tell);
  /// False, with the reason in the log, when it cannot be written.
  bool save() const;

  /// Any thread.
  bool disablesMTCLoopCheck() const noexcept { return mDisablesMTCLoopCheck.load(); }
  void setDisablesMTCLoopCheck(bool disables) noexcept { mDisablesMTCLoopCheck.store(disables); }

 private:
  const store::ApplicationFolders mFolders;
  const store::UserDefaults mDefaults;
  std::atomic<bool> mDisablesMTCLoopCheck{false};
};

}  // namespace velor
