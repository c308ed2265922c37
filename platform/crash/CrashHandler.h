// SPDX-License-Identifier: MIT
#pragma once

#include <filesystem>
#include <string>

namespace velor::crash {

/// Writes a report when the program crashes: by SIGSEGV, SIGBUS, SIGILL, SIGFPE or SIGABRT,
/// also that of an exception that nothing catches, on any thread. The report holds the signal,
/// the version, the stack and the last lines of the log; CrashReports says where it lies, and
/// standard error where it cannot be written. Then the signal takes its default action, so
/// the core dump and the exit status are those of a program without a handler.
///
/// The handler calls nothing that allocates or waits for a lock. Should it be held up all the
/// same, the signal takes its action after five seconds. A crash within the handler ends one
/// part of the report; the next part follows.
///
/// When a thread has used up its stack, a report is written if it has a SignalStack: the main
/// thread, and those that this program starts. Threads of libraries have none.
class CrashHandler {
 public:
  /// For the rest of the process. Makes no file. Call it on the main thread before there are
  /// others. Does nothing in a program with a sanitizer, which has handlers of its own.
  static void install(const std::filesystem::path& folder, const std::string& version);
};

}  // namespace velor::crash
