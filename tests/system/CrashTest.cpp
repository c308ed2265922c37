// SPDX-License-Identifier: MIT
// The program, ended by a crash, and started again.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "tests/support/Servers.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

TEST(Crash, IsReportedWithAndWithoutWindowsAndTheNextStartNamesTheReportOnce) {
  const JackServer server;  // not started
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"--headless"}, std::vector<std::string>{}}) {
    const TemporaryFolder folder;
    auto environment = server.environment();
    for (const auto& each : VelorFolders(folder)) {
      environment.push_back(each);
    }
    environment.insert(environment.end(), {"QT_QPA_PLATFORM=offscreen",
                                           "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent/bus",
                                           "DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent/bus"});
    VelorProcess velor(arguments, environment);
    ASSERT_TRUE(waitFor(20, [&] { return !velor.errors().empty(); }));
    EXPECT_EQ(velor.end(SIGSEGV), 128 + SIGSEGV);
    const std::string told = "; the report is ";
    const std::string errors = velor.errors();
    const auto at = errors.find(told);
    ASSERT_NE(at, std::string::npos) << errors;
    const std::string path =
        errors.substr(at + told.size(), errors.find('\n', at) - at - told.size());
    EXPECT_THAT(fileContents(path),
                AllOf(HasSubstr("SIGSEGV, code 0, sent by process"), HasSubstr("\nversion  0."),
                      HasSubstr("  _ZN5velor"), HasSubstr("\nLast lines of the log"),
                      Not(HasSubstr("in this part of the report"))));

    VelorProcess next({"--headless"}, environment);
    const std::string words = "an earlier run crashed; the report is " + path + "\n";
    EXPECT_TRUE(waitFor(20, [&] { return next.errors().find(words) != std::string::npos; }))
        << next.errors();
    EXPECT_EQ(next.end(SIGTERM), 0);

    VelorProcess last({"--headless"}, environment);
    EXPECT_TRUE(waitFor(20, [&] { return !last.errors().empty(); }));
    EXPECT_EQ(last.end(SIGTERM), 0);
    EXPECT_THAT(last.errors(), Not(HasSubstr("crashed")));
  }
}

}  // namespace
}  // namespace velor::test
