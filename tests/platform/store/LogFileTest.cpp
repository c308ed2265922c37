// SPDX-License-Identifier: MIT
#include "platform/store/LogFile.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/FullDisk.h"
#include "tests/support/TemporaryFolder.h"

namespace velor::store {
namespace {

namespace fs = std::filesystem;
using host::kLogError;
using host::kLogInfo;
using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::SizeIs;

constexpr std::size_t kStampBytes = 25;  // "yyyy/MM/dd HH:mm:ss:SSS" and two blanks

// 2026-11-21 08:30:00.007 UTC, by the day count of the Gregorian calendar.
constexpr std::chrono::system_clock::time_point kStart =
    std::chrono::sys_days(std::chrono::year(2026) / 11 / 21) + std::chrono::hours(8) +
    std::chrono::minutes(30) + milliseconds(7);

class LogFileTest : public testing::Test {
 protected:
  LogFileTest() {
    // West is positive here: 5:45 before UTC.
    setenv("TZ", "NPT-05:45", 1);
    tzset();
  }

  LogFile::Now clock() {
    return [this] { return kStart + milliseconds(mElapsed.load()); };
  }
  void advance(milliseconds time) { mElapsed += time.count(); }

  // By their names, so by the times of their starts.
  std::vector<fs::path> files() const {
    std::vector<fs::path> result(fs::directory_iterator(mFolder), {});
    std::sort(result.begin(), result.end());
    return result;
  }
  // The messages of a file's lines; each line must be whole.
  static std::vector<std::string> messages(const fs::path& file) {
    std::istringstream text(test::fileContents(file));
    std::vector<std::string> result;
    for (std::string line; std::getline(text, line);) {
      EXPECT_FALSE(text.eof() || line.size() < kStampBytes) << "not a whole line: " << line;
      result.push_back(line.erase(0, kStampBytes));
    }
    return result;
  }
  std::vector<std::string> allMessages() const {
    std::vector<std::string> result;
    for (const auto& file : files()) {
      std::ranges::copy(messages(file), std::back_inserter(result));
    }
    return result;
  }

  const test::TemporaryFolder mTemporary;
  const fs::path mFolder = mTemporary.path() / "state" / "velor" / "Logs";
  std::atomic<std::int64_t> mElapsed{0};
};

TEST_F(LogFileTest, ALineIsTheLocalTimeTwoBlanksAndTheMessageInAFileOfTheProcess) {
  const mode_t before = umask(0);
  {
    LogFile log(mFolder, {}, clock());
    EXPECT_FALSE(fs::exists(mFolder)) << "made before there is a line";
    log.install();
    VELOR_LOG_ERROR("clock %s", "started");
    advance(milliseconds(60'993));
    VELOR_LOG_INFO("a\nb\r\x1b[31m\x7f\tc\\ \xC2\x9B \xC3\xA9 \xC2");
    VELOR_LOG_DEBUG("below the level");
  }
  umask(before);
  VELOR_LOG_ERROR("to nobody");
  ASSERT_THAT(files(), SizeIs(1));
  const fs::path file = files().front();
  EXPECT_EQ(file.filename(), "velor 2026-11-21 14-15-00 " + std::to_string(getpid()) + ".log");
  EXPECT_EQ(test::fileContents(file),
            "2026/11/21 14:15:00:007  clock started\n"
            "2026/11/21 14:16:01:000  a\\nb\\r\\x1b[31m\\x7f\\tc\\ \\x9b \xC3\xA9 \xC2\n");
  EXPECT_EQ(test::modeOf(file), 0600U);
}

TEST_F(LogFileTest, AFileIsFilledUpToItsSizeAndNeverPastIt) {
  // 100 bytes a line: ten fill a file to the last byte.
  {
    LogFile log(mFolder, {.fileBytes = 1000}, clock());
    for (int i = 0; i < 20; ++i) {
      log.log(kLogInfo, std::string(100 - kStampBytes - 1, '.'));
    }
    // Longer than a file: it stands alone, and the next does not join it.
    log.log(kLogInfo, std::string(1000, 'x'));
    log.log(kLogInfo, "y");
  }
  std::vector<std::uintmax_t> sizes;
  for (const auto& file : files()) {
    sizes.push_back(fs::file_size(file));
  }
  EXPECT_THAT(sizes, ElementsAre(1000, 1000, 1000 + kStampBytes + 1, 1 + kStampBytes + 1));
}

TEST_F(LogFileTest, TheOldestFilesGoWhenThereAreMoreThanFiveOrTheQuotaIsExceeded) {
  fs::create_directories(mFolder);
  const auto leave = [this](const char* name, std::uint64_t bytes, int hours) {
    std::ofstream(mFolder / name) << "x";
    fs::resize_file(mFolder / name, bytes);
    fs::last_write_time(mFolder / name,
                        fs::file_time_type::clock::now() - std::chrono::hours(hours));
  };
  // Files of others, and a link.
  const std::vector<std::string> foreign = {
      "velor 2020-01-01 00-00-00 1.log", "velor 2020-01-01 00-00-00 1.log.gz",
      "velor 2020-01-01 00-00-00.log", "velor 2020-1-01 00-00-000 1.log"};
  fs::create_symlink("/dev/null", mFolder / foreign[0]);
  std::for_each(foreign.begin() + 1, foreign.end(),
                [&](const std::string& name) { leave(name.c_str(), 30'000'000, 90); });
  // The newest first, not by name. The file being written counts 1048576: that leaves 19922944.
  const char* const names[] = {
      "velor 2026-11-20 10-00-03 77.log", "velor 2026-11-20 10-00-01 77.log",
      "velor 2026-11-20 10-00-02 77.log", "velor 2026-11-20 10-00-05 77.log",
      "velor 2026-11-20 10-00-04 77.log"};
  for (const auto& [second, kept] : {std::pair(9'922'941U, 4U), std::pair(9'922'942U, 3U)}) {
    const std::uint64_t sizes[] = {10'000'000, second, 1, 2, 1};
    for (int i = 0; i < 5; ++i) {
      leave(names[i], sizes[i], i + 1);
    }
    LogFile log(mFolder, {}, clock());
    log.log(kLogError, "x");
    EXPECT_THAT(files(), SizeIs(foreign.size() + 1 + kept));
    for (std::size_t i = 0; i < 5; ++i) {
      EXPECT_EQ(fs::exists(mFolder / names[i]), i < kept) << i;
    }
    fs::remove(mFolder / ("velor 2026-11-21 14-15-00 " + std::to_string(getpid()) + ".log"));
  }
}

TEST_F(LogFileTest, AProcessKilledLeavesAFileThatOthersMayDeleteAndNotBefore) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    LogFile log(mFolder, {}, clock());
    log.log(kLogError, "child");
    raise(SIGSTOP);
    _exit(1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
  LogFile log(mFolder, {.fileBytes = 30, .files = 2}, clock());  // a line a file
  const auto logLine = [&](const char* line) {
    advance(seconds(1));
    log.log(kLogError, line);
  };
  for (const char* line : {"first", "second", "third"}) {
    logLine(line);
  }
  EXPECT_THAT(allMessages(), ElementsAre("child", "third")) << "all processes' files count";
  kill(child, SIGKILL);
  ASSERT_EQ(waitpid(child, &status, 0), child);
  logLine("fourth");
  EXPECT_THAT(allMessages(), ElementsAre("third", "fourth"));
}

TEST_F(LogFileTest, AMinuteAfterAFailedWriteANewFileGoesOnWithTheNumberOfLinesLost) {
  LogFile log(mFolder, {}, clock());
  const auto logLines = [&](int from, int to) {
    for (int i = from; i < to; ++i) {
      advance(seconds(6));
      log.log(kLogError, std::to_string(i) + std::string(100 - kStampBytes - 2 - 1, '.'));
    }
  };
  testing::internal::CaptureStderr();
  {
    const test::FullDisk disk(1050);  // the eleventh line fits half
    logLines(10, 25);
  }
  logLines(25, 35);
  const std::string warning = testing::internal::GetCapturedStderr();
  EXPECT_EQ(std::count(warning.begin(), warning.end(), '\n'), 1) << warning;
  const auto found = files();
  ASSERT_THAT(found, SizeIs(2));
  EXPECT_EQ(fs::file_size(found[0]), 1000U) << "whole lines only";
  const auto later = messages(found[1]);
  ASSERT_THAT(later, SizeIs(6));  // lines 30 to 34 after the count of 20 to 29
  EXPECT_THAT(later[0], testing::StartsWith("10 lines were lost: "));
  EXPECT_EQ(later[1].substr(0, 2), "30");
}

TEST_F(LogFileTest, EachThreadsLinesKeepTheirOrderAndNoneIsLostWithoutBeingCounted) {
  constexpr int kThreads = 4;
  constexpr int kLines = 2000;
  {
    LogFile log(mFolder, {.queueLines = 16}, clock());  // the flood may overrun it
    std::vector<std::jthread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([t, &log] {
        for (int i = 0; i < kLines; ++i) {
          log.log(i % 10 == 0 ? kLogError : kLogInfo, std::to_string(t) + ' ' + std::to_string(i));
        }
      });
    }
  }
  std::array<int, kThreads> next{};
  int counted = 0;
  int errors = 0;
  for (const auto& message : allMessages()) {
    int thread = 0;  // or the number of lines that were lost
    int line = 0;
    const bool isLine = std::sscanf(message.c_str(), "%d %d", &thread, &line) == 2;
    counted += isLine ? 1 : thread;
    if (isLine) {
      errors += line % 10 == 0 ? 1 : 0;
      EXPECT_GE(line, std::exchange(next[static_cast<std::size_t>(thread)], line + 1));
    }
  }
  EXPECT_EQ(counted, kThreads * kLines);
  EXPECT_EQ(errors, kThreads * kLines / 10);
}

TEST_F(LogFileTest, AFullQueueDropsLinesAtOnceAndTheFileSaysHowManyAndWhere) {
  std::promise<void> release;
  // The logging thread asks for the time when it starts a file: it is held there.
  const auto heldClock = [this, released = release.get_future().share(),
                          caller = std::this_thread::get_id()] {
    if (std::this_thread::get_id() != caller) {
      released.wait();
    }
    return clock()();
  };
  {
    LogFile log(mFolder, {.queueLines = 3}, heldClock);
    for (int i = 0; i < 10; ++i) {
      log.log(kLogInfo, std::to_string(i));  // hangs here if it waits for room
    }
    release.set_value();
    log.log(kLogError, "after the gap");
  }
  EXPECT_THAT(
      allMessages(),
      ElementsAre("0", "1", "2", "7 lines were lost: the log's queue was full", "after the gap"));
}

}  // namespace
}  // namespace velor::store
