// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedCoding.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor::store {

/// An object with a value of each kind, any of which may be missing.
struct ArchiveNode final : KeyedCoding {
  static constexpr std::string_view kClassName = "Node";

  std::optional<bool> yes;
  std::optional<std::int32_t> small;
  std::optional<std::int64_t> large;
  std::optional<double> real;
  std::optional<std::string> text;
  std::optional<std::vector<std::uint8_t>> block;
  std::shared_ptr<ArchiveNode> node;
  std::optional<std::vector<std::shared_ptr<ArchiveNode>>> nodes;

  static std::shared_ptr<ArchiveNode> initWithCoder(KeyedUnarchiver& coder) {
    auto made = std::make_shared<ArchiveNode>();
    made->yes = coder.decodeBool("yes");
    made->small = coder.decodeInt32("small");
    made->large = coder.decodeInt64("large");
    made->real = coder.decodeDouble("real");
    made->text = coder.decodeString("text");
    made->block = coder.decodeBytes("block");
    made->node = coder.decodeObject<ArchiveNode>("node");
    made->nodes = coder.decodeArray<ArchiveNode>("nodes");
    return made;
  }

  std::string_view archiveClassName() const override { return kClassName; }

  void encodeWithCoder(KeyedArchiver& coder) const override {
    const auto encode = [&coder](const auto& value, auto method, const char* key) {
      if (value) {
        (coder.*method)(*value, key);
      }
    };
    encode(yes, &KeyedArchiver::encodeBool, "yes");
    encode(small, &KeyedArchiver::encodeInt32, "small");
    encode(large, &KeyedArchiver::encodeInt64, "large");
    encode(real, &KeyedArchiver::encodeDouble, "real");
    encode(text, &KeyedArchiver::encodeString, "text");
    encode(block, &KeyedArchiver::encodeBytes, "block");
    if (node != nullptr) {
      coder.encodeObject(node, "node");
    }
    if (nodes) {
      coder.encodeArray(*nodes, "nodes");
    }
  }

  /// The document whose keys are this object's, and those.
  Expected<std::string> archived(const KeyedRemainder& unknown = {}) const {
    KeyedArchiver coder;
    encodeWithCoder(coder);
    coder.encodeRemainder(unknown);
    return coder.data();
  }
  std::string document(const KeyedRemainder& unknown = {}) const {
    return archived(unknown).value();
  }
};

/// Never a node, and nothing at all where it says so: decodes to null then.
struct ArchiveLeaf final : KeyedCoding {
  static constexpr std::string_view kClassName = "Leaf";
  static std::shared_ptr<ArchiveLeaf> initWithCoder(KeyedUnarchiver& coder) {
    return coder.containsValue("nothing") ? nullptr : std::make_shared<ArchiveLeaf>();
  }
  std::string_view archiveClassName() const override { return kClassName; }
  void encodeWithCoder(KeyedArchiver&) const override {}
};

inline std::string repeated(std::string_view text, std::size_t count) {
  std::string result;
  result.reserve(text.size() * count);
  for (std::size_t i = 0; i < count; ++i) {
    result += text;
  }
  return result;
}

inline constexpr KeyedClass kArchiveClasses[] = {KeyedClass::of<ArchiveNode>(),
                                                 KeyedClass::of<ArchiveLeaf>()};

}  // namespace velor::store
