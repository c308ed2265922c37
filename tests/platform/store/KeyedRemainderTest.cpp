// SPDX-License-Identifier: MIT
#include "platform/store/KeyedRemainder.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/platform/store/ArchiveNode.h"

namespace velor::store {
namespace {

struct Opened {
  std::shared_ptr<ArchiveNode> node;
  KeyedRemainder unknown;
};

Opened open(const std::string& document) {
  auto coder = KeyedUnarchiver::read(document, kArchiveClasses).value();
  auto node = ArchiveNode::initWithCoder(coder);
  return {std::move(node), coder.remainder()};
}

TEST(KeyedRemainder, WhatALaterVersionWroteIsWrittenAgainBehindWhatIsKnown) {
  const Opened opened = open(R"({
    "later": {"z": [1, {"$base64": "no base64!"}, null, 0.5], "$class": "Unheard", "a": {}},
    "$mark": 7, "none": null, "text": "known", "large": null,
    "node": {"shape": [], "$class": "Node", "colour": "red", "small": 1,
             "node": {"$class": "Node", "texts": {"$class": 1}, "yes": true}},
    "nodes": [{"$class": "Node", "size": 2}, null, {"$class": "Node"}]})");
  ASSERT_NE(opened.node, nullptr);
  EXPECT_TRUE(opened.unknown.contains("none"));
  EXPECT_FALSE(opened.unknown.contains("large"));
  opened.node->node->small = 3;
  opened.node->real = 1.5;
  std::string written = opened.node->document(opened.unknown);
  std::erase_if(written, [](char c) { return c == ' ' || c == '\n'; });
  EXPECT_EQ(written,
            R"({"real":1.5,"text":"known",)"
            R"("node":{"$class":"Node","small":3,)"
            R"("node":{"$class":"Node","yes":true,"texts":{"$class":1}},)"
            R"("shape":[],"colour":"red"},)"
            R"("nodes":[{"$class":"Node","size":2},null,{"$class":"Node"}],)"
            R"("later":{"z":[1,{"$base64":"nobase64!"},null,0.5],"$class":"Unheard","a":{}},)"
            R"("$mark":7,"none":null})");
}

TEST(KeyedRemainder, KeysThatAreWrittenAlreadyWin) {
  const Opened opened = open(R"({"version": 9, "other": 1})");
  KeyedArchiver coder;
  coder.encodeInt32(2, "version");
  coder.encodeRemainder(opened.unknown);
  coder.encodeRemainder(opened.unknown);
  EXPECT_EQ(coder.data().value(), "{\n  \"version\": 2,\n  \"other\": 1\n}\n");
  EXPECT_TRUE(open(R"({"small": 1, "node": null})").unknown.empty());
}

}  // namespace
}  // namespace velor::store
