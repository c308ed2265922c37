// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "tests/support/Servers.h"

namespace velor::test {

/// The variables by which the program keeps all that it keeps in this folder.
std::vector<std::string> VelorFolders(const TemporaryFolder& folder);

/// How often the part stands in the text.
std::size_t countOf(const std::string& text, const std::string& part);

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

/// The program on a terminal of its own.
class VelorOnTerminal {
 public:
  VelorOnTerminal(unsigned short columns, std::vector<std::string> arguments,
                  std::vector<std::string> environment);
  ~VelorOnTerminal();
  VelorOnTerminal(const VelorOnTerminal&) = delete;
  VelorOnTerminal& operator=(const VelorOnTerminal&) = delete;

  /// Reads what it writes until the text holds `part`; false after `seconds` and
  /// when it ends before.
  bool readUntil(const std::string& part, double seconds);
  /// Ends it by the signal, reads the rest, gives the exit status.
  int end(int signal);
  /// Holds the output, as Ctrl-S does: the terminal takes nothing more.
  void hold();
  /// Ends it by the signal without reading; -1 when it still runs after `seconds`.
  int endUnread(int signal, double seconds);
  /// All that it has written.
  const std::string& text() const { return mText; }

 private:
  bool readSome(int milliseconds);
  void send(int signal);

  TemporaryFolder mFolder;
  int mTerminal = -1;
  Process mProcess;
  std::string mText;
};

}  // namespace velor::test
