// SPDX-License-Identifier: MIT
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Velor/program/VLAnalyseLive.h"
#include "Velor/program/VLApplication.h"
#include "Velor/program/VLCommandLine.h"
#include "Velor/program/VLDemonstration.h"
#include "Velor/program/VLHeadless.h"
#include "Velor/program/VLInspect.h"
#include "Velor/program/VLMediaFullscreen.h"
#include "Velor/program/VLStandardOutput.h"
#include "Velor/program/VLWindowed.h"
#include "platform/crash/CrashHandler.h"
#include "platform/crash/CrashReports.h"
#include "platform/host/Log.h"
#include "platform/host/SystemHost.h"
#include "platform/store/ApplicationFolders.h"
#include "platform/store/LogFile.h"

namespace {

// Runs `body` with a host and its log.
int run(const std::function<int()>& body) {
  try {
    std::optional<velor::store::LogFile> log;
    if (const auto folder = velor::store::ApplicationFolders().logs(); !folder.empty()) {
      log.emplace(folder).install();
    }
    const velor::host::SystemHost host;
    return body();
  } catch (const std::exception& error) {
    VELOR_LOG_ERROR("ended by an exception: %s", error.what());
    std::fprintf(stderr, "velor: %s\n", error.what());
    return 1;
  }
}

int demonstrate() {
  return run(&velor::VLDemonstrationRun);
}

int refuseWithoutDisplay() {
  std::fputs("velor: cannot open a display; use --headless to run without a window\n", stderr);
  return 1;
}

int refuseFullscreenWithoutDisplay() {
  std::fputs("velor: cannot open a display, which --media-fullscreen needs\n", stderr);
  return 1;
}

int runWithWindows(const velor::VLOptions& options, velor::VLApplication::NoDisplay noDisplay) {
  if (!velor::VLApplication::isDisplayNamed()) {
    return noDisplay();
  }
  velor::VLApplication application(noDisplay);
  return run([&] {
    return options.mediaFullscreen ? velor::VLMediaFullscreenRun(application, options)
                                   : velor::VLWindowedRun(application, options);
  });
}

}  // namespace

int main(int argc, char** argv) {
  // A limit of the file size is an error of one write, and not the end of the clock.
  std::signal(SIGXFSZ, SIG_IGN);
  const std::filesystem::path crashes = velor::store::ApplicationFolders().crashes();
  velor::crash::CrashReports(crashes).prune();
  velor::crash::CrashHandler::install(crashes, VELOR_VERSION);
  const velor::VLCommandLine commandLine =
      velor::VLParseCommandLine(std::vector<std::string>(argv + 1, argv + argc));
  if (commandLine.encode) {
    return velor::VLEncodeRun(*commandLine.encode);
  }
  if (commandLine.decode) {
    return velor::VLDecodeRun(*commandLine.decode);
  }
  if (const auto& analyse = commandLine.analyse) {
    return analyse->file ? velor::VLAnalyseRun(*analyse)
                         : run([&] { return velor::VLAnalyseLiveRun(*analyse); });
  }
  if (commandLine.inspect) {
    return velor::VLInspectRun(*commandLine.inspect);
  }
  if (!commandLine.options) {
    if (commandLine.exitStatus != 0) {
      std::fputs(commandLine.output.c_str(), stderr);
      return commandLine.exitStatus;
    }
    std::fputs(commandLine.output.c_str(), stdout);
    return velor::VLStandardOutput::end(0);
  }
  const velor::VLOptions& options = *commandLine.options;
  if (options.headless || options.list) {
    return run([&options] { return velor::VLHeadlessRun(options); });
  }
  return runWithWindows(options, argc == 1                 ? &demonstrate
                                 : options.mediaFullscreen ? &refuseFullscreenWithoutDisplay
                                                           : &refuseWithoutDisplay);
}
