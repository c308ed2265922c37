// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "platform/store/KeyedCoding.h"

namespace velor {

/// The settings of a VLOSCServer.
struct VLOSCServerSettings final : store::KeyedCoding {
  static constexpr std::string_view kClassName = "VLOSCServerSettings";

  /// A value out of its range is an error of the coder.
  static std::shared_ptr<VLOSCServerSettings> initWithCoder(store::KeyedUnarchiver& coder);

  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(store::KeyedArchiver& coder) const override;

  bool running = false;
  std::uint16_t port = 0;
  /// The keyed archive of the list of hosts.
  std::vector<std::uint8_t> hostFilter;
  std::uint32_t filterMode = 0;
};

}  // namespace velor
