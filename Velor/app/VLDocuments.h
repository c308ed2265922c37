// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/app/VLApplicationState.h"
#include "Velor/app/VLRecovery.h"
#include "platform/host/Error.h"
#include "platform/host/WeakSelf.h"
#include "platform/store/ApplicationFolders.h"

namespace velor {

class VLAppDelegate;
class VLMainWindowOutlet;

/// The documents of the application: the one of the start, the state of the last run, and
/// the recovery copy. Queue: main.
class VLDocuments {
 public:
  /// Beside the state of the last run: one that could not be read.
  static constexpr const char* kDamagedStateName = "laststate.damaged.velor";

  VLDocuments(VLAppDelegate& app, const store::ApplicationFolders& folders);

  /// Opens the document of the start.
  Expected<> openFile(const std::filesystem::path& path);
  bool didLoadFileAtStartup() const noexcept { return mDidLoadFileAtStartup; }
  /// Why the document of the start, or which part of it, was not opened.
  const std::optional<Error>& openError() const noexcept { return mOpenError; }

  /// Restores the state of the last run, unless the document of the start was loaded. A
  /// damaged one is kept beside it, as the end overwrites it.
  void openLastState();
  /// Why the state of the last run was not restored, or not wholly, and where its file is
  /// kept.
  const std::optional<Error>& lastStateError() const noexcept { return mLastStateError; }
  /// Saves the state for the next run, as far as there is a folder for it. The recovery copy
  /// keeps a state that is not saved.
  Expected<> saveLastState();

  /// Asks for a file, and presents what fails.
  void saveWithPanel(VLMainWindowOutlet& window);
  void openWithPanel(VLMainWindowOutlet& window);

  /// From then on each edit of what a document holds is noted for the recovery copy.
  void followEdits();

  VLApplicationState& state() noexcept { return mState; }
  const VLApplicationState& state() const noexcept { return mState; }

  /// The reports of crashes that no start has named before this one, the oldest first.
  const std::vector<std::filesystem::path>& crashReports() const noexcept { return mCrashReports; }

  VLRecovery& recovery() noexcept { return mRecovery; }
  const VLRecovery& recovery() const noexcept { return mRecovery; }
  /// Restores the state of an interrupted run.
  Expected<> recover();

 private:
  // Fails without a folder for it.
  Expected<std::filesystem::path> lastStateFile() const;

  VLAppDelegate& mApp;
  const store::ApplicationFolders& mFolders;
  VLApplicationState mState;
  VLRecovery mRecovery;
  const std::vector<std::filesystem::path> mCrashReports;
  bool mDidLoadFileAtStartup = false;
  std::optional<Error> mOpenError;
  std::optional<Error> mLastStateError;
  std::vector<KVObserverToken> mEditTokens;
  const host::WeakSelf<VLDocuments> mSelf{this};
};

}  // namespace velor
