// SPDX-License-Identifier: MIT
#include "Velor/program/VLHelpFormatter.h"

#include <algorithm>
#include <vector>

namespace velor {
namespace {

constexpr std::size_t kNameColumns = 30;

std::string usageOf(const CLI::App& app, const std::string& name) {
  std::string usage = name;
  if (const CLI::App* parent = app.get_parent()) {
    usage = parent->get_name() + " " + app.get_name();
  }
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_required() && !option->get_positional()) {
      usage += " " + option->get_name() + " " + option->get_type_name();
    }
  }
  usage += " [OPTION...]";
  for (const CLI::Option* option : app.get_options()) {
    if (option->get_positional()) {
      usage += option->get_required() ? " FILE" : " [FILE]";
    }
  }
  return usage + "\n";
}

std::string line(std::string name, const std::string& description) {
  name.insert(0, 2, ' ');
  name.resize(std::max(kNameColumns, name.size() + 1), ' ');
  return name + description + "\n";
}

std::string names(const CLI::Option& option) {
  const std::string type = option.get_positional() ? "" : option.get_type_name();
  return option.get_name(option.get_positional(), true) + (type.empty() ? "" : " " + type);
}

}  // namespace

std::string VLHelpFormatter::make_help(const CLI::App* app, std::string name,
                                       CLI::AppFormatMode /*mode*/) const {
  std::string help = app->get_description() + "\n\nUsage: " + usageOf(*app, name);
  const auto commands = app->get_subcommands([](const CLI::App*) { return true; });
  for (const CLI::App* command : commands) {
    help += "       " + usageOf(*command, name);
  }
  for (const std::string& group : app->get_groups()) {
    help += "\n" + group + ":\n";
    for (const CLI::Option* option : app->get_options(
             [&group](const CLI::Option* each) { return each->get_group() == group; })) {
      help += line(names(*option), option->get_description());
    }
  }
  if (!commands.empty()) {
    help += "\nCommands (each has a --help of its own):\n";
  }
  for (const CLI::App* command : commands) {
    help += line(command->get_name(), command->get_description());
  }
  return help;
}

}  // namespace velor
