// SPDX-License-Identifier: MIT
#include "platform/store/KeyedPath.h"

#include "platform/store/Printable.h"

namespace velor::store {
namespace {

constexpr std::size_t kKeyBytesShown = 64;

}  // namespace

std::string KeyedPath::text() const {
  if (mSteps.empty()) {
    return "the document";
  }
  std::string result;
  for (const Step& step : mSteps) {
    if (const auto* index = std::get_if<std::size_t>(&step)) {
      result += "[" + std::to_string(*index) + "]";
    } else {
      result += result.empty() ? "" : ".";
      result += printable(std::get<std::string>(step), kKeyBytesShown);
    }
  }
  return result;
}

}  // namespace velor::store
