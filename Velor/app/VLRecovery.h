// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/host/Error.h"
#include "platform/host/Queue.h"
#include "platform/host/WeakSelf.h"

namespace velor {

/// A copy of the working state, from which an interrupted run can be restored. It holds an
/// edit 2 seconds after the last one, or 10 seconds after the copy before; a clean end
/// removes it. One program at a time keeps a copy; a second one runs without.
///
/// Queue: main; the disk is written on "velor.recovery".
class VLRecovery {
 public:
  static constexpr std::uint64_t kDelay = 2'000'000'000;      // ns, from the last edit
  static constexpr std::uint64_t kInterval = 10'000'000'000;  // ns, from copy to copy
  static constexpr const char* kFileName = "recovery.velor";
  /// The next start moves the copy of an interrupted run there, until it is restored or
  /// another run is interrupted.
  static constexpr const char* kOldFileName = "recovery.old.velor";

  /// Gives the document.
  using Encode = std::function<Expected<std::string>()>;

  /// Makes the folder if it is missing.
  VLRecovery(std::filesystem::path folder, Encode encode);
  /// Not a clean end: the copy stays.
  ~VLRecovery();
  VLRecovery(const VLRecovery&) = delete;
  VLRecovery& operator=(const VLRecovery&) = delete;

  /// Whether another program runs with this folder, and keeps the copy.
  bool isBesideAnother() const noexcept { return mIsBesideAnother; }
  /// Whether the last run was interrupted.
  bool wasCutOff() const noexcept { return mWasCutOff; }
  /// The copy of the latest interrupted run, unless it was restored.
  const std::optional<std::filesystem::path>& leftBehind() const noexcept { return mLeftBehind; }
  /// The copy has been restored: a clean end removes it.
  void take() noexcept { mTaken = std::exchange(mLeftBehind, {}); }

  void noteEdit();
  /// A clean end. Waits for the disk.
  void end();
  /// The end of a run whose state could not be saved: writes the copy. Waits for the disk.
  void keep();

 private:
  struct Lock {
    Lock() = default;
    ~Lock() { release(); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    bool isHeld() const noexcept { return descriptor >= 0; }
    void release() noexcept;

    int descriptor = -1;
  };

  void waitUntilDue();
  void writeCopy(std::uint64_t now);
  void setAside(const std::filesystem::path& copy);

  const std::filesystem::path mFolder;
  const Encode mEncode;
  Lock mLock;  // held while this program keeps the copy
  bool mIsBesideAnother = false;
  bool mWasCutOff = false;
  std::optional<std::filesystem::path> mLeftBehind;
  std::optional<std::filesystem::path> mTaken;
  // Host times.
  std::uint64_t mLastEdit = 0;
  std::optional<std::uint64_t> mFirstEdit;  // that is in no copy
  std::optional<std::uint64_t> mLastCopy;
  host::Queue mQueue{"velor.recovery"};
  const host::WeakSelf<VLRecovery> mSelf;
};

}  // namespace velor
