// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "Velor/osc/VLOSCClient.h"

namespace velor {

/// A target that the user has entered and may edit. Queue: main.
class VLUserDefinedOSCClient final : public VLOSCClient {
 public:
  static constexpr std::string_view kClassName = "VLUserDefinedOSCClient";
  static constexpr std::uint16_t kDefaultPort = 9000;

  /// Like VLOSCClient's.
  static std::shared_ptr<VLUserDefinedOSCClient> initWithUdpHost(
      const std::optional<std::string>& host, std::uint16_t port);
  static std::shared_ptr<VLUserDefinedOSCClient> initWithCoder(store::KeyedUnarchiver& coder);

  std::string_view archiveClassName() const override { return kClassName; }

  /// No service announces it, so it always counts as alive.
  bool alive() const override { return true; }
  VLOSCClientStatusImage statusImage() const override { return VLOSCClientStatusImage::none; }
  bool userDefinedHost() const override { return true; }

  // Each reconnects.
  void setHost(const std::optional<std::string>& host) { moveTo(host, storedPort()); }
  void setPort(std::uint16_t port) { moveTo(storedHost(), port); }
  /// For an emptied cell: "port" becomes kDefaultPort, other keys raise.
  void setNilValueForKey(std::string_view key);

 private:
  VLUserDefinedOSCClient() = default;

  void moveTo(const std::optional<std::string>& host, std::uint16_t port) {
    setForThisRun(false);
    setHostPort(host, port);
  }
};

}  // namespace velor
