// SPDX-License-Identifier: MIT
#include "Velor/app/VLDocuments.h"

#include <array>
#include <string_view>

#include "Velor/app/VLAppDelegate.h"
#include "Velor/app/VLOnMain.h"
#include "Velor/devices/VLDeviceManager.h"
#include "platform/host/Log.h"
#include "platform/store/DamagedFile.h"

namespace velor {

VLDocuments::VLDocuments(VLAppDelegate& app, const store::ApplicationFolders& folders)
    : mApp(app),
      mFolders(folders),
      mState(app),
      mRecovery(mFolders.state(), [this] { return mState.data(); }) {}

bool VLDocuments::openFile(const std::filesystem::path& path) {
  std::error_code error;
  if (!std::filesystem::exists(path, error)) {
    mOpenError = path.string() + ": " + (error ? error.message() : "No such file or directory");
    return false;
  }
  mDidLoadFileAtStartup = mState.loadFromURL(path);
  mOpenError = mState.error();
  return mDidLoadFileAtStartup;
}

std::optional<std::filesystem::path> VLDocuments::lastStateFile() const {
  const auto folder = mFolders.createData();
  if (!folder) {
    VELOR_LOG_ERROR("failed to create application support directory %s, %s",
                    mFolders.data().c_str(), folder.error().text.c_str());
    return std::nullopt;
  }
  return *folder / "laststate.velor";
}

void VLDocuments::openLastState() {
  const auto last = lastStateFile();
  if (!last || mDidLoadFileAtStartup) {
    return;
  }
  const std::filesystem::path& path = *last;
  std::error_code error;
  const bool isWhole = mState.loadFromURL(path) && mState.error().empty();
  if (isWhole || !std::filesystem::exists(path, error)) {
    return;
  }
  mLastStateError = mState.error() + "; " +
                    store::DamagedFile::keep(path, path.parent_path() / kDamagedStateName);
  VELOR_LOG_WARNING("%s", mLastStateError.c_str());
}

std::string VLDocuments::saveLastState() {
  const auto last = lastStateFile();
  if (!mFolders.data().empty() && !(last && mState.saveToURL(*last))) {
    mRecovery.keep();
    return "cannot save the state: " + (last ? mState.error() : mFolders.createData().error().text);
  }
  mRecovery.end();
  return "";
}

bool VLDocuments::recover() {
  if (!mRecovery.leftBehind() || !mState.loadFromURL(*mRecovery.leftBehind())) {
    return false;
  }
  mRecovery.take();
  return true;
}

void VLDocuments::saveWithPanel(VLMainWindowOutlet& window) {
  window.beginSavePanel(VLAppDelegate::kFileType,
                        [weak = std::weak_ptr<VLDocuments>(mSelf), &window](const auto& path) {
                          const auto self = weak.lock();
                          if (self != nullptr && !path.empty() && !self->mState.saveToURL(path)) {
                            window.presentError(self->mState.error());
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
                          self->mState.loadFromURL(path);
                          if (!self->mState.error().empty()) {
                            window.presentError(self->mState.error());
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
}

}  // namespace velor
