// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

namespace velor::test {

/// One of the settings in which a contract suite runs, for testing::Values.
template <class Setting>
struct Kind {
  const char* name;
  std::unique_ptr<Setting> (*make)();

  template <class Made>
  static Kind of(const char* name) {
    return {name, [] { return std::unique_ptr<Setting>(new Made); }};
  }
};

/// The names of such a suite's tests.
inline constexpr auto kNameOfKind = [](const auto& test) { return std::string(test.param.name); };

}  // namespace velor::test
