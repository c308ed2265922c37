// SPDX-License-Identifier: MIT
#include "tests/system/VelorProcess.h"

#include <filesystem>
#include <fstream>
#include <iterator>

namespace velor::test {
namespace {

std::string contentOf(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

VelorProcess::VelorProcess(std::vector<std::string> arguments,
                           std::vector<std::string> environment) {
  arguments.insert(arguments.begin(), VELOR_PROGRAM);
  // The test's own settings come last, so that a caller's folder wins.
  environment.insert(environment.begin(), "XDG_STATE_HOME=" + mFolder.path() + "/state");
  mProcess = Process(arguments, environment, mFolder.path() + "/out", mFolder.path() + "/err");
}

std::string VelorProcess::output() const {
  return contentOf(mFolder.path() + "/out");
}
std::string VelorProcess::errors() const {
  return contentOf(mFolder.path() + "/err");
}

std::string VelorProcess::log() const {
  std::string text;
  const std::string folder = mFolder.path() + "/state/velor/Logs";
  if (std::filesystem::exists(folder)) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      text += contentOf(entry.path());
    }
  }
  return text;
}

}  // namespace velor::test
