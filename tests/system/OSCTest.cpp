// SPDX-License-Identifier: MIT
// The program between oscsend and oscdump, and a console at another address.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/OSCTools.h"
#include "tests/support/Servers.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

using namespace std::string_literals;

class OSC : public testing::Test {
 protected:
  std::vector<std::string> arguments(const std::vector<std::string>& more) const {
    std::vector<std::string> all = {"--headless", "--osc-port", mPort, "--osc-target",
                                    "127.0.0.1:" + mDump.port()};
    all.insert(all.end(), more.begin(), more.end());
    return all;
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
  VelorProcess velor(arguments({"--osc-allow", "127.0.0.1"}), environment());
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
    std::sscanf(lines[i - 1].c_str(), "/velor/time s \"00:00:%d:%d\"", &seconds, &frames);
    const int frame = seconds * 25 + frames;
    ASSERT_TRUE(frame > before && frame % 2 == 0) << lines[i - 1];
    before = frame;
  }
  EXPECT_GT(last - first, 20U);  // of 24
  sendOSC(mPort, "/velor/speed", "7");
  place = mDump.waitForLine("/velor/speed f 2.000000", last);
  for (const char* line : {"transport/stop f 1.000000", "time s \"00:00:00:00\""}) {
    sendOSC(mPort, "/velor/transport/stop", "1");  // the second one: back to the start
    place = mDump.waitForLine(std::string("/velor/") + line, place);
  }
  EXPECT_EQ(velor.end(SIGTERM), 0);
}

class OSCHosts : public OSC {
 protected:
  // Whether the program, started so, plays when a console at 127.0.0.2 says so.
  bool playsByConsole(const std::vector<std::string>& more) const {
    const std::size_t before = mDump.seen().size();
    VelorProcess velor(arguments(more), environment());
    mDump.waitForLine("/velor/transport/stop f 1.000000", before);
    Datagrams("127.0.0.2").send(mPort, "/velor/transport/play\0\0\0,f\0\0\x3F\x80\0\0"s);
    const bool plays = waitFor(2, [&] {
      const auto lines = mDump.seen();
      return std::find(lines.begin() + static_cast<std::ptrdiff_t>(before), lines.end(),
                       "/velor/transport/play f 1.000000") != lines.end();
    });
    EXPECT_EQ(velor.end(SIGTERM), 0) << velor.errors();
    return plays;
  }
};

TEST_F(OSCHosts, AtTheFirstStartAllAreRefusedAndLaterAllButThoseThatAreTicked) {
  EXPECT_FALSE(playsByConsole({}));
  EXPECT_FALSE(playsByConsole({"--osc-allow", "127.0.0.3"}));
  EXPECT_TRUE(playsByConsole({"--osc-allow", "127.0.0.2"}));
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
