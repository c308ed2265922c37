// SPDX-License-Identifier: MIT
#include "platform/store/LogFile.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <future>
#include <map>
#include <sstream>
#include <string>
#include <thread>
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
using test::fileContents;
using test::modeOf;
using testing::ElementsAre;
using testing::HasSubstr;
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
  // The logging thread asks for the time when it starts a file: it is held there
  // until `released`.
  LogFile::Now holdingClock(std::shared_future<void> released) {
    return [this, released = std::move(released), caller = std::this_thread::get_id()] {
      if (std::this_thread::get_id() != caller) {
        released.wait();
      }
      return clock()();
    };
  }
  void advance(milliseconds time) { mElapsed += time.count(); }

  // The messages of a file's lines; each line must be whole.
  static std::vector<std::string> messages(const fs::path& file) {
    std::istringstream text(fileContents(file));
    std::vector<std::string> result;
    for (std::string line; std::getline(text, line);) {
      EXPECT_FALSE(text.eof() || line.size() < kStampBytes) << "no whole line: " << line;
      result.push_back(line.erase(0, kStampBytes));
    }
    return result;
  }

  // Regular ones, by the lines' times, which is the order in which the tests write files.
  std::vector<fs::path> files() const {
    std::vector<fs::path> result;
    if (fs::exists(mFolder)) {
      for (const auto& entry : fs::directory_iterator(mFolder)) {
        if (entry.is_regular_file()) {
          result.push_back(entry.path());
        }
      }
    }
    std::sort(result.begin(), result.end(), [](const fs::path& a, const fs::path& b) {
      return fileContents(a) < fileContents(b);
    });
    return result;
  }

  std::vector<std::string> allMessages() const {
    std::vector<std::string> result;
    for (const auto& file : files()) {
      const auto lines = messages(file);
      result.insert(result.end(), lines.begin(), lines.end());
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
    VELOR_LOG_DEBUG("not in force");
  }
  umask(before);
  VELOR_LOG_ERROR("to nobody");
  ASSERT_THAT(files(), SizeIs(1));
  const fs::path file = files().front();
  EXPECT_EQ(file.filename(), "velor 2026-11-21 14-15-00 " + std::to_string(getpid()) + ".log");
  EXPECT_EQ(fileContents(file),
            "2026/11/21 14:15:00:007  clock started\n"
            "2026/11/21 14:16:01:000  a\\nb\\r\\x1b[31m\\x7f\\tc\\ \\x9b \xC3\xA9 \xC2\n");
  EXPECT_EQ(modeOf(file), 0600U);
  for (fs::path made = mFolder; made != mTemporary.path(); made = made.parent_path()) {
    EXPECT_EQ(modeOf(made), 0700U) << made;
  }
}

TEST_F(LogFileTest, AFileIsFilledUpToItsSizeAndNeverPastIt) {
  // 100 bytes a line: ten fill a file to the last byte.
  {
    LogFile log(mFolder, {.fileBytes = 1000}, clock());
    for (int i = 0; i < 20; ++i) {
      log.log(kLogInfo, std::to_string(100 + i) + std::string(100 - kStampBytes - 3 - 1, '.'));
      advance(milliseconds(1));
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

TEST_F(LogFileTest, AFileEndsADayAfterItsFirstLineAlsoWhenTheClockIsSetBack) {
  LogFile log(mFolder, {}, clock());
  log.log(kLogError, "first");
  advance(seconds(86'400) - milliseconds(1));
  log.log(kLogError, "last");
  EXPECT_THAT(files(), SizeIs(1));
  advance(milliseconds(1));
  log.log(kLogError, "next day");
  ASSERT_THAT(files(), SizeIs(2));
  EXPECT_THAT(messages(files()[0]), ElementsAre("first", "last"));

  advance(-seconds(500'000));
  log.log(kLogError, "set back");
  EXPECT_THAT(files(), SizeIs(2));
  advance(seconds(86'400));
  log.log(kLogError, "a day on");
  EXPECT_THAT(files(), SizeIs(3));
}

TEST_F(LogFileTest, TheFiveNewestFilesAreKeptAndForeignOnesAreNotTouched) {
  fs::create_directories(mFolder / "velor 2020-01-01 00-00-00 1.log");
  const std::vector<std::string> foreign = {"velor.log",
                                            "velor notes 1.log",
                                            "velor 2020-01-01 00-00-00 1.log.gz",
                                            "velor 2020-01-01 00-00-00.log",
                                            "velor 2020-01-01 00-00-00 1 2 3.log",
                                            "velor 2020-01-01 00-00-00 1 x.log",
                                            "velor 2020-1-01 00-00-000 1.log"};
  for (const auto& name : foreign) {
    std::ofstream(mFolder / name) << "mine\n";
  }
  for (int i = 0; i < 12; ++i) {
    // Two runs a second: the second one's file has a number.
    LogFile log(mFolder, {}, clock());
    log.log(kLogError, std::to_string(i));
    advance(milliseconds(500));
  }
  std::vector<std::string> kept;
  for (const auto& file : files()) {
    const auto name = file.filename().string();
    if (std::find(foreign.begin(), foreign.end(), name) == foreign.end()) {
      kept.push_back(messages(file).at(0));
    }
  }
  EXPECT_THAT(kept, ElementsAre("7", "8", "9", "10", "11"));
  for (const auto& name : foreign) {
    EXPECT_EQ(fileContents(mFolder / name), "mine\n");
  }
  EXPECT_TRUE(fs::is_directory(mFolder / "velor 2020-01-01 00-00-00 1.log"));
}

TEST_F(LogFileTest, LeftFilesThatDoNotFitIntoTheQuotaAreDeletedOldestFirst) {
  fs::create_directories(mFolder);
  const auto leave = [this](const std::string& second, std::uint64_t bytes, int age) {
    const fs::path file = mFolder / ("velor 2026-11-20 10-00-0" + second + " 77.log");
    std::ofstream(file) << "x";
    fs::resize_file(file, bytes);
    fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(age));
    return file;
  };
  // The one being written counts 1048576: that leaves 19922944 for these.
  const fs::path newest = leave("3", 10'000'000, 1);
  const fs::path second = leave("1", 9'922'944, 2);
  const fs::path third = leave("2", 1, 3);
  LogFile log(mFolder, {}, clock());
  log.log(kLogError, "x");
  EXPECT_TRUE(fs::exists(newest));
  EXPECT_TRUE(fs::exists(second));
  EXPECT_FALSE(fs::exists(third));
}

TEST_F(LogFileTest, AProcessKilledLeavesAFileThatOthersMayDeleteAndNotBefore) {
  int ready[2];
  ASSERT_EQ(pipe2(ready, O_CLOEXEC), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    LogFile log(mFolder, {}, clock());
    log.log(kLogError, "child");
    const bool isTold = write(ready[1], "1", 1) == 1;
    while (isTold) {
      pause();
    }
    _exit(1);
  }
  char byte = 0;
  EXPECT_EQ(read(ready[0], &byte, 1), 1);
  LogFile log(mFolder, {.fileBytes = 30, .files = 2}, clock());  // a line a file
  for (const char* line : {"first", "second", "third"}) {
    advance(seconds(1));
    log.log(kLogError, line);
  }
  EXPECT_THAT(allMessages(), ElementsAre("child", "third")) << "all processes' files count";
  kill(child, SIGKILL);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status));
  advance(seconds(1));
  log.log(kLogError, "fourth");
  EXPECT_THAT(allMessages(), ElementsAre("third", "fourth"));
  close(ready[0]);
  close(ready[1]);
}

TEST_F(LogFileTest, AFolderThatCannotBeMadeCostsOneWarningAndNothingElse) {
  std::ofstream(mTemporary.path() / "file") << "x";
  for (const fs::path& folder :
       {mTemporary.path() / "file" / "Logs", fs::path("/proc/velor/Logs"), fs::path()}) {
    testing::internal::CaptureStderr();
    {
      LogFile log(folder, {.fileBytes = 100}, clock());
      for (int i = 0; i < 50; ++i) {
        log.log(i % 2 == 0 ? kLogError : kLogInfo, "lost");
      }
    }
    const std::string warning = testing::internal::GetCapturedStderr();
    EXPECT_EQ(std::count(warning.begin(), warning.end(), '\n'), 1) << warning;
    EXPECT_THAT(warning, HasSubstr("cannot write the log in " + folder.string()));
  }
}

TEST_F(LogFileTest, AMinuteAfterAFailedWriteANewFileGoesOnWithTheNumberOfLinesLost) {
  const std::string tail(100 - kStampBytes - 2 - 1, '.');
  LogFile log(mFolder, {}, clock());
  const auto lines = [&](int from, int to) {
    for (int i = from; i < to; ++i) {
      advance(seconds(6));
      log.log(kLogError, std::to_string(i) + tail);
    }
  };
  testing::internal::CaptureStderr();
  {
    const test::FullDisk disk(1050);  // the eleventh line fits half
    lines(10, 25);
  }
  lines(25, 35);
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

TEST_F(LogFileTest, AnErrorIsInTheFileBehindAllEarlierLinesWhenTheCallReturns) {
  LogFile log(mFolder, {}, clock());
  std::vector<std::string> expected;
  for (int round = 0; round < 20; ++round) {
    for (int i = 0; i < 100; ++i) {
      expected.push_back("info " + std::to_string(round) + ' ' + std::to_string(i));
      log.log(kLogInfo, expected.back());
    }
    expected.push_back("error " + std::to_string(round));
    log.log(kLogError, expected.back());
    ASSERT_EQ(allMessages(), expected);
  }
}

TEST_F(LogFileTest, EachThreadsLinesKeepTheirOrderAndNoneIsLostWithoutBeingCounted) {
  constexpr int kThreads = 4;
  constexpr int kLines = 2000;
  {
    LogFile log(mFolder, {.queueLines = 16}, clock());  // the flood may overrun it
    log.install();
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([t] {
        for (int i = 0; i < kLines; ++i) {
          host::log(i % 10 == 0 ? kLogError : kLogInfo, "%d %d", t, i);
        }
      });
    }
    for (auto& thread : threads) {
      thread.join();
    }
  }
  std::map<int, int> next;
  int written = 0;
  int lost = 0;
  int errors = 0;
  for (const auto& message : allMessages()) {
    int thread = 0;
    int line = 0;
    if (std::sscanf(message.c_str(), "%d %d", &thread, &line) != 2) {
      lost += thread;  // as many "lines were lost"
      continue;
    }
    EXPECT_GE(line, next[thread]);
    next[thread] = line + 1;
    ++written;
    errors += line % 10 == 0 ? 1 : 0;
  }
  EXPECT_EQ(written + lost, kThreads * kLines);
  EXPECT_EQ(errors, kThreads * kLines / 10);
}

TEST_F(LogFileTest, AFullQueueDropsLinesAtOnceAndTheFileTellsHowManyAndWhere) {
  // The gap is told of also when no line follows it.
  for (const bool isLast : {false, true}) {
    advance(seconds(1));
    std::promise<void> release;
    {
      LogFile log(mFolder, {.queueLines = 3}, holdingClock(release.get_future().share()));
      for (int i = 0; i < 10; ++i) {
        log.log(kLogInfo, std::to_string(i));  // hangs here if it waits for room
      }
      release.set_value();
      if (!isLast) {
        log.log(kLogError, "behind the gap");
      }
    }
    std::vector<std::string> expected = {"0", "1", "2",
                                         "7 lines were lost: the log's queue was full"};
    if (!isLast) {
      expected.emplace_back("behind the gap");
    }
    EXPECT_EQ(messages(files().back()), expected);
  }
}

}  // namespace
}  // namespace velor::store
