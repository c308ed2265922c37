// SPDX-License-Identifier: MIT
// Any pattern with any path: following all ways at once leads as far as following each way
// alone, if that ends in time.
//
// The input is the path, a zero byte, and the pattern, up to another zero byte.
#include <algorithm>
#include <string>

#include "oscpkt/src/OscPattern.h"
#include "tests/fuzz/FuzzTarget.h"
#include "tests/oscpkt/ReferenceMatch.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace velor::oscpkt;
  const auto* const separator = std::find(data, data + size, std::uint8_t{0});
  const std::string path(data, separator);
  if (path.size() > kLongestOscPath) {
    return 0;
  }
  const auto* const begin = std::min(separator + 1, data + size);
  const std::string pattern(begin, std::find(begin, data + size, std::uint8_t{0}));
  const auto result = matchOscPattern(pattern, findOscWildcard(pattern), path);
  long steps = 100'000;
  const char* const far = referenceMatch(pattern.c_str(), path.c_str(), steps);
  const bool same =
      far == nullptr ? !result : result == static_cast<std::size_t>(far - pattern.c_str());
  require(steps < 0 || same,
          (pattern + " with " + path + ": as far as each way on its own").c_str());
  return 0;
}
