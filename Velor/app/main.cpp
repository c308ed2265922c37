// SPDX-License-Identifier: MIT
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "Velor/app/VLCommandLine.h"
#include "Velor/app/VLHeadless.h"
#include "platform/host/Log.h"
#include "platform/host/SystemHost.h"
#include "platform/store/ApplicationFolders.h"
#include "platform/store/LogFile.h"

int main(int argc, char** argv) {
  const velor::VLCommandLine commandLine =
      velor::VLParseCommandLine(std::vector<std::string>(argv + 1, argv + argc));
  if (commandLine.encode) {
    return velor::VLEncodeRun(*commandLine.encode);
  }
  if (commandLine.decode) {
    return velor::VLDecodeRun(*commandLine.decode);
  }
  if (!commandLine.options) {
    if (commandLine.exitStatus != 0) {
      std::fputs(commandLine.output.c_str(), stderr);
      return commandLine.exitStatus;
    }
    return std::fputs(commandLine.output.c_str(), stdout) >= 0 && std::fflush(stdout) == 0 ? 0 : 1;
  }
  try {
    velor::store::LogFile log(velor::store::ApplicationFolders().logs());
    log.install();
    const velor::host::SystemHost host;
    return velor::VLHeadlessRun(*commandLine.options);
  } catch (const std::exception& error) {
    VELOR_LOG_ERROR("ended by an exception: %s", error.what());
    std::fprintf(stderr, "velor: %s\n", error.what());
    return 1;
  }
}
