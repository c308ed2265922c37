// SPDX-License-Identifier: MIT
#include "Velor/program/VLCommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>

#include "Velor/program/VLAnalyseArguments.h"
#include "Velor/program/VLDecodeArguments.h"
#include "Velor/program/VLEncodeArguments.h"
#include "Velor/program/VLHelpFormatter.h"
#include "Velor/program/VLRefusal.h"
#include "Velor/program/VLRunArguments.h"
#include "platform/store/Printable.h"

namespace velor {
namespace {

constexpr int kUsageStatus = 2;

using Arguments = std::vector<std::string>;

// Beside a command, which has options of its own, or beside an option that goes with no
// other but `other`.
void refuseOthers(VLRefusal& refusal, const CLI::App& app, const std::string& one,
                  const std::string& other = "") {
  const std::string problem = " cannot be used with " + one;
  for (const CLI::Option* option : app.get_options()) {
    const std::string name = option->get_name();
    refusal.refuseIf(option->count() > 0 && name != one && name != other, name + problem);
  }
}

std::string nameWithType(const CLI::Option& option) {
  const std::string type = option.get_type_name();
  return option.get_name() + (type.empty() ? "" : " " + type);
}

// The arguments ended, or "=" was followed by nothing, where this option needs a value.
const CLI::Option* lastOptionOf(const CLI::App& app, const Arguments& arguments) {
  for (auto each = arguments.rbegin(); each != arguments.rend(); ++each) {
    const std::string name = each->substr(0, each->find('='));
    if (const CLI::Option* option = name.empty() ? nullptr : app.get_option_no_throw(name)) {
      return option;
    }
  }
  return nullptr;
}

// Reports what the parser refused, in the words of this program.
std::string reasonOf(CLI::App& app, const Arguments& arguments) {
  const CLI::App& used = app.get_subcommands().empty() ? app : *app.get_subcommands().front();
  const Arguments rest = app.remaining(true);
  const auto unknown = std::find_if(rest.begin(), rest.end(),
                                    [](const std::string& each) { return each.starts_with('-'); });
  if (unknown != rest.end()) {
    return "unknown option " + *unknown + " (--help lists all options)";
  }
  for (const CLI::Option* option : used.get_options()) {
    const auto count = static_cast<int>(option->count());
    const int most = option->get_items_expected_max();
    if (most > 0 && count > most) {
      return option->get_name() + " is given more than once";
    }
    if (count > 0 && count < option->get_items_expected_min()) {
      return option->get_name() + " needs " + option->get_type_name();
    }
  }
  if (const CLI::Option* last = lastOptionOf(used, arguments); last && last->count() == 0) {
    return last->get_name() + " needs " + last->get_type_name();
  }
  for (const CLI::Option* option : used.get_options()) {
    if (option->get_required() && option->count() == 0) {
      return used.get_name() + " needs " + nameWithType(*option);
    }
  }
  return rest.empty() ? "the arguments cannot be read (--help lists all options)"
                      : "unexpected argument '" + rest.front() + "'";
}

VLCommandLine refused(const std::string& error) {
  VLCommandLine result;
  result.exitStatus = kUsageStatus;
  result.output = "velor: " + store::printable(error) + "\n";
  return result;
}

}  // namespace

VLCommandLine VLParseCommandLine(const Arguments& arguments) {
  CLI::App app{"Velor: timecode for stage, studio and installation work", "velor"};
  app.formatter(std::make_shared<VLHelpFormatter>());
  const VLRunArguments run(app);
  std::string inspected;
  app.add_option("--inspect", inspected, "Print what a document holds and what is wrong with it")
      ->type_name("FILE")
      ->group("Document");
  app.set_help_flag("--help,-h", "Print this help")->group("Run");
  app.set_version_flag("--version", std::string("velor ") + VELOR_VERSION, "Print the version")
      ->group("Run");
  const VLEncodeArguments encode(app);
  const VLDecodeArguments decode(app);
  const VLAnalyseArguments analyse(app);
  app.require_subcommand(0, 1);

  try {
    app.parse(Arguments(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::CallForHelp&) {
    VLCommandLine help;
    help.output = app.help();
    return help;
  } catch (const CLI::CallForVersion&) {
    VLCommandLine version;
    version.output = app.version() + "\n";
    return version;
  } catch (const CLI::ParseError&) {
    return refused(reasonOf(app, arguments));
  }

  VLCommandLine result;
  VLRefusal refusal;
  const auto take = [&refusal](const auto& options, auto& target) {
    refusal.check(options);
    if (options) {
      target = *options;
    }
  };
  if (encode.command().parsed()) {
    refuseOthers(refusal, app, "encode");
    take(encode.options(), result.encode);
  } else if (decode.command().parsed()) {
    refuseOthers(refusal, app, "decode");
    take(decode.options(), result.decode);
  } else if (analyse.command().parsed()) {
    refuseOthers(refusal, app, "analyse");
    take(analyse.options(), result.analyse);
  } else if (app.count("--inspect") > 0) {
    refuseOthers(refusal, app, "--inspect");
    result.inspect = inspected;
  } else {
    if (app.count("--list") > 0) {
      refuseOthers(refusal, app, "--list", "--headless");
    }
    take(run.options(), result.options);
  }
  const auto all = refusal.resultOf(std::move(result));
  return all ? *all : refused(all.error().text);
}

}  // namespace velor
