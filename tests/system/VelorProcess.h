// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "tests/support/Servers.h"

namespace velor::test {

/// The program, started with these arguments, with folders of its own.
class VelorProcess {
 public:
  /// `environment` holds what the server wants, and more.
  VelorProcess(std::vector<std::string> arguments, std::vector<std::string> environment);

  /// Ends it by the signal and gives its exit status.
  int end(int signal) { return mProcess.end(signal); }
  int waitForEnd(double seconds) { return mProcess.waitForEnd(seconds); }
  bool isRunning() { return mProcess.isRunning(); }
  pid_t id() const { return mProcess.id(); }

  /// What it has written so far, to standard output and standard error.
  std::string output() const;
  std::string errors() const;
  /// All its log files in one.
  std::string log() const;

 private:
  TemporaryFolder mFolder;
  Process mProcess;
};

}  // namespace velor::test
