// SPDX-License-Identifier: MIT
// The program between oscsend and oscdump.
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/support/OSCTools.h"
#include "tests/support/Servers.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

class OSC : public testing::Test {
 protected:
  std::vector<std::string> arguments() const {
    return {"--headless",
            "--osc-port",
            mPort,
            "--osc-allow",
            "127.0.0.1",
            "--osc-target",
            "127.0.0.1:" + mDump.port()};
  }

  // A daemon of the machine would announce the program on the network.
  std::vector<std::string> environment() const {
    auto all = mServer.environment();
    all.push_back("DBUS_SYSTEM_BUS_ADDRESS=unix:path=/nonexistent/bus");
    return all;
  }

  const JackServer mServer;  // not started
  const std::string mPort = freePort();
  const OSCDump mDump;
};

TEST_F(OSC, CommandsActAndAreReportedWithTheTimeAtHalfTheFrameRate) {
  VelorProcess velor(arguments(), environment());
  std::size_t place = mDump.waitForLine("/velor/transport/stop f 1.000000");
  sendOSC(mPort, "/velor/transport/play", "1");
  place = mDump.waitForLine("/velor/transport/play f 1.000000", place);
  const std::size_t first = mDump.waitForLine("/velor/time s \"00:00:00:02\"", place);
  const std::size_t last = mDump.waitForLine("/velor/time s \"00:00:02:00\"", first);
  // Every second one of 25 frames a second; a main queue that is late may leave one out.
  const auto lines = mDump.seen();
  int before = 0;
  for (std::size_t i = first; i <= last; ++i) {
    int seconds = 0;
    int frames = 0;
    ASSERT_EQ(std::sscanf(lines[i - 1].c_str(), "/velor/time s \"00:00:%d:%d\"", &seconds, &frames),
              2)
        << lines[i - 1];
    const int frame = seconds * 25 + frames;
    ASSERT_EQ(frame % 2, 0);
    ASSERT_GT(frame, before);
    before = frame;
  }
  EXPECT_GT(last - first, 20U);  // of 24
  place = last;
  for (const auto& [address, value, answer] : std::initializer_list<std::array<std::string, 3>>{
           {"speed", "7", "speed f 2.000000"},
           {"transport/stop", "1", "transport/stop f 1.000000"},
           {"transport/stop", "1", "time s \"00:00:00:00\""},  // again: back to the start
           {"preroll", "1", "preroll f 1.000000"},
           {"arm", "1", "arm f 1.000000"}}) {
    sendOSC(mPort, "/velor/" + address, value);
    place = mDump.waitForLine("/velor/" + answer, place);
  }
  EXPECT_EQ(velor.end(SIGTERM), 0);
}

TEST_F(OSC, WithoutAHomeFolderNoFileOfTheWorkingDirectoryIsUsed) {
  const TemporaryFolder folder;
  const std::string path = folder.path().string();
  const std::string foreign = "not settings";
  std::ofstream(path + "/settings.json") << foreign;
  // A user who is not in the password database.
  Process velor(
      {"sh", "-c", "cd \"$0\" && exec env -u HOME unshare --user --map-user=4242 \"$1\" --headless",
       path, VELOR_PROGRAM},
      environment(), path + "/out");
  ASSERT_TRUE(waitFor(10, [&] {
    return fileContents(path + "/out").find("MIDI stays") != std::string::npos;
  })) << fileContents(path + "/out");
  velor.end(SIGTERM);
  EXPECT_EQ(fileContents(path + "/settings.json"), foreign);
}

}  // namespace
}  // namespace velor::test
