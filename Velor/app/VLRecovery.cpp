// SPDX-License-Identifier: MIT
#include "Velor/app/VLRecovery.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "platform/host/Host.h"
#include "platform/host/Log.h"
#include "platform/store/ApplicationFolders.h"
#include "platform/store/AtomicFile.h"

namespace velor {

VLRecovery::VLRecovery(std::filesystem::path folder, Encode encode)
    : mFolder(std::move(folder)), mEncode(std::move(encode)), mSelf(this) {
  if (const auto made = store::createPrivateFolder(mFolder); !made) {
    VELOR_LOG_WARNING("no copy for a recovery is kept: %s", made.error().text.c_str());
    return;
  }
  const std::string name = mFolder / "recovery.lock";
  mLock.descriptor = open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (!mLock.isHeld() || flock(mLock.descriptor, LOCK_EX | LOCK_NB) != 0) {
    mIsBesideAnother = errno == EWOULDBLOCK;
    VELOR_LOG_INFO("no copy for a recovery is kept: %s: %s", name.c_str(),
                   std::generic_category().message(errno).c_str());
    mLock.release();
    return;
  }
  std::error_code error;
  if (const auto copy = mFolder / kFileName; std::filesystem::is_regular_file(copy, error)) {
    mWasCutOff = true;
    setAside(copy);
  } else if (const auto old = mFolder / kOldFileName;
             std::filesystem::is_regular_file(old, error)) {
    mLeftBehind = old;
  }
}

// Before there is a copy of this run.
void VLRecovery::setAside(const std::filesystem::path& copy) {
  std::error_code error;
  mLeftBehind = mFolder / kOldFileName;
  std::filesystem::rename(copy, *mLeftBehind, error);
  if (error) {
    VELOR_LOG_WARNING("%s: %s", copy.c_str(), error.message().c_str());
    mLeftBehind = copy;
  }
}

VLRecovery::~VLRecovery() = default;

void VLRecovery::Lock::release() noexcept {
  if (descriptor >= 0) {
    close(std::exchange(descriptor, -1));
  }
}

void VLRecovery::noteEdit() {
  if (!mLock.isHeld()) {
    return;
  }
  mLastEdit = host::current().AudioGetCurrentHostTime();
  if (!mFirstEdit) {
    mFirstEdit = mLastEdit;
    waitUntilDue();
  }
}

void VLRecovery::waitUntilDue() {
  host::Host& host = host::current();
  const std::uint64_t now = host.AudioGetCurrentHostTime();
  // Edits that go on put it off, but not for ever.
  std::uint64_t due = std::min(mLastEdit + kDelay, *mFirstEdit + kInterval);
  if (mLastCopy) {
    due = std::max(due, *mLastCopy + kInterval);
  }
  if (now >= due) {
    writeCopy(now);
    return;
  }
  host.mainQueue().after(due - now, mSelf.job([](VLRecovery& self) {
    if (self.mLock.isHeld()) {
      self.waitUntilDue();
    }
  }));
}

void VLRecovery::writeCopy(std::uint64_t now) {
  mFirstEdit.reset();
  mLastCopy = now;
  if (auto document = mEncode()) {
    mQueue.async([path = mFolder / kFileName, document = std::move(*document)] {
      if (const auto written = store::AtomicFile::write(path, document); !written) {
        VELOR_LOG_WARNING("%s", written.error().text.c_str());
      }
    });
  }
}

void VLRecovery::keep() {
  if (mLock.isHeld()) {
    writeCopy(host::current().AudioGetCurrentHostTime());
    mQueue.sync([] {});
  }
}

void VLRecovery::end() {
  mQueue.sync([] {});
  if (!mLock.isHeld()) {
    return;
  }
  std::error_code error;
  std::filesystem::remove(mFolder / kFileName, error);
  if (mTaken) {
    std::filesystem::remove(*mTaken, error);
  }
  mLock.release();
}

}  // namespace velor
