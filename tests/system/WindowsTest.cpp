// SPDX-License-Identifier: MIT
// The windows as their users meet them: keys and clicks by an X server, texts by the
// accessibility bus, time by OSC.
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/OSCTools.h"
#include "tests/support/Servers.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

constexpr double kPatience = 10;  // seconds

class Windows : public testing::Test {
 protected:
  void SetUp() override {
    mBus = startBus(file("bus"), file("bus.log"));
    setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + file("bus")).c_str(), 1);
    // A daemon of the machine would announce the program on the network.
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);
    setenv("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1", 1);
    setenv("XDG_RUNTIME_DIR", mFolder.path().c_str(), 1);
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
      unsetenv(name);
    }
    mReader.reset(popen(("exec /usr/bin/python3 " VELOR_TESTS "/support/accessibility.py >" +
                         file("answers") + " 2>" + file("answers.log"))
                            .c_str(),
                        "w"));
    ASSERT_NE(mReader, nullptr);
  }
  void TearDown() override {
    mReader.reset();
    mBus.end(SIGTERM);
  }

  std::string file(const std::string& name) const { return (mFolder.path() / name).string(); }

  // A display with a window manager.
  void openDisplay() {
    const std::string number = ":" + std::to_string(1000 + getpid() % 30000);
    mDisplay = Process({"Xvfb", number, "-screen", "0", "1280x900x24", "-nolisten", "tcp"}, {},
                       file("xvfb.log"));
    const std::string socket = "/tmp/.X11-unix/X" + number.substr(1);
    ASSERT_TRUE(waitFor(kPatience, [&] { return std::filesystem::exists(socket); }));
    setenv("DISPLAY", number.c_str(), 1);
    mManager = Process({"openbox"}, {}, file("openbox.log"));
  }
  void closeDisplay() {
    mManager.end(SIGTERM);
    mDisplay.end(SIGTERM);
  }

  std::unique_ptr<VelorProcess> start(std::vector<std::string> arguments,
                                      std::vector<std::string> environment = {}) {
    arguments.insert(arguments.end(), {"--osc-port", mPort, "--osc-allow", "127.0.0.1",
                                       "--osc-target", "127.0.0.1:" + mDump.port()});
    for (const auto& more : {mServer.environment(), VelorFolders(mFolder)}) {
      environment.insert(environment.end(), more.begin(), more.end());
    }
    return std::make_unique<VelorProcess>(arguments, environment);
  }

  std::string ask(const std::string& question) {
    const auto lines = [this] {
      std::istringstream answers(fileContents(file("answers")));
      std::vector<std::string> all;
      for (std::string line; std::getline(answers, line);) {
        all.push_back(line);
      }
      return all;
    };
    const std::size_t before = lines().size();
    std::fprintf(mReader.get(), "%s\n", question.c_str());
    std::fflush(mReader.get());
    waitFor(3 * kPatience, [&] { return lines().size() > before; });
    const auto all = lines();
    return all.size() > before ? all.back() : "no answer";
  }
  // Texts with "_" for each blank, as they are asked for.
  void expect(const std::string& what, const std::string& wanted) {
    std::string text = wanted;
    for (char& each : text) {
      each = each == '_' ? ' ' : each;
    }
    EXPECT_EQ(ask(what + " " + wanted), text) << what;
  }
  void expectTime(const std::string& time) { expect("text Timecode", time); }

  void tool(const std::string& arguments) const {
    EXPECT_EQ(std::system(("xdotool " + arguments).c_str()), 0) << arguments;
  }
  void key(const std::string& keys) const { tool("key --delay 30 " + keys); }
  // The middle of "place NAME" or "cell TABLE ROW COLUMN".
  void click(const std::string& what, const std::string& modifier = "") {
    const std::string place = "mousemove " + ask(what) + " ";
    tool(modifier.empty()
             ? place + "click 1"
             : place + "keydown " + modifier + " sleep 0.05 click 1 sleep 0.05 keyup " + modifier);
  }

  struct ClosePipe {
    void operator()(FILE* pipe) const { pclose(pipe); }
  };

  const TemporaryFolder mFolder;
  const JackServer mServer;  // not started
  const std::string mPort = freePort();
  const OSCDump mDump;
  Process mBus;
  Process mDisplay;
  Process mManager;
  std::unique_ptr<FILE, ClosePipe> mReader;
};

TEST_F(Windows, AShowIsSetUpPlayedSavedLeftAndFoundAgain) {
  openDisplay();
  auto velor = start({});
  expect("windows", "Velor");
  // A time by typing: the click selects the minutes.
  click("place Timecode");
  key("Left 0 1 0 2 0 3 0 4 Return");
  expectTime("01:02:03:04");
  // Play, and stop three times: stopped, back to the start, and there it stays. Then to zero.
  key("space");
  std::size_t line = mDump.waitForLine("/velor/transport/play f 1.000000");
  line = mDump.waitForLine("/velor/time s \"01:02:03:10\"", line);
  click("place Stop");
  mDump.waitForLine("/velor/transport/stop f 1.000000", line);
  click("place Stop");
  expectTime("01:02:03:04");
  click("place Stop");
  expectTime("01:02:03:04");
  // A marker, its name, a jump to it, and the jump undone.
  key("ctrl+m");
  expect("rows Markers", "Marker_1_01:02:03:04");
  click("place Stop", "ctrl");
  expectTime("00:00:00:00");
  key("ctrl+Right");
  expectTime("01:02:03:04");
  key("ctrl+z");
  expectTime("00:00:00:00");
  click("cell Markers 0 0");
  key("Return ctrl+a A c t Return");
  expect("rows Markers", "Act_01:02:03:04");
  // With Ctrl a click jumps to the marker, without it to none.
  key("ctrl+m");
  expect("rows Markers", "Marker_2_00:00:00:00; Act_01:02:03:04");
  click("cell Markers 1 0");
  click("cell Markers 0 0");
  expectTime("00:00:00:00");
  click("cell Markers 1 0", "ctrl");
  expectTime("01:02:03:04");
  // A destination, switched on by a click.
  key("ctrl+shift+g");
  expect("windows", "LTC_Generator_1; Velor");
  key("alt+F4");
  expect("windows", "Velor");
  click("cell Destinations 0 0");
  expect("rows Destinations", "On_LTC_Generator_1_ready");
  // The other windows.
  key("ctrl+b");
  expect("windows", "Big_Timecode; Velor");
  key("alt+F4");
  expect("windows", "Velor");
  for (const auto& [keys, titles] : {std::pair{"ctrl+shift+d", "Devices; Velor"},
                                     std::pair{"ctrl+shift+o", "OSC_Setup; Velor"}}) {
    key(keys);
    expect("windows", titles);
    key("alt+F4");
    expect("windows", "Velor");
  }
  // A document of its own.
  key("ctrl+s");
  expect("windows", "Save; Velor");
  tool("type --delay 20 " + file("show.velor"));
  key("Return");
  expect("windows", "Velor");
  EXPECT_TRUE(std::filesystem::exists(file("show.velor")));
  // The quit asks while the clock runs.
  key("space");
  mDump.waitForLine("/velor/transport/play f 1.000000", line);
  key("ctrl+q");
  expect("windows", "Devices_are_running_-_Quit_anyway?; Velor");
  key("Return");
  EXPECT_EQ(velor->waitForEnd(kPatience), 0);
  // All is found as it was.
  velor = start({});
  expect("rows Markers", "Marker_2_00:00:00:00; Act_01:02:03:04");
  expect("rows Destinations", "On_LTC_Generator_1_ready");
  click("place Timecode");
  key("Left 0 5 0 6 0 7 0 8 Return");
  expectTime("05:06:07:08");
  EXPECT_EQ(velor->end(SIGTERM), 0);
  velor = start({});
  expectTime("05:06:07:08");
  EXPECT_EQ(velor->end(SIGTERM), 0);
  closeDisplay();
}

TEST_F(Windows, OnWaylandItStartsPlaysPaintsAndEnds) {
  Process weston({"weston", "--backend=headless-backend.so", "--socket=wayland", "--no-config"}, {},
                 file("weston.log"));
  ASSERT_TRUE(waitFor(kPatience, [this] { return std::filesystem::exists(file("wayland")); }))
      << fileContents(file("weston.log"));
  const auto velor =
      start({"--play", "--start", "10:00:00:00"}, {"WAYLAND_DISPLAY=wayland", "WAYLAND_DEBUG=1"});
  mDump.waitForLine("/velor/time s \"10:00:02:00\"");
  // Each picture is a request of the client, which its library reports.
  const auto pictures = [&velor] { return countOf(velor->errors(), ".commit()"); };
  EXPECT_TRUE(waitFor(kPatience, [&] { return pictures() > 10; })) << pictures();
  EXPECT_EQ(velor->end(SIGTERM), 0);
  weston.end(SIGTERM);
}

}  // namespace
}  // namespace velor::test
