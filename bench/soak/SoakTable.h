// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <string>

namespace velor::test {

/// The checks of a long run, printed as rows of a Markdown table.
class SoakTable {
 public:
  SoakTable() { std::printf("| what | figure | limit | |\n|---|---|---|---|\n"); }
  void row(const std::string& what, const std::string& figure, const std::string& limit,
           bool isGood) {
    std::printf("| %s | %s | %s | %s |\n", what.c_str(), figure.c_str(), limit.c_str(),
                isGood ? "good" : "**FAILED**");
    mIsGood = mIsGood && isGood;
  }
  /// Whether all rows are.
  bool isGood() const { return mIsGood; }

  /// As printf.
  static std::string text(const char* format, auto... values) {
    char buffer[256];
    std::snprintf(buffer, sizeof buffer, format, values...);
    return buffer;
  }

 private:
  bool mIsGood = true;
};

}  // namespace velor::test
