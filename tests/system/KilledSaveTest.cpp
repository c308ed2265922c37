// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "platform/store/AtomicFile.h"
#include "platform/store/KeyedArchiver.h"
#include "tests/support/TemporaryFolder.h"

namespace velor::test {
namespace {

namespace fs = std::filesystem;

using Clock = std::chrono::steady_clock;

// Two or three saves of the longer document.
constexpr useconds_t kLongestLife = 60'000;  // us
constexpr int kKills = 150;

// A whole document of about that size.
std::string document(char mark, std::size_t bytes) {
  store::KeyedArchiver coder;
  constexpr std::size_t kLine = 1000;
  for (std::size_t i = 0; i < bytes / kLine; ++i) {
    coder.encodeString(std::string(kLine, mark), "key " + std::to_string(i));
  }
  return coder.data().value();
}

std::vector<fs::path> leftBehind(const fs::path& folder) {
  std::vector<fs::path> found;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().filename().native().starts_with(".velor-")) {
      found.push_back(entry.path());
    }
  }
  return found;
}

// A process that saves one document after the other, until the host time or its death.
pid_t startSaving(const fs::path& path, const std::array<std::string, 2>& documents,
                  Clock::time_point end) {
  const pid_t id = fork();
  if (id == 0) {
    for (std::size_t i = 0; Clock::now() < end; ++i) {
      if (!store::AtomicFile::write(path, documents[i % documents.size()])) {
        _exit(1);
      }
    }
    _exit(0);
  }
  return id;
}

TEST(KilledSave, LeavesOneOfTheTwoDocumentsWholeAtAnyMoment) {
  const TemporaryFolder folder;
  const fs::path path = folder.path() / "show.velor";
  const std::array<std::string, 2> documents = {document('a', 3'000), document('b', 400'000)};
  ASSERT_TRUE(store::AtomicFile::write(path, documents[0]));
  std::mt19937 random(1);
  std::uniform_int_distribution<useconds_t> life(0, kLongestLife);
  int changed = 0;
  std::string before = documents[0];
  for (int i = 0; i < kKills; ++i) {
    const pid_t id = startSaving(path, documents, Clock::now() + std::chrono::seconds(10));
    ASSERT_GT(id, 0);
    usleep(life(random));
    ASSERT_EQ(kill(id, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(waitpid(id, &status, 0), id);
    ASSERT_TRUE(WIFSIGNALED(status)) << "a save failed";
    std::string left = fileContents(path);
    ASSERT_TRUE(left == documents[0] || left == documents[1])
        << "kill " << i << " left " << left.size() << " bytes";
    changed += left != before ? 1 : 0;
    before = std::move(left);
  }
  // Else nothing of this was met.
  EXPECT_GT(changed, kKills / 10);
  const auto files = leftBehind(folder.path());
  EXPECT_GT(files.size(), kKills / 10U);
  std::printf("of %d kills %d changed the document, %zu left a file behind\n", kKills, changed,
              files.size());

  // The young ones stay, since somebody elsewhere might write there.
  ASSERT_TRUE(store::AtomicFile::write(path, documents[0]));
  EXPECT_EQ(leftBehind(folder.path()).size(), files.size());
  for (const fs::path& file : files) {
    fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(1));
  }
  ASSERT_TRUE(store::AtomicFile::write(path, documents[0]));
  EXPECT_EQ(leftBehind(folder.path()).size(), 0U);
}

TEST(KilledSave, OfTwoProcessesThatSaveAtOnceEachDocumentStaysWhole) {
  const TemporaryFolder folder;
  const fs::path path = folder.path() / "show.velor";
  const std::array<std::string, 4> documents = {document('a', 3'000), document('b', 400'000),
                                                document('c', 5'000), document('d', 200'000)};
  ASSERT_TRUE(store::AtomicFile::write(path, documents[0]));
  const auto end = Clock::now() + std::chrono::seconds(2);
  const std::array<pid_t, 2> ids = {startSaving(path, {documents[0], documents[1]}, end),
                                    startSaving(path, {documents[2], documents[3]}, end)};
  std::array<int, 4> seen{};
  while (Clock::now() < end) {
    const std::string read = fileContents(path);
    const auto* const found = std::find(documents.begin(), documents.end(), read);
    ASSERT_NE(found, documents.end()) << "a mix of " << read.size() << " bytes";
    ++seen[static_cast<std::size_t>(found - documents.begin())];
  }
  for (const pid_t id : ids) {
    int status = 0;
    ASSERT_EQ(waitpid(id, &status, 0), id);
    EXPECT_EQ(status, 0) << "a save failed";
  }
  EXPECT_THAT(seen, testing::Each(testing::Gt(0)));
  EXPECT_EQ(leftBehind(folder.path()).size(), 0U);
}

}  // namespace
}  // namespace velor::test
