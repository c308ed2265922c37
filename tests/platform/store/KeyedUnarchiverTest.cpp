// SPDX-License-Identifier: MIT
#include "platform/store/KeyedUnarchiver.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "platform/store/Base64.h"
#include "platform/store/KeyedArchiveLimits.h"
#include "tests/platform/store/ArchiveNode.h"

namespace velor::store {
namespace {

// Why the document is refused, when it is read or when its values are asked for.
std::string errorOf(std::string_view document) {
  const auto read =
      KeyedUnarchiver::read(document, kArchiveClasses).and_then([](KeyedUnarchiver coder) {
        ArchiveNode::initWithCoder(coder);
        return coder.check();
      });
  return read ? "none" : read.error().text;
}

TEST(KeyedUnarchiver, MissingKeysAndNullsHaveNoValueAndOthersCountForNothing) {
  auto coder = KeyedUnarchiver::read(
                   R"({"foreign": [1, [2, {"$class": "Unheard"}]], "small": null, "node": null,
          "nodes": [null, {"$class": "Leaf", "nothing": 1}, {"$class": "Node", "small": 7}],
          "real": 3, "text": "", "large": 9007199254740993})",
                   kArchiveClasses)
                   .value();
  EXPECT_TRUE(coder.containsValue("small"));
  EXPECT_FALSE(coder.containsValue("yes"));
  EXPECT_EQ(coder.decodeInt32("small"), std::nullopt);
  EXPECT_EQ(coder.decodeInt64("large"), 9007199254740993) << "more digits than a double has";
  EXPECT_EQ(coder.decodeObject<ArchiveNode>("node"), nullptr);
  EXPECT_EQ(coder.decodeArray<ArchiveNode>("node"), std::nullopt);
  EXPECT_EQ(coder.decodeDouble("real"), 3.0) << "a person may write it so";
  EXPECT_EQ(coder.decodeString("text"), "");
  const auto nodes = coder.decodeArray<ArchiveNode>("nodes");
  ASSERT_TRUE(nodes && nodes->size() == 3);
  EXPECT_EQ(nodes->at(0), nullptr);
  EXPECT_EQ(nodes->at(1), nullptr) << "what stands for nothing is of no wrong class";
  EXPECT_EQ(nodes->at(2)->small, 7);
}

TEST(KeyedUnarchiver, EachWrongValueIsReportedWithItsPath) {
  const struct {
    const char* document;
    const char* error;
  } cases[] = {
      {R"({"yes": 1, "real": true})", "yes: expected a bool, found the number 1"},
      {R"({"small": 1.5})", "small: expected a whole number of 32 bits, found the number 1.5"},
      {R"({"small": 2147483648})",
       "small: expected a whole number of 32 bits, found the number 2147483648"},
      {R"({"large": 9223372036854775808})",
       "large: expected a whole number of 64 bits, found the number 9223372036854775808"},
      {R"({"large": 1e30})", "large: expected a whole number of 64 bits, found the number 1e+30"},
      {R"({"block": true})", "block: expected a byte block, found a bool"},
      {R"({"block": {"$base64": "AB=="}})", "block.$base64: the text is not base64"},
      {R"({"nodes": [{"$class": "Node"}, {"$class": "Node", "node": "x"}]})",
       "nodes[1].node: expected an object of class Node, found a string"},
      {R"({"node": {"$class": 3}})",
       "node: expected an object of class Node, found an object without a class"},
      {R"({"node": {"$class": "Un\n\u007Fheard"}})",
       "node: expected an object of class Node, found an object of class Un??heard"},
      {R"({"node": {"$class": "Leaf"}})",
       "node: expected an object of class Node, found an object of class Leaf"},
  };
  for (const auto& [document, error] : cases) {
    EXPECT_EQ(errorOf(document), error);
  }
}

TEST(KeyedUnarchiver, DamagedDocumentsAreRefusedWithThePlaceOfTheDamage) {
  using Limits = KeyedArchiveLimits;
  std::string keys = "\"0\":0";
  for (std::size_t i = 1; i <= Limits::kKeysOfAnObject; ++i) {
    keys += ",\"" + std::to_string(i) + "\":0";
  }
  const struct {
    std::string document;
    const char* begin;  // of the error
  } cases[] = {
      {"12", "the document: expected an object, found the number 12"},
      {"{\n  \"a\": 1,\n}", "line 3, column 1: "},
      {std::string("{}\0{}", 5), "line 1, column 3: a zero byte"},
      {"{\"a\": 1e999}", "line 1, column 11: number overflow parsing '1e999'"},
      {"{\"a\": 1 // why\n}", "line 1, column 9: "},
      {"{\"a\": \"\xC3(\"}", "line 1, column 9: "},
      {"{\"a\": [0, {}, {\"x\": 1, \"x\": 1}]}", "a[2].x: the key is there twice"},
      {"{\"a\": " + repeated("[", Limits::kDepth), "a[0][0]"},
      {repeated("{\"a\":", 4'000'000 / 5), "a.a.a.a"},
      {"{\"a\": \"" + std::string(Limits::kStringBytes + 1, 'x') + "\"}",
       "a: a text of more than 4194304 bytes"},
      {"{\"" + std::string(Limits::kStringBytes + 1, 'x') + "\": 1}", ": a text of more than"},
      {"{\"a\": [" + repeated("0,", Limits::kValues) + "0]}",
       "a[999998]: more than 1000000 values in all"},
      {"{\"a\": {" + keys + "}}", "a.4095: more than 4096 keys"},
      {"{\"a\": \"" + std::string(Limits::kBytes, 'x') + "\"}",
       "the document: longer than 16777216 bytes"},
  };
  for (const auto& [document, begin] : cases) {
    const std::string error = errorOf(document);
    EXPECT_TRUE(error.starts_with(begin)) << document.substr(0, 60) << "\n  " << error;
    EXPECT_LT(error.size(), 6000U);
  }
  // As deep as allowed is well.
  EXPECT_EQ(errorOf("{\"a\": " + repeated("[", Limits::kDepth - 1) +
                    repeated("]", Limits::kDepth - 1) + "}"),
            "none");
}

TEST(Base64, MatchesThePublishedVectorsAndRefusesEveryOtherForm) {
  const std::pair<std::string, std::string> vectors[] = {
      // RFC 4648, section 10
      {"", ""},        {"f", "Zg=="},         {"fo", "Zm8="},
      {"foo", "Zm9v"}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};
  for (const auto& [plain, text] : vectors) {
    const std::vector<std::uint8_t> bytes(plain.begin(), plain.end());
    EXPECT_EQ(base64Encoded(bytes), text);
    EXPECT_EQ(base64Decoded(text), bytes);
  }
  EXPECT_EQ(base64Decoded("+/+/"), (std::vector<std::uint8_t>{0xFB, 0xFF, 0xBF}));
  for (const char* bad :
       {"Zg=", "Z===", "====", "Zh==", "Zm9=", "Zg==Zg==", "Zm-_", "Zm9v\n", "Zm9v===="}) {
    EXPECT_EQ(base64Decoded(bad), std::nullopt) << bad;
  }
}

}  // namespace
}  // namespace velor::store
