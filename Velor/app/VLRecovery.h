// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "platform/host/Queue.h"
#include "platform/host/WeakSelf.h"

namespace velor {

/// A copy of the working state beside all documents, which is there again when the
/// program was cut off. Edits are in it 2 seconds after the last one, or 10 seconds
/// after the copy before; a clean end removes it. One program at a time keeps a copy;
/// one that starts beside it does without.
///
/// Queue: main; the disk is written on "velor.recovery".
class VLRecovery {
 public:
  static constexpr std::uint64_t kDelay = 2'000'000'000;      // ns, from the last edit
  static constexpr std::uint64_t kInterval = 10'000'000'000;  // ns, from copy to copy
  static constexpr const char* kFileName = "recovery.velor";
  /// The copy of a run that was cut off lies there from the next start on, until it is taken
  /// up or another run is cut off.
  static constexpr const char* kOldFileName = "recovery.old.velor";

  /// Gives the document, or none when there can be none.
  using Encode = std::function<std::optional<std::string>()>;

  /// The folder is made when it is not there.
  VLRecovery(std::filesystem::path folder, Encode encode);
  /// Not a clean end: the copy stays.
  ~VLRecovery();
  VLRecovery(const VLRecovery&) = delete;
  VLRecovery& operator=(const VLRecovery&) = delete;

  /// Whether another program runs with this folder, and keeps the copy.
  bool isBesideAnother() const noexcept { return mIsBesideAnother; }
  /// Whether the last run was cut off.
  bool wasCutOff() const noexcept { return mWasCutOff; }
  /// The copy of the latest run that was cut off and is not taken up.
  const std::optional<std::filesystem::path>& leftBehind() const noexcept { return mLeftBehind; }
  /// It has been taken over: a clean end removes it.
  void take() noexcept { mTaken = std::exchange(mLeftBehind, {}); }

  void noteEdit();
  /// The clean end. Waits for the disk.
  void end();
  /// An end that is none, as the state is nowhere else: the copy has it as it is now.
  /// Waits for the disk.
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
