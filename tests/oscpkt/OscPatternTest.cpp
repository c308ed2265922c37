// SPDX-License-Identifier: MIT
#include "oscpkt/src/OscPattern.h"

#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <string>
#include <string_view>

#include "tests/oscpkt/ReferenceMatch.h"

namespace velor::oscpkt {
namespace {

constexpr std::string_view kPlay = "/velor/transport/play";
// The longest address that fits a datagram, with the least that must follow it.
constexpr std::size_t kLongestPattern = 65499;

std::optional<std::size_t> match(std::string_view pattern, std::string_view path) {
  return matchOscPattern(pattern, findOscWildcard(pattern), path);
}

std::string repeated(std::string_view unit, std::size_t size) {
  std::string text;
  while (text.size() + unit.size() <= size) {
    text += unit;
  }
  return text;
}

TEST(OscPattern, AllWaysAtOnceLeadAsFarAsEachWayAlone) {
  std::mt19937 random(20261121);
  const auto draw = [&random](std::string_view characters, std::size_t most) {
    std::string text(random() % (most + 1), '/');
    for (char& c : text) {
      c = characters[random() % characters.size()];
    }
    return text;
  };
  int whole = 0;
  int partly = 0;
  int nothing = 0;
  for (int i = 0; i < 400'000; ++i) {
    // Now and then the longest path.
    const std::string front = i % 16 == 0 ? repeated("/ab", kLongestOscPath - 9) : "";
    const std::string path = front + draw("/aab\xE9", 9);
    const std::string pattern =
        (i % 32 == 0 ? front : "") + draw(i % 2 == 0 ? "*/a?b[]!-{},\xE9" : "*//ab{,}[a]", 14);
    long steps = 20'000;
    const char* const far = referenceMatch(pattern.c_str(), path.c_str(), steps);
    if (steps < 0) {
      continue;
    }
    const auto result = match(pattern, path);
    ASSERT_EQ(result, far == nullptr ? std::nullopt : std::optional(far - pattern.c_str()))
        << pattern << " with " << path;
    ++(!result ? nothing : *result == pattern.size() ? whole : partly);
  }
  EXPECT_GT(whole, 4'000);
  EXPECT_GT(partly, 20'000);
  EXPECT_GT(nothing, 20'000);
}

// Followed one by one, the ways would take longer than any test may.
TEST(OscPattern, ManyStarsAndSlashesEndInTime) {
  const auto result = [](std::string_view begin, std::string_view unit, std::string_view end) {
    const std::string middle = repeated(unit, kLongestPattern - begin.size() - end.size());
    const std::string pattern = std::string(begin) + middle + std::string(end);
    const auto far = match(pattern, kPlay);
    return far ? static_cast<long>(pattern.size() - *far) : -1;  // how much was left
  };
  EXPECT_EQ(result("//", "{z,}*", "play"), 0);
  EXPECT_EQ(result("//", "{z,}*", "playz"), 1);
  EXPECT_EQ(result("//", "{z,}*", "/x"), 2);
  EXPECT_EQ(result("/*", "{z,}*", "x/y"), -1);
  EXPECT_EQ(result("/*//{", "y,la,", "pl}ay"), 0);
  EXPECT_EQ(result("/*//p[", "\x80-\x7F", "]ay"), 0);
  EXPECT_EQ(result("//t*/", "*", "*y"), 0);
  EXPECT_EQ(result("", "/", "/play"), 0);
}

}  // namespace
}  // namespace velor::oscpkt
