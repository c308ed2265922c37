// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Velor/osc/VLOSCHostFilterEntryDelegate.h"
#include "platform/store/KeyedCoding.h"

namespace velor {

/// A row of the host filter: a host, and whether its commands are obeyed. Queue: main, or
/// any thread before the row is shared.
class VLOSCHostFilterEntry final : public store::KeyedCoding {
 public:
  static constexpr std::string_view kClassName = "VLOSCHostFilterEntry";

  /// Not ticked. `address`: as from GCDAsyncUdpSocket::hostFromAddress; raises if empty.
  /// Holds the delegate weakly.
  static std::shared_ptr<VLOSCHostFilterEntry> initWithAddress(
      std::optional<std::string> address, std::weak_ptr<VLOSCHostFilterEntryDelegate> delegate);
  /// Without a delegate. Null when the archive has no address.
  static std::shared_ptr<VLOSCHostFilterEntry> initWithCoder(store::KeyedUnarchiver& coder);

  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(store::KeyedArchiver& coder) const override;

  bool enabled() const noexcept { return mEnabled; }
  /// Always calls the delegate. Makes the row permanent; see setForThisRun.
  void setEnabled(bool enabled);

  /// Whether the tick is for this run only; such a row is not saved.
  bool isForThisRun() const noexcept { return mForThisRun; }
  void setForThisRun(bool forThisRun) noexcept { mForThisRun = forThisRun; }

  const std::string& address() const noexcept { return mAddress; }

  void setDelegate(std::weak_ptr<VLOSCHostFilterEntryDelegate> delegate) {
    mDelegate = std::move(delegate);
  }

  /// For displays only.
  const std::optional<std::string>& hostName() const noexcept { return mHostName; }
  void setHostName(std::optional<std::string> hostName) { mHostName = std::move(hostName); }

 private:
  VLOSCHostFilterEntry(std::string address, std::weak_ptr<VLOSCHostFilterEntryDelegate> delegate)
      : mAddress(std::move(address)), mDelegate(std::move(delegate)) {}

  const std::string mAddress;
  std::weak_ptr<VLOSCHostFilterEntryDelegate> mDelegate;
  bool mEnabled = false;
  bool mForThisRun = false;
  std::optional<std::string> mHostName;
};

}  // namespace velor
