// SPDX-License-Identifier: MIT
#include "Velor/app/VLDocuments.h"

#include <array>
#include <string_view>

#include "Velor/app/VLAppDelegate.h"
#include "Velor/app/VLOnMain.h"
#include "Velor/devices/VLDeviceManager.h"
#include "platform/crash/CrashReports.h"
#include "platform/host/Log.h"
#include "platform/store/DamagedFile.h"

namespace velor {

VLDocuments::VLDocuments(VLAppDelegate& app, const store::ApplicationFolders& folders)
    : mApp(app),
      mFolders(folders),
      mState(app),
      mRecovery(mFolders.state(), [this] { return mState.data(); }),
      mCrashReports(crash::CrashReports(mFolders.crashes()).takeNew()) {}

Expected<> VLDocuments::openFile(const std::filesystem::path& path) {
  std::error_code error;
  if (!std::filesystem::exists(path, error)) {
    mOpenError =
        Error{path.string() + ": " + (error ? error.message() : "No such file or directory")};
    return tl::unexpected(*mOpenError);
  }
  const auto loaded = mState.loadFromURL(path);
  mDidLoadFileAtStartup = loaded.has_value();
  mOpenError = loaded ? *loaded : loaded.error();
  return loaded.map([](const auto&) {});
}

Expected<std::filesystem::path> VLDocuments::lastStateFile() const {
  const auto folder = mFolders.createData();
  if (!folder) {
    VELOR_LOG_ERROR("failed to create application support directory %s, %s",
                    mFolders.data().c_str(), folder.error().text.c_str());
  }
  return folder.map([](const auto& made) { return made / "laststate.velor"; });
}

void VLDocuments::openLastState() {
  const auto last = lastStateFile();
  if (!last || mDidLoadFileAtStartup) {
    return;
  }
  const std::filesystem::path& path = *last;
  std::error_code error;
  const auto loaded = mState.loadFromURL(path);
  const std::optional<Error> damage = loaded ? *loaded : loaded.error();
  if (!damage || !std::filesystem::exists(path, error)) {
    return;
  }
  mLastStateError = Error{damage->text + "; " +
                          store::DamagedFile::keep(path, path.parent_path() / kDamagedStateName)};
  VELOR_LOG_WARNING("%s", mLastStateError->text.c_str());
}

Expected<> VLDocuments::saveLastState() {
  const auto saved =
      lastStateFile().and_then([this](const auto& last) { return mState.saveToURL(last); });
  if (!mFolders.data().empty() && !saved) {
    mRecovery.keep();
    return failure("cannot save the state: " + saved.error().text);
  }
  mRecovery.end();
  return {};
}

Expected<> VLDocuments::recover() {
  if (!mRecovery.leftBehind()) {
    return failure("no state of an interrupted run");
  }
  const auto loaded = mState.loadFromURL(*mRecovery.leftBehind());
  if (loaded) {
    mRecovery.take();
  }
  return loaded.map([](const auto&) {});
}

void VLDocuments::saveWithPanel(VLMainWindowOutlet& window) {
  window.beginSavePanel(VLAppDelegate::kFileType,
                        [weak = std::weak_ptr<VLDocuments>(mSelf), &window](const auto& path) {
                          const auto self = weak.lock();
                          if (self == nullptr || path.empty()) {
                            return;
                          }
                          if (const auto saved = self->mState.saveToURL(path); !saved) {
                            window.presentError(saved.error().text);
                          }
                        });
}

void VLDocuments::openWithPanel(VLMainWindowOutlet& window) {
  window.beginOpenPanel(VLAppDelegate::kFileType,
                        [weak = std::weak_ptr<VLDocuments>(mSelf), &window](const auto& path) {
                          const auto self = weak.lock();
                          if (self == nullptr || path.empty()) {
                            return;
                          }
                          const auto loaded = self->mState.loadFromURL(path);
                          if (const auto error = loaded ? *loaded : loaded.error()) {
                            window.presentError(error->text);
                          }
                        });
}

void VLDocuments::followEdits() {
  static constexpr std::array<std::string_view, 12> kEdited{
      "time",     "smpteFormat",  "smpteOffset", "stopTime",    "loopStartTime", "loopEndTime",
      "playMode", "playbackMode", "preroll",     "prerollTime", "playRate",      "MIDISyncSource"};
  const auto job = mSelf.job([](VLDocuments& self) { self.mRecovery.noteEdit(); });
  const auto note = [job](const auto&) { VLOnMain(job); };
  for (const std::string_view key : kEdited) {
    mEditTokens.push_back(mApp.clock().addObserver(key, note));
  }
  for (const std::string_view key : {"arrangedObjects", "selectionIndexes"}) {
    mEditTokens.push_back(mApp.markers().controller().addObserver(key, note));
  }
  mEditTokens.push_back(VLDeviceManager::sharedManager().addObserver("state", note));
  mEditTokens.push_back(mApp.mediaWindows().addObserver("encodedStates", note));
}

}  // namespace velor
