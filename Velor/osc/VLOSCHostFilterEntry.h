// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Velor/osc/VLOSCHostFilterEntryDelegate.h"
#include "platform/store/KeyedCoding.h"

namespace velor {

/// A row of the host filter: a host, and whether what it commands is done.
/// Main queue, or an owner that nobody else knows yet.
class VLOSCHostFilterEntry final : public store::KeyedCoding {
 public:
  static constexpr std::string_view kClassName = "VLOSCHostFilterEntry";

  /// Not ticked. `address`: the text that GCDAsyncUdpSocket::hostFromAddress gives;
  /// raises for none. The delegate is held weakly.
  static std::shared_ptr<VLOSCHostFilterEntry> initWithAddress(
      std::optional<std::string> address, std::weak_ptr<VLOSCHostFilterEntryDelegate> delegate);
  /// Without a delegate. Null where no address is stored.
  static std::shared_ptr<VLOSCHostFilterEntry> initWithCoder(store::KeyedUnarchiver& coder);

  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(store::KeyedArchiver& coder) const override;

  bool enabled() const noexcept { return mEnabled; }
  /// Tells the delegate in any case. What is ticked so lasts: see setForThisRun.
  void setEnabled(bool enabled);

  /// Whether the tick ends with the run; such a row is not saved.
  bool isForThisRun() const noexcept { return mForThisRun; }
  void setForThisRun(bool forThisRun) noexcept { mForThisRun = forThisRun; }

  const std::string& address() const noexcept { return mAddress; }

  void setDelegate(std::weak_ptr<VLOSCHostFilterEntryDelegate> delegate) {
    mDelegate = std::move(delegate);
  }

  /// For a display; nothing here knows it.
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
