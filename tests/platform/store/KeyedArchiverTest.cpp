// SPDX-License-Identifier: MIT
#include "platform/store/KeyedArchiver.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <utility>

#include "platform/store/KeyedArchiveLimits.h"
#include "tests/platform/store/ArchiveNode.h"

namespace velor::store {
namespace {

template <class Encode>
std::string refusalOf(const Encode& encode) {
  KeyedArchiver coder;
  encode(coder);
  const auto document = coder.data();
  return document ? "taken" : document.error().text;
}

TEST(KeyedArchiver, ADocumentReadsAsWrittenInTheOrderOfTheCalls) {
  ArchiveNode inner;
  inner.text = "tab\t \"quoted\" \xC3\xA9";
  KeyedArchiver coder;
  coder.encodeInt32(-7, "\xC3\xA9");
  coder.encodeBool(true, "a.b");
  coder.encodeInt64(std::numeric_limits<std::int64_t>::min(), "long");
  coder.encodeDouble(0.1, "tenth");
  coder.encodeDouble(3, "three");
  coder.encodeNull("\"none\"");
  coder.encodeBytes(std::vector<std::uint8_t>{0x66, 0x6F, 0x6F, 0x62}, "block");
  coder.encodeObject(&inner, "object");
  const auto outer = std::make_shared<ArchiveNode>();
  outer->node = std::make_shared<ArchiveNode>(inner);
  coder.encodeArray(std::vector{outer, std::shared_ptr<ArchiveNode>()}, "array");
  coder.encodeArray(std::vector<std::shared_ptr<ArchiveNode>>(), "empty");
  EXPECT_EQ(coder.data().value(), R"({
  "é": -7,
  "a.b": true,
  "long": -9223372036854775808,
  "tenth": 0.1,
  "three": 3.0,
  "\"none\"": null,
  "block": {"$base64": "Zm9vYg=="},
  "object": {
    "$class": "Node",
    "text": "tab\t \"quoted\" é"
  },
  "array": [
    {
      "$class": "Node",
      "node": {"$class": "Node", "text": "tab\t \"quoted\" é"}
    },
    null
  ],
  "empty": []
}
)");
}

// A row that goes down as far as it is long.
std::shared_ptr<ArchiveNode> chain(std::size_t length) {
  std::shared_ptr<ArchiveNode> top;
  for (std::size_t i = 0; i < length; ++i) {
    auto node = std::make_shared<ArchiveNode>();
    node->node = std::move(top);
    top = std::move(node);
  }
  return top;
}

TEST(KeyedArchiver, WhatNoDocumentCanHoldIsRefusedWithItsPath) {
  using Limits = KeyedArchiveLimits;
  const std::vector nodes{std::make_shared<ArchiveNode>(), std::make_shared<ArchiveNode>()};
  nodes[1]->real = NAN;
  const std::string longest(Limits::kStringBytes, 'x');
  const auto encodeKeys = [](KeyedArchiver& coder, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      coder.encodeNull(std::to_string(i));
    }
  };
  const struct {
    std::function<void(KeyedArchiver&)> encode;
    const char* refusal;
  } cases[] = {
      {[](KeyedArchiver& coder) {
         coder.encodeBool(true, "there");
         coder.encodeInt32(1, "there");
         coder.encodeDouble(NAN, "of no interest after the first error");
       },
       "there: the key is there already"},
      {[](KeyedArchiver& coder) { coder.encodeInt32(1, "$class"); },
       "$class: a key with a '$' in front is the archive's own"},
      {[&](KeyedArchiver& coder) { coder.encodeArray(nodes, "nodes"); },
       "nodes[1].real: a number that is not finite"},
      {[&](KeyedArchiver& coder) { coder.encodeString(longest + 'x', "text"); },
       "text: more than 4194304 bytes of text"},
      {[&](KeyedArchiver& coder) { encodeKeys(coder, Limits::kKeysOfAnObject); }, "taken"},
      {[&](KeyedArchiver& coder) { encodeKeys(coder, Limits::kKeysOfAnObject + 1); },
       "4096: more than 4096 keys in an object"},
      {[](KeyedArchiver& coder) { coder.encodeObject(chain(Limits::kDepth - 1), "deep"); },
       "taken"},
      {[&](KeyedArchiver& coder) {
         for (const char* key : {"1", "2", "3", "4"}) {
           coder.encodeString(longest, key);
         }
       },
       "the document: more than 16777216 bytes in all"},
  };
  for (const auto& [encode, refusal] : cases) {
    EXPECT_EQ(refusalOf(encode), refusal);
  }
  const std::string deeper =
      refusalOf([](KeyedArchiver& coder) { coder.encodeObject(chain(Limits::kDepth), "deeper"); });
  EXPECT_TRUE(deeper.starts_with("deeper.node.node.")) << deeper;
  EXPECT_TRUE(deeper.ends_with(".node: nested deeper than 64")) << deeper;
}

TEST(KeyedArchiver, ANameInABadEncodingStillMakesADocumentThatCanBeRead) {
  ArchiveNode node;
  node.text = "key\xE9s \xC3";
  EXPECT_EQ(KeyedUnarchiver::read(node.document(), kArchiveClasses).value().decodeString("text"),
            "key\xEF\xBF\xBDs \xEF\xBF\xBD");
}

}  // namespace
}  // namespace velor::store
