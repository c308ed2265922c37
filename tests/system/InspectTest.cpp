// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/Servers.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

TEST(Inspect, EndsWith0ForAWholeDocument1ForADamagedOneAnd2WhenUsedWrongly) {
  const TemporaryFolder folder;
  const auto file = [&folder](const char* name) { return (folder.path() / name).string(); };
  // A document of a run of the program itself: what it leaves of nothing.
  const JackServer none;  // which is not started
  std::vector<std::string> environment = none.environment();
  environment.push_back("XDG_DATA_HOME=" + folder.path().string());
  VelorProcess saving({"--headless"}, environment);
  ASSERT_EQ(saving.waitForEnd(1), -1) << saving.errors();
  ASSERT_EQ(saving.end(SIGTERM), 0) << saving.errors();
  const std::string whole = file("velor/laststate.velor");
  const std::string text = fileContents(whole);
  const std::size_t at = text.find("\"preroll\": false");
  ASSERT_NE(at, std::string::npos) << whole;
  std::ofstream(file("cut.velor")) << text.substr(0, text.size() / 2);
  std::ofstream(file("problem.velor"))
      << text.substr(0, at) + "\"preroll\": 3" + text.substr(at + 16);
  const struct {
    std::vector<std::string> arguments;
    int status;
    std::string output;
    std::string errors;
  } cases[] = {
      {{"--inspect", whole}, 0, "Problems      0\n", ""},
      {{"--inspect", file("problem.velor")}, 1, "preroll: expected a bool", ""},
      {{"--inspect", file("cut.velor")}, 1, "", "cut.velor: line "},
      {{"--inspect", whole, "--play"}, 2, "", "--play cannot be used with --inspect"},
  };
  for (const auto& each : cases) {
    VelorProcess run(each.arguments, {});
    EXPECT_EQ(run.waitForEnd(20), each.status) << run.errors();
    const std::string output = run.output();
    const std::string errors = run.errors();
    EXPECT_NE(output.find(each.output), std::string::npos) << output;
    EXPECT_EQ(output.empty(), each.output.empty());
    EXPECT_NE(errors.find(each.errors), std::string::npos) << errors;
    EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), each.errors.empty() ? 0 : 1);
    EXPECT_EQ(run.log(), "") << "nothing of the program was started";
  }
}

}  // namespace
}  // namespace velor::test
