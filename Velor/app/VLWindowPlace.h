// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedCoding.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {

/// The place of a window or of something in it, by name, in the form of its toolkit.
class VLWindowPlace final : public store::KeyedCoding {
 public:
  static constexpr std::string_view kClassName = "VLWindowPlace";

  VLWindowPlace(std::string name, std::vector<std::uint8_t> place)
      : mName(std::move(name)), mPlace(std::move(place)) {}

  static std::shared_ptr<VLWindowPlace> initWithCoder(store::KeyedUnarchiver& coder) {
    return std::make_shared<VLWindowPlace>(
        coder.decodeString("name").value_or(""),
        coder.decodeBytes("place").value_or(std::vector<std::uint8_t>()));
  }
  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(store::KeyedArchiver& coder) const override {
    coder.encodeString(mName, "name");
    coder.encodeBytes(mPlace, "place");
  }

  const std::string& name() const { return mName; }
  const std::vector<std::uint8_t>& place() const { return mPlace; }

 private:
  const std::string mName;
  const std::vector<std::uint8_t> mPlace;
};

}  // namespace velor
