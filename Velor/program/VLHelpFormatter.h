// SPDX-License-Identifier: MIT
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace velor {

/// Lays out --help: usage, commands, and the options by group, in at most kColumns columns.
class VLHelpFormatter final : public CLI::FormatterBase {
 public:
  static constexpr std::size_t kColumns = 100;

  std::string make_help(const CLI::App* app, std::string name,
                        CLI::AppFormatMode mode) const override;
};

}  // namespace velor
