// SPDX-License-Identifier: MIT
#include "platform/host/RealtimeClass.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/host/Log.h"
#include "platform/host/SystemHost.h"

namespace velor::host {
namespace {

std::string gTried;
std::string gGranted;

bool attempt(const char* name) {
  gTried += std::string(name) + ' ';
  return gGranted == name;
}

constexpr RealtimeAttempts kAttempts = {
    [](int) noexcept { return attempt("fifo"); }, [](int) noexcept { return attempt("rtkit"); },
    []() noexcept { return attempt("nice"); }, []() noexcept { attempt("slack"); }};

TEST(RealtimeClass, IsTakenInOrderAndEachRefusalNamesTheRemedy) {
  const struct {
    const char* granted;
    RealtimeGrant grant;
    const char* tried;
  } cases[] = {
      {"fifo", RealtimeGrant::fifo, "fifo "},
      {"rtkit", RealtimeGrant::rtkitRealtime, "fifo rtkit "},
      {"nice", RealtimeGrant::rtkitNice, "fifo rtkit slack nice "},
      {"none", RealtimeGrant::ordinary, "fifo rtkit slack nice "},
  };
  for (const auto& [granted, grant, tried] : cases) {
    gGranted = granted;
    gTried.clear();
    EXPECT_EQ(takeRealtimeClass(ThreadRole::timer, kAttempts), grant) << granted;
    EXPECT_EQ(gTried, tried) << granted;
    EXPECT_EQ(realtimeWarning(grant).find("group audio") == std::string::npos,
              grant == RealtimeGrant::fifo);
  }
}

TEST(RealtimeClass, IsWarnedOfOnceInAHostsLifeAndEndsNothing) {
  gGranted = "none";
  int warnings = 0;
  setLogSink(
      [&warnings](LogLevel level, std::string_view) { warnings += level == kLogWarning ? 1 : 0; });
  {
    SystemHost host(kAttempts);
    for (int i = 0; i < 3; ++i) {
      host.startThread("refused",
                       [&host] { EXPECT_NE(host.thread_policy_set({}, ThreadRole::timer), 0); })
          ->join();
    }
  }
  setLogSink({});
  EXPECT_EQ(warnings, 1);
}

TEST(RealtimeClass, IsTakenByTheTimersThreadWithTheFirstTimer) {
  gGranted = "fifo";
  gTried.clear();
  SystemHost host(kAttempts);
  EXPECT_EQ(gTried, "");
  Queue queue("ordinary");
  const auto fired = host.makeSemaphore();
  queue.after(0, [&fired] { fired->signal(); });
  fired->wait();
  EXPECT_EQ(gTried, "fifo ");
}

TEST(RealtimeGuardDeathTest, AllocationFreeAndLoggingInARealtimeScopeEndTheRun) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        const RealtimeContext realtime;
        void* volatile pointer = std::malloc(16);
        std::free(pointer);
      },
      "allocation inside a real-time scope");
  EXPECT_DEATH(
      {
        void* volatile pointer = std::malloc(16);
        const RealtimeContext realtime;
        std::free(pointer);
      },
      "free inside a real-time scope");
  EXPECT_DEATH(
      {
        const RealtimeContext realtime;
        VELOR_LOG_DEBUG("not written, and refused all the same");
      },
      "log call inside a real-time scope");
}

}  // namespace
}  // namespace velor::host
