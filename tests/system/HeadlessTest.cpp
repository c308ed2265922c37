// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/JackPeer.h"
#include "tests/support/MTCStream.h"
#include "tests/support/Servers.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

class Headless : public testing::Test {
 protected:
  // The server's, and more.
  std::vector<std::string> environmentWith(const std::vector<std::string>& more) const {
    auto all = mServer.environment();
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }

  JackServer mServer;  // not started
};

// With no server, so other tests may run at the same time.
class HeadlessAlone : public Headless {};

TEST_F(Headless, WithoutAServerItRunsSaysSoOnceAndConnectsOnceOneAppearsAndDescriptorsAreLeft) {
  VelorProcess velor({"--headless", "--play"}, mServer.environment());
  ASSERT_TRUE(waitFor(5, [&] { return !velor.errors().empty(); }));
  // libjack may end the program when it finds no descriptor left.
  rlimit limit{};
  ASSERT_EQ(prlimit(velor.id(), RLIMIT_NOFILE, nullptr, &limit), 0);
  const rlimit few{36, limit.rlim_max};
  ASSERT_EQ(prlimit(velor.id(), RLIMIT_NOFILE, &few, nullptr), 0);
  mServer.start();
  const auto logged = [&velor](const char* text) {
    return waitFor(5, [&] { return countOf(velor.log(), text) == 1; });
  };
  EXPECT_TRUE(logged("too few file descriptors")) << velor.log();
  ASSERT_EQ(prlimit(velor.id(), RLIMIT_NOFILE, &limit, nullptr), 0);
  EXPECT_TRUE(logged("connected to the JACK server")) << velor.log();
  EXPECT_EQ(countOf(velor.errors(), "\n"), 1U) << velor.errors();
  EXPECT_NE(velor.errors().find("no JACK or PipeWire server; MIDI stays internal until one starts"),
            std::string::npos);
  // Some programs send it to the process, and again to its group.
  ASSERT_EQ(kill(velor.id(), SIGTERM), 0);
  EXPECT_EQ(velor.end(SIGTERM), 0);
  EXPECT_NE(velor.errors().find("velor: stopping; timecode was running\n"), std::string::npos)
      << velor.errors();
  EXPECT_EQ(velor.output(), "");
}

TEST_F(HeadlessAlone, ASignalWhileAClipStillOpensEndsTheStartAtOnce) {
  // A demuxer looks through all of it for a second page, for many seconds.
  const TemporaryFolder folder;
  const auto clip = folder.path() / "slow.ogg";
  std::ofstream(clip) << "OggS";
  std::filesystem::resize_file(clip, std::uintmax_t{1} << 37);
  VelorProcess velor({"--headless", "--play", "--media", clip}, mServer.environment());
  ASSERT_TRUE(waitFor(10, [&] { return countOf(velor.log(), "opened media asset") == 1; }));
  ASSERT_EQ(kill(velor.id(), SIGTERM), 0);
  EXPECT_EQ(velor.waitForEnd(2), 0) << velor.errors();
}

TEST_F(Headless, ListPrintsSourcesAndDestinationsByWhichPortsCanBeNamed) {
  mServer.start();
  JackPeer desk("Desk");
  desk.addInput("in");
  desk.addOutput("out");
  desk.activate();
  VelorProcess list({"--list"}, mServer.environment());
  ASSERT_EQ(list.waitForEnd(10), 0) << list.errors();
  const std::string text = list.output();
  std::size_t at = 0;
  for (const char* part : {"Sources", "Desk:out", "Destinations", "Desk:in", "velor.loopback",
                           "outputs: 1 'Velor Loopback 1', 2 'Velor Loopback 2'"}) {
    at = text.find(part, at);
    ASSERT_NE(at, std::string::npos) << part << " in " << text;
  }
  // The id of the line names the port as well as the name does.
  const std::string line = text.substr(text.rfind('\n', text.find("Desk:in")) + 1);
  const std::string id = std::to_string(std::atoi(line.c_str()));
  VelorProcess byId({"--headless", "--format", "24", "--start", "10:00:00:00", "--mtc-out", id},
                    mServer.environment());
  ASSERT_TRUE(waitFor(5, [&desk] { return desk.recordedCount() >= 1; }));
  EXPECT_EQ(byId.end(SIGINT), 0);
  // A clock that stands locates its receivers: hours 10, rate code 0.
  EXPECT_EQ(desk.recorded()[0].bytes,
            (std::vector<std::uint8_t>{0xF0, 0x7F, 0x7F, 1, 1, 10, 0, 0, 0, 0xF7}));
}

TEST_F(Headless, OffsetPrerollStopAndRateShapeARunThatEndsWithAWholeBlock) {
  mServer.start();
  JackPeer desk("Desk");
  desk.addInput("in");
  desk.activate();
  VelorProcess velor(
      {"--headless", "--play", "--mtc-out", "Desk:in", "--start", "01:00:00:00", "--offset",
       "00:00:10:05", "--preroll", "1", "--stop-at", "01:00:01:00", "--rate-percent", "2"},
      mServer.environment());
  const auto blocks = [&desk] { return readStream(desk.recorded(), 0).blocks; };
  // The first block names the frame 3 after the start. Two seconds after that the 51st tick
  // finds the stop time; the last one, the 52nd, is an even one, and sends.
  EXPECT_TRUE(waitFor(10, [&] { return blocks().size() >= 25; })) << velor.errors();
  std::this_thread::sleep_for(std::chrono::milliseconds(500));  // what is stopped sends no more
  EXPECT_EQ(velor.end(SIGINT), 0);
  const Stream stream = readStream(desk.recorded(), 0);
  EXPECT_EQ(stream.faults, 0) << stream.fault << ": the last block runs out";
  ASSERT_FALSE(stream.blocks.empty());
  EXPECT_EQ(stream.blocks.front().label.text(), "01:00:09:08");
  EXPECT_EQ(stream.blocks.back().label.text(), "01:00:11:08");
}

TEST_F(Headless, AClockIsArmedByTheSyncSourceThatTheLastRunLeftAndByNoneAtAllNot) {
  mServer.start();
  JackPeer deck("Deck");
  deck.addOutput("out");
  deck.activate();
  const TemporaryFolder folder;
  const auto environment = environmentWith(VelorFolders(folder));
  VelorProcess refused({"--headless", "--arm"}, environment);
  EXPECT_EQ(refused.waitForEnd(10), 2);
  EXPECT_EQ(refused.errors().rfind("velor: --arm", 0), 0U) << refused.errors();
  EXPECT_EQ(countOf(refused.errors(), "\n"), 1U) << refused.errors();
  for (const auto& arguments : {std::vector<std::string>{"--headless", "--sync-source", "Deck:out"},
                                std::vector<std::string>{"--headless", "--arm"}}) {
    VelorProcess velor(arguments, environment);
    EXPECT_EQ(velor.waitForEnd(1), -1) << velor.errors();
    EXPECT_EQ(velor.end(SIGTERM), 0);
    EXPECT_EQ(velor.errors(), "");
  }
}

TEST_F(HeadlessAlone, ALogThatCannotBeWrittenIsReportedAndStopsNothing) {
  VelorProcess velor({"--headless", "--play"}, environmentWith({"XDG_STATE_HOME=/proc/nowhere"}));
  ASSERT_TRUE(waitFor(5, [&] { return countOf(velor.errors(), "\n") >= 2; })) << velor.errors();
  EXPECT_NE(velor.errors().find("log"), std::string::npos) << velor.errors();
  EXPECT_TRUE(velor.isRunning());
  EXPECT_EQ(velor.end(SIGTERM), 0);

  // Nor does a limit of the file size, which is a signal before it is an error.
  const TemporaryFolder folder;
  Process limited({"/bin/sh", "-c", "ulimit -f 0; exec \"$0\" --headless --play", VELOR_PROGRAM},
                  environmentWith(VelorFolders(folder)), "/dev/null");
  EXPECT_EQ(limited.waitForEnd(1), -1);
  EXPECT_EQ(limited.end(SIGTERM), 1) << "the state is not saved";
}

TEST_F(HeadlessAlone, ATerminalThatTakesNothingHoldsUpNoStop) {
  VelorOnTerminal velor(80, {"--headless", "--play"}, mServer.environment());
  ASSERT_TRUE(velor.readUntil("rolling", 5)) << velor.text();
  velor.hold();
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  EXPECT_EQ(velor.endUnread(SIGTERM, 3), 0);
}

TEST_F(HeadlessAlone, AHangUpThatTheCallerIgnoresAndAClosedPipeStopNothing) {
  struct sigaction ignore {};
  struct sigaction before {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGHUP, &ignore, &before);  // as nohup does
  // Standard error goes into a pipe that nobody reads.
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  TemporaryFolder folder;
  const auto environment = environmentWith(VelorFolders(folder));
  Process velor({VELOR_PROGRAM, "--headless", "--play"}, environment, "/dev/null",
                "/proc/self/fd/" + std::to_string(ends[1]));
  sigaction(SIGHUP, &before, nullptr);
  close(ends[0]);
  close(ends[1]);
  ASSERT_EQ(velor.waitForEnd(1), -1);
  ASSERT_TRUE(velor.signal(SIGHUP));
  EXPECT_EQ(velor.waitForEnd(1), -1);
  EXPECT_EQ(velor.end(SIGINT), 0);
}

TEST_F(HeadlessAlone, WhatCannotBePrintedIsAFailure) {
  const TemporaryFolder folder;
  for (const char* option : {"--list", "--help", "--version"}) {
    const auto errors = folder.path() / option;
    Process velor({"/bin/sh", "-c", "exec \"$0\" \"$1\" >/dev/full", VELOR_PROGRAM, option},
                  mServer.environment(), errors.string());
    EXPECT_EQ(velor.waitForEnd(10), 1) << option;
    EXPECT_EQ(fileContents(errors), "velor: cannot write to standard output\n") << option;
  }
}

TEST_F(HeadlessAlone, TheStatusLineIsWrittenOverInPlaceAndFitsTheTerminal) {
  for (const unsigned short columns : {std::uint16_t{120}, std::uint16_t{40}}) {
    VelorOnTerminal velor(columns, {"--headless", "--play", "--start", "12:34:00:00"},
                          mServer.environment());
    ASSERT_TRUE(velor.readUntil("12:34:01:05  25  rolling", 5)) << velor.text();
    EXPECT_EQ(velor.end(SIGINT), 0);
    const std::string& text = velor.text();
    EXPECT_GE(countOf(text, "\r12:34"), 25U);
    EXPECT_EQ(text.find("MIDI: internal, no server") != std::string::npos, columns == 120);
    // One line until standard error is told of the quit.
    const auto first = text.find("\r12:34");
    EXPECT_LT(text.find("velor: stopping; timecode was running", first) - text.find('\n', first),
              3U);
    EXPECT_EQ(text.back(), '\n');
    for (auto at = first; at != std::string::npos; at = text.find("\r12:34", at + 1)) {
      const auto end = text.find("\033[K", at);
      EXPECT_LE(end - at - 1, columns - 1U);
    }
  }
}

}  // namespace
}  // namespace velor::test
