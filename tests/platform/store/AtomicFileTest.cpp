// SPDX-License-Identifier: MIT
#include "platform/store/AtomicFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/store/ReplacementFile.h"
#include "tests/support/FullDisk.h"
#include "tests/support/TemporaryFolder.h"

namespace velor::store {
namespace {

namespace fs = std::filesystem;
using test::fileContents;
using test::modeOf;

class AtomicFileTest : public testing::Test {
 protected:
  const test::TemporaryFolder mFolder;
  const fs::path mFile = mFolder.path() / "state.velor";
};

TEST_F(AtomicFileTest, ContentsAreReplacedAsAWholeForTheOwnerAloneAndALinkStays) {
  const mode_t before = umask(0);
  EXPECT_TRUE(AtomicFile::write(mFile, "first, and longer"));
  EXPECT_EQ(modeOf(mFile), 0600U);
  fs::permissions(mFile, fs::perms(0644));
  fs::create_hard_link(mFile, mFolder.path() / "old");
  fs::create_symlink("state.velor", mFolder.path() / "link");
  EXPECT_TRUE(AtomicFile::write(mFolder.path() / "link", "second"));
  umask(before);
  EXPECT_TRUE(fs::is_symlink(mFolder.path() / "link"));
  EXPECT_EQ(fileContents(mFile), "second");
  EXPECT_EQ(modeOf(mFile), 0600U);
  EXPECT_EQ(fileContents(mFolder.path() / "old"), "first, and longer") << "not written into";
  EXPECT_EQ(mFolder.size(), 3U);

  const std::string large(3 << 20, 'x');
  EXPECT_TRUE(AtomicFile::write(mFile, large));
  EXPECT_EQ(AtomicFile::read(mFile, large.size()), large);
  EXPECT_TRUE(AtomicFile::write(mFile, ""));
  EXPECT_EQ(fileContents(mFile), "");
}

TEST_F(AtomicFileTest, AFailureLeavesTheOldFileAndNoOtherAndNamesStepAndPath) {
  std::ofstream(mFile) << "old";
  const auto missing = mFolder.path() / "missing";
  EXPECT_EQ(AtomicFile::write(missing / "file", "x").error().text,
            "cannot make a file in " + missing.string() + ": No such file or directory");

  const auto folder = mFolder.path() / "folder";
  fs::create_directory(folder);
  EXPECT_EQ(AtomicFile::write(folder, "x").error().text,
            "cannot replace " + folder.string() + ": it is not a regular file");
  EXPECT_EQ(mFolder.size(), 2U);

  std::string error;
  {
    const test::FullDisk disk(64 * 1024);
    error = AtomicFile::write(mFile, std::string(1 << 20, 'x')).error().text;
  }
  EXPECT_TRUE(error.starts_with("cannot write " + mFolder.path().string())) << error;
  EXPECT_TRUE(error.ends_with(": File too large")) << error;

  EXPECT_EQ(fileContents(mFile), "old");
  EXPECT_EQ(mFolder.size(), 2U);
}

TEST_F(AtomicFileTest, OnlyOldFilesOfItsOwnThatNobodyHasOpenAreTakenAway) {
  auto living = ReplacementFile::create(mFolder.path() / "slow.wav", 0600).value();
  const fs::path young = mFolder.path() / ".velor-abc123";
  std::ofstream(young) << "young";
  const fs::path left = mFolder.path() / ".velor-abc124";
  std::ofstream(left) << "left by a kill";
  for (const char* other : {".velor-abc12", ".velor-abc1234", ".velor-ABC123", "velor-abc123"}) {
    std::ofstream(mFolder.path() / other) << "of somebody else";
  }
  for (const auto& entry : fs::directory_iterator(mFolder.path())) {
    if (entry.path() != young) {
      fs::last_write_time(entry.path(), fs::file_time_type::clock::now() - std::chrono::hours(1));
    }
  }
  EXPECT_TRUE(AtomicFile::write(mFile, "first"));
  EXPECT_FALSE(fs::exists(left));
  EXPECT_TRUE(fs::exists(young));
  EXPECT_EQ(mFolder.size(), 7U) << "one was written, one deleted";
  EXPECT_TRUE(living.takePlace());
}

TEST_F(AtomicFileTest, OnlyFilesOfTheSizeAllowedAreRead) {
  std::ofstream(mFile) << "four";
  EXPECT_EQ(AtomicFile::read(mFile, 4), "four");
  EXPECT_EQ(AtomicFile::read(mFile, 3).error().text,
            "cannot read " + mFile.string() + ": it is longer than 3 bytes");
  const auto pipe = mFolder.path() / "pipe";
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(AtomicFile::read(pipe, 100).error().text,
            "cannot read " + pipe.string() + ": it is not a regular file")
      << "nobody writes into it: it must not wait";
  EXPECT_EQ(AtomicFile::read(mFolder.path() / "none", 100).error().text,
            "cannot open " + (mFolder.path() / "none").string() + ": No such file or directory");
  // A size of 0 that is none: what has grown since is seen by reading.
  EXPECT_NE(AtomicFile::read("/proc/self/maps", 10).error().text.find("longer than"),
            std::string::npos);
}

}  // namespace
}  // namespace velor::store
