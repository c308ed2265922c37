// SPDX-License-Identifier: MIT
#include "platform/store/KeyedUnarchiver.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "platform/store/Base64.h"
#include "platform/store/KeyedArchiveError.h"
#include "platform/store/KeyedArchiveLimits.h"
#include "tests/platform/store/ArchiveNode.h"
#include "tests/support/TemporaryFolder.h"

namespace velor::store {
namespace {

std::string repeated(const std::string& text, std::size_t count) {
  std::string result;
  result.reserve(text.size() * count);
  for (std::size_t i = 0; i < count; ++i) {
    result += text;
  }
  return result;
}

// Why the document is refused, when it is read or when its values are asked for.
std::string errorOf(std::string_view document) {
  const auto result = KeyedUnarchiver::read(document, kArchiveClasses);
  if (!result) {
    return result.error;
  }
  try {
    ArchiveNode::initWithCoder(*result.coder);
  } catch (const KeyedArchiveError& error) {
    return error.what();
  }
  return "none";
}

TEST(KeyedUnarchiver, MissingKeysAndNullsHaveNoValueAndOthersCountForNothing) {
  const auto result = KeyedUnarchiver::read(
      R"({"foreign": [1, [2, {"$class": "Unheard"}]], "small": null, "node": null,
          "nodes": [null, {"$class": "Nothing"}, {"$class": "Node", "small": 7}],
          "real": 3, "text": ""})",
      kArchiveClasses);
  ASSERT_TRUE(result) << result.error;
  KeyedUnarchiver& coder = *result.coder;
  EXPECT_TRUE(coder.containsValue("small"));
  EXPECT_FALSE(coder.containsValue("large"));
  EXPECT_EQ(coder.decodeInt32("small"), std::nullopt);
  EXPECT_EQ(coder.decodeInt64("large"), std::nullopt);
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

TEST(KeyedUnarchiver, EachWrongValueIsToldWithItsPath) {
  const struct {
    const char* document;
    const char* error;
  } cases[] = {
      {R"({"yes": 1})", "yes: expected a bool, found the number 1"},
      {R"({"small": true})", "small: expected a whole number of 32 bits, found a bool"},
      {R"({"small": 1.5})", "small: expected a whole number of 32 bits, found the number 1.5"},
      {R"({"small": 2147483648})",
       "small: expected a whole number of 32 bits, found the number 2147483648"},
      {R"({"small": -2147483649})",
       "small: expected a whole number of 32 bits, found the number -2147483649"},
      {R"({"large": 9223372036854775808})",
       "large: expected a whole number of 64 bits, found the number 9223372036854775808"},
      {R"({"large": 1e30})", "large: expected a whole number of 64 bits, found the number 1e+30"},
      {R"({"real": "1"})", "real: expected a number, found a string"},
      {R"({"text": ["1"]})", "text: expected a string, found an array"},
      {R"({"text": {}})", "text: expected a string, found an object without a class"},
      {R"({"block": "AA=="})", "block: expected a byte block, found a string"},
      {R"({"block": {"$base64": 1}})", "block.$base64: expected base64, found the number 1"},
      {R"({"block": {"$base64": "AB=="}})", "block.$base64: the text is no base64"},
      {R"({"nodes": {"$base64": ""}})", "nodes: expected an array, found a byte block"},
      {R"({"nodes": [{"$class": "Node"}, {"$class": "Node", "node": "x"}]})",
       "nodes[1].node: expected an object of class Node, found a string"},
      {R"({"nodes": [{"$class": "Node", "nodes": [null, 5]}]})",
       "nodes[0].nodes[1]: expected an object of class Node, found the number 5"},
      {R"({"node": {"small": 1}})",
       "node: expected an object of class Node, found an object without a class"},
      {R"({"node": {"$class": 3}})",
       "node: expected an object of class Node, found an object without a class"},
      {R"({"node": {"$class": "Un\nheard"}})",
       "node: expected an object of class Node, found an object of class Un?heard"},
      {R"({"node": {"$class": "Leaf"}})",
       "node: expected an object of class Node, found an object of class Leaf"},
  };
  for (const auto& [document, error] : cases) {
    EXPECT_EQ(errorOf(document), error);
  }
  // The reader goes on where it stood.
  const auto result = KeyedUnarchiver::read(
      R"({"node": {"$class": "Node", "node": {"$class": "Node", "small": ""}}, "small": 4})",
      kArchiveClasses);
  ASSERT_TRUE(result) << result.error;
  EXPECT_THROW(result.coder->decodeObject<ArchiveNode>("node"), KeyedArchiveError);
  EXPECT_EQ(result.coder->decodeInt32("small"), 4);
}

TEST(KeyedUnarchiver, DamagedDocumentsAreRefusedWithThePlaceOfTheDamage) {
  using Limits = KeyedArchiveLimits;
  const std::string keys = [] {
    std::string text;
    for (std::size_t i = 0; i <= Limits::kKeysOfAnObject; ++i) {
      text += (i == 0 ? "\"" : ",\"") + std::to_string(i) + "\":0";
    }
    return text;
  }();
  const struct {
    std::string document;
    const char* begin;  // of the error
  } cases[] = {
      {"", "line 1, column 1: "},
      {"   ", "line 1, column 4: "},
      {"[]", "the document: expected an object, found an array"},
      {"12", "the document: expected an object, found the number 12"},
      {"{\n  \"a\": 1,\n}", "line 3, column 1: "},
      {"{\"a\": 1", "line 1, column 8: "},
      {"{\"a\": \"x", "line 1, column 9: "},
      {"{} {}", "line 1, column 4: "},
      {std::string("{}\0{}", 5), "line 1, column 3: a zero byte"},
      {"{\"a\": tru}", "line 1, column 10: "},
      {"{\"a\": NaN}", "line 1, column 7: "},
      {"{\"a\": -Infinity}", "line 1, column 8: "},
      {"{\"a\": 1e999}", "line 1, column 11: number overflow parsing '1e999'"},
      {"{\"a\": 01}", "line 1, column 8: "},
      {"{\"a\": 0x1}", "line 1, column 8: "},
      {"{'a': 1}", "line 1, column 2: "},
      {"{\"a\": 1 // why\n}", "line 1, column 9: "},
      {"{\"a\": \"\xC3(\"}", "line 1, column 9: "},
      {"{\"a\": \"\xED\xA0\x80\"}", "line 1, column 9: "},
      {"{\"a\": \"\\uD800\"}", "line 1, column 14: "},
      {"{\"a\": \"\n\"}", "line 1, column 8: "},
      {"{\"a\": {\"b\": 1, \"c\": 2, \"b\": 3}}", "a.b: the key stands there twice"},
      {"{\"a\": [0, {}, {\"x\": 1, \"x\": 1}]}", "a[2].x: the key stands there twice"},
      {"{\"a\": " + repeated("[", Limits::kDepth), "a[0][0]"},
      {repeated("{\"a\":", 4'000'000 / 5), "a.a.a.a"},
      {repeated("[", Limits::kBytes), "[0][0]"},
      {"{\"a\": \"" + std::string(Limits::kStringBytes + 1, 'x') + "\"}",
       "a: a text of more than 4194304 bytes"},
      {"{\"" + std::string(Limits::kStringBytes + 1, 'x') + "\": 1}", ": a text of more than"},
      {"{\"a\": [" + repeated("0,", Limits::kValues) + "0]}",
       "a[999998]: more than 1000000 values in all"},
      {"{\"a\": {" + keys + "}}", "a.4095: more than 4096 keys"},
      {"{\"a\": \"" + std::string(Limits::kBytes, 'x') + "\"}",
       "the document: longer than 16777216 bytes"},
      {"{\"" + std::string(100, 'k') + "\n\x01 \": 1}", "line 1, column 103: "},
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

// Whatever was read and understood once is written and read the same.
void expectStable(const std::string& document) {
  const auto first = KeyedUnarchiver::read(document, kArchiveClasses);
  if (!first) {
    EXPECT_FALSE(first.error.empty());
    return;
  }
  std::string written;
  try {
    written = ArchiveNode::initWithCoder(*first.coder)->document();
  } catch (const KeyedArchiveError& error) {
    EXPECT_NE(std::string(error.what()).find(": "), std::string::npos);
    return;
  }
  const auto second = KeyedUnarchiver::read(written, kArchiveClasses);
  ASSERT_TRUE(second) << second.error << "\n" << written;
  EXPECT_EQ(ArchiveNode::initWithCoder(*second.coder)->document(), written);
}

TEST(KeyedUnarchiver, NoDamageDoesHarm) {
  ArchiveNode node;
  node.yes = true;
  node.small = -5;
  node.large = std::int64_t{1} << 60;
  node.real = 1.0 / 3;
  node.text = "Keys \xF0\x9F\x8E\xB9 \"1\"";
  node.block = {1, 2, 3, 250};
  node.node = std::make_shared<ArchiveNode>(node);
  node.nodes = {{node.node, nullptr, std::make_shared<ArchiveNode>(*node.node)}};
  const std::string sound = node.document();
  ASSERT_EQ(errorOf(sound), "none");
  int refused = 0;
  for (std::size_t length = 0; length + 2 < sound.size(); ++length) {
    EXPECT_NE(errorOf(sound.substr(0, length)), "none") << length;
  }
  const std::string kTokens[] = {
      "{",     "}", "[",      "]",       "\"",   ":",    ",",       "null",
      "1e308", "-", "$class", "\\u0000", "\xFF", "true", "\"yes\"", "{\"$class\":\"Node\"}"};
  std::mt19937 random(20261121);
  const auto draw = [&random](std::size_t below) { return random() % below; };
  for (int round = 0; round < 6000; ++round) {
    std::string damaged = sound;
    for (std::size_t times = 1 + draw(4); times > 0; --times) {
      const std::size_t at = draw(damaged.size());
      switch (draw(5)) {
        case 0:
          damaged[at] = static_cast<char>(random());
          break;
        case 1:
          damaged.erase(at, 1 + draw(20));
          break;
        case 2:
          damaged.insert(at, kTokens[draw(std::size(kTokens))]);
          break;
        case 3:
          damaged.insert(at, damaged.substr(draw(damaged.size()), draw(60)));
          break;
        default:
          damaged[at] = static_cast<char>(damaged[at] ^ (1 << draw(8)));
          break;
      }
      if (damaged.empty()) {
        break;
      }
    }
    refused += errorOf(damaged) != "none" ? 1 : 0;
    expectStable(damaged);
    if (HasFailure()) {
      FAIL() << "round " << round << "\n" << damaged;
    }
  }
  EXPECT_GT(refused, 3000);
  EXPECT_LT(refused, 6000) << "some damage is none, and those were looked at too";
}

TEST(KeyedUnarchiver, AFileIsReadWithinItsLimitsAndErrorsNameIt) {
  const test::TemporaryFolder temporary;
  const auto path = temporary.path() / "state.velor";
  const auto readFile = [&] { return KeyedUnarchiver::readFile(path, kArchiveClasses); };
  EXPECT_NE(readFile().error.find(path.string()), std::string::npos);
  std::ofstream(path) << "{\"small\": 5}";
  const auto result = readFile();
  ASSERT_TRUE(result) << result.error;
  EXPECT_EQ(result.coder->decodeInt32("small"), 5);
  std::ofstream(path) << "{\"small\": }";
  EXPECT_TRUE(readFile().error.starts_with(path.string() + ": line 1, column 11: "))
      << readFile().error;
  // As long as a hole makes it: nothing of that may be read into memory.
  std::filesystem::resize_file(path, std::uintmax_t{1} << 40);
  EXPECT_NE(readFile().error.find("longer than 16777216 bytes"), std::string::npos);
}

TEST(Base64, MatchesThePublishedVectorsAndRefusesEveryOtherForm) {
  const std::pair<std::string, std::string> vectors[] = {// RFC 4648, section 10
                                                         {"", ""},
                                                         {"f", "Zg=="},
                                                         {"fo", "Zm8="},
                                                         {"foo", "Zm9v"},
                                                         {"foob", "Zm9vYg=="},
                                                         {"fooba", "Zm9vYmE="},
                                                         {"foobar", "Zm9vYmFy"}};
  for (const auto& [plain, text] : vectors) {
    const std::vector<std::uint8_t> bytes(plain.begin(), plain.end());
    EXPECT_EQ(base64Encoded(bytes), text);
    EXPECT_EQ(base64Decoded(text), bytes);
  }
  EXPECT_EQ(base64Decoded("+/+/"), (std::vector<std::uint8_t>{0xFB, 0xFF, 0xBF}));
  for (const char* bad : {"Z", "Zg", "Zg=", "Zg===", "Z===", "====", "Zh==", "Zm9=", "Zg==Zg==",
                          "Zm 9", "Zm-_", "Zm9v\n", "Zm9v===="}) {
    EXPECT_EQ(base64Decoded(bad), std::nullopt) << bad;
  }
}

}  // namespace
}  // namespace velor::store
