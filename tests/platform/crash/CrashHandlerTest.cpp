// SPDX-License-Identifier: MIT
#include "platform/crash/CrashHandler.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/crash/CrashReports.h"
#include "platform/host/Log.h"
#include "platform/host/SystemHost.h"
#include "tests/support/FullDisk.h"
#include "tests/support/TemporaryFolder.h"

namespace velor::crash {
namespace {

using test::fileContents;
using test::FullDisk;
using test::TemporaryFolder;
using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace fs = std::filesystem;
using Body = std::function<void()>;

// Each of them is a fault on purpose, which the compiler must not see.
template <class T>
T* hidden(std::uintptr_t address) {
  asm volatile("" : "+r"(address));
  return reinterpret_cast<T*>(address);
}

void readNull() {
  *hidden<volatile int>(0);
}

[[gnu::noinline]] int recurse(int depth) {
  volatile char used[4096] = {};
  return depth < 0 ? 0 : recurse(depth + 1) + used[depth % 4096];
}

// The walk of the stack reads the code that a return address leads to.
[[gnu::noinline]] void crashOnTornStack() {
  static_cast<void**>(__builtin_frame_address(0))[1] = hidden<void>(16);
  readNull();
}

void readBeyondAFile() {
  std::FILE* const file = std::tmpfile();
  const auto* page =
      static_cast<volatile char*>(mmap(nullptr, 4096, PROT_READ, MAP_SHARED, fileno(file), 0));
  static_cast<void>(*page);
}

void throwUncaught() {
  throw std::runtime_error("no such desk\x1b[2J");
}

void onThread(const Body& body) {
  host::SystemHost host;
  host.startThread("velor.trial", body)->join();
}

struct Crash {
  int signal = 0;  // that ended the process
  std::string report;
  std::string errors;
};

class CrashHandlerTest : public testing::Test {
 protected:
  // Runs the body in a process with a handler.
  Crash crashBy(const Body& body, const fs::path& folder) const {
    std::array<int, 2> ends{};
    static_cast<void>(!pipe(ends.data()));
    const pid_t id = fork();
    if (id == 0) {
      const rlimit none{};
      setrlimit(RLIMIT_CORE, &none);
      dup2(ends[1], STDERR_FILENO);
      close(ends[0]);
      close(ends[1]);
      CrashHandler::install(folder, "1.2.3");
      VELOR_LOG_INFO("the line before");
      body();
      _exit(0);
    }
    close(ends[1]);
    Crash crash;
    char each = 0;
    while (read(ends[0], &each, 1) == 1) {
      crash.errors += each;
    }
    close(ends[0]);
    int status = 0;
    waitpid(id, &status, 0);
    crash.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    for (const fs::path& report : CrashReports(folder).takeNew()) {
      crash.report += fileContents(report);
    }
    return crash;
  }
  Crash crashBy(const Body& body) const { return crashBy(body, reports()); }
  fs::path reports() const { return mFolder.path() / "state" / "Crashes"; }

  const TemporaryFolder mFolder;
};

TEST_F(CrashHandlerTest, EachSignalOnAnyThreadIsReportedAndKeepsItsEffect) {
  struct Case {
    int signal;
    Body body;
    const char* text;
  };
  const Case cases[] = {
      {SIGSEGV, &readNull, "address 0x0\n"},
      {SIGSEGV, [] { onThread(&readNull); }, "thread   velor.trial\n"},
      {SIGSEGV, [] { recurse(0); }, "...\n"},
      {SIGSEGV, [] { onThread([] { recurse(0); }); }, "...\n"},
      {SIGSEGV, [] { hidden<void()>(0)(); }, " 0  0x0\n 1  velor+0x"},
      {SIGSEGV, [] { raise(SIGSEGV); }, "libc.so.6+0x"},
      {SIGBUS, &readBeyondAFile, "SIGBUS, code 2"},
      {SIGILL, [] { __builtin_trap(); }, "SIGILL"},
      {SIGFPE, [] { raise(SIGFPE); }, "SIGFPE"},
      {SIGABRT, &std::abort, "abort+0x"},
      {SIGABRT, [] { onThread(&throwUncaught); },
       "thrown   std::runtime_error: no such desk?[2J\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text);
    const Crash crash = crashBy(c.body);
    EXPECT_EQ(crash.signal, c.signal) << crash.errors;
    EXPECT_THAT(crash.report, AllOf(HasSubstr(c.text), HasSubstr("version  1.2.3\nbuild id "),
                                    HasSubstr("\nStack"), Not(HasSubstr("in this part")),
                                    EndsWith("  the line before\n")));
    EXPECT_THAT(crash.errors, HasSubstr("the report is " + reports().string() + "/crash-"));
  }
}

TEST_F(CrashHandlerTest, ACrashWithinTheReportEndsOnePartOfItAndOthersWaitForIt) {
  const Crash torn = crashBy(&crashOnTornStack);
  EXPECT_EQ(torn.signal, SIGSEGV);
  EXPECT_THAT(torn.report, AllOf(HasSubstr("(SIGSEGV in this part of the report)"),
                                 EndsWith("  the line before\n")));

  const Crash several = crashBy([] {
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
      threads.emplace_back(&readNull);
    }
    threads[0].join();
  });
  EXPECT_EQ(several.signal, SIGSEGV);
  const auto first = several.report.find("\nStack");
  EXPECT_NE(first, std::string::npos);
  EXPECT_EQ(several.report.rfind("\nStack"), first) << several.report;
}

TEST_F(CrashHandlerTest, WhatNoFileTakesGoesToStandardError) {
  for (const Crash& crash :
       {crashBy(&readNull, "/proc/nowhere"), crashBy(&readNull, ""), crashBy([] {
          const FullDisk disk(0);
          readNull();
        })}) {
    EXPECT_EQ(crash.signal, SIGSEGV);
    EXPECT_EQ(crash.report, "");
    EXPECT_THAT(crash.errors, AllOf(HasSubstr("cannot be written"), HasSubstr("\nStack"),
                                    EndsWith("  the line before\n")));
  }
  // A disk that fills up keeps what it has.
  const Crash cut = crashBy([] {
    const FullDisk disk(300);
    readNull();
  });
  EXPECT_THAT(cut.errors, AllOf(HasSubstr("(File too large)"), EndsWith("  the line before\n")));
  EXPECT_EQ(cut.report.size(), 300U);
}

TEST_F(CrashHandlerTest, TheLastLinesOfTheLogAreKeptInTheirOrder) {
  const Crash crash = crashBy([] {
    for (int i = 0; i < 120; ++i) {
      VELOR_LOG_INFO("line %d\n", i);
    }
    readNull();
  });
  std::string wanted = "Last lines of the log .UTC.\n";
  for (int i = 70; i < 120; ++i) {
    wanted += "[0-9:.]+  line " + std::to_string(i) + "\\?\n";
  }
  EXPECT_THAT(crash.report, testing::ContainsRegex(wanted + "$"));
}

TEST_F(CrashHandlerTest, ReportsAreGivenOnceAndABoundedNumberIsKeptWithThoseThatNobodySaw) {
  fs::create_directories(reports());
  const auto make = [&](int number, bool isNew) {
    const std::string name = reports() / (CrashReports::kPrefix + std::to_string(number) + ".txt");
    std::ofstream{name};
    if (isNew) {
      std::ofstream{name + CrashReports::kMark};
    }
    return fs::path(name);
  };
  const fs::path unseen = make(100, true);  // by a clock that was late
  for (int i = 101; i < 120; ++i) {
    make(i, false);
  }
  const CrashReports all(reports());
  all.prune();
  EXPECT_EQ(std::distance(fs::directory_iterator(reports()), {}), 1 + CrashReports::kKept);
  EXPECT_TRUE(fs::exists(reports() / "crash-119.txt"));
  EXPECT_THAT(all.takeNew(), testing::ElementsAre(unseen));
  EXPECT_THAT(all.takeNew(), testing::IsEmpty());
}

}  // namespace
}  // namespace velor::crash
