// SPDX-License-Identifier: MIT
#include "Velor/app/VLRecovery.h"

#include <gtest/gtest.h>

#include <functional>

#include "Velor/devices/VLLTCReaderDevice.h"
#include "tests/velor/app/AppFixture.h"

namespace velor {
namespace {

class VLRecoveryTest : public AppFixture {
 protected:
  static constexpr std::uint64_t kSecond = 1'000'000'000;

  std::filesystem::path copy() const { return folders().state() / VLRecovery::kFileName; }
  std::filesystem::path old() const { return folders().state() / VLRecovery::kOldFileName; }
  bool isThere() const { return std::filesystem::exists(copy()); }
};

TEST_F(VLRecoveryTest, EditsAreInTheCopySoonAndACleanEndRemovesIt) {
  launch();
  EXPECT_FALSE(app().documents().recovery().isBesideAnother());
  mHost.advance(60 * kSecond);
  EXPECT_FALSE(isThere()) << "nothing was edited";
  goTo("00:00:01:00");
  mHost.advance(2 * kSecond - 1);
  EXPECT_FALSE(isThere());
  mHost.advance(kSecond / 100);
  ASSERT_TRUE(isThere());
  const std::string first = contents(copy());
  app().addMarker();
  mHost.advance(9 * kSecond);
  EXPECT_EQ(contents(copy()), first) << "no oftener than every 10 s";
  mHost.advance(2 * kSecond);
  EXPECT_NE(contents(copy()).find("Marker 1"), std::string::npos);

  // Edits that go on, one every second, do not put it off for ever.
  const std::string second = contents(copy());
  for (int i = 0; i < 15; ++i) {
    mHost.advance(kSecond);
    goTo("00:00:00:" + std::to_string(10 + i));
  }
  EXPECT_NE(contents(copy()), second);

  EXPECT_TRUE(app().applicationWillTerminate());
  EXPECT_FALSE(isThere());
  launch();
  EXPECT_FALSE(app().documents().recovery().wasCutOff());
  EXPECT_FALSE(app().documents().recover());
}

TEST_F(VLRecoveryTest, EachEditOfADeviceIsInTheCopyAndWithoutOneNothingIsWritten) {
  launch();
  const auto desk = destinationOf(appear("desk"));
  const auto generator = created()->generator();
  const auto reader = manager().createrReader();
  mHost.advance(20 * kSecond);
  const std::function<void()> edits[] = {
      [&] { generator->setUserbits(0x12345678); },
      [&] { generator->setLevel(0.25); },
      [&] {
        generator->setChannelMap(std::vector<std::int32_t>{-1, 0});
      },
      [&] { reader->setChannel(1); },
      [&] { reader->setFreewheelTime(9); },
      [&] { reader->setConditionsInput(true); },
      [&] { desk->setEnable(true); },
      [&] { manager().removeDevicesAtIndexes({1}); }};
  for (const auto& edit : edits) {
    const std::string before = contents(copy());
    edit();
    mHost.advance(20 * kSecond);
    EXPECT_NE(contents(copy()), before) << &edit - edits;
  }
  std::filesystem::remove(copy());
  mHost.advance(60 * kSecond);
  EXPECT_FALSE(isThere());
}

TEST_F(VLRecoveryTest, TheLastInterruptedRunCanBeRestoredAtAnyLaterStart) {
  launch();
  goTo("00:00:13:00");
  mHost.advance(3 * kSecond);
  launch();
  goTo("00:00:42:00");
  app().addMarker();
  mHost.advance(3 * kSecond);
  launch();  // without an end
  ASSERT_TRUE(app().documents().recovery().wasCutOff());
  EXPECT_EQ(app().documents().recovery().leftBehind(), old());
  EXPECT_EQ(now(), "00:00:00:00");

  // Who reads of it ends this run, and starts another.
  goTo("00:00:13:00");
  mHost.advance(3 * kSecond);
  EXPECT_EQ(contents(copy()).find("Marker 1"), std::string::npos);
  EXPECT_TRUE(app().applicationWillTerminate());
  EXPECT_FALSE(isThere());
  launch();
  EXPECT_FALSE(app().documents().recovery().wasCutOff());
  EXPECT_EQ(now(), "00:00:13:00");
  EXPECT_TRUE(app().documents().recover());
  EXPECT_EQ(now(), "00:00:42:00");
  EXPECT_EQ(app().markers().markers().size(), 1U);
  EXPECT_FALSE(app().documents().recovery().leftBehind());
  EXPECT_TRUE(std::filesystem::exists(old())) << "this run may be cut off, too";
  EXPECT_TRUE(app().applicationWillTerminate());
  EXPECT_FALSE(std::filesystem::exists(old()));
  EXPECT_FALSE(isThere());
}

TEST_F(VLRecoveryTest, AnotherRunningProgramIsNotReportedAsInterrupted) {
  launch();
  goTo("00:00:42:00");
  mHost.advance(3 * kSecond);
  ASSERT_TRUE(isThere());
  VLRecovery beside(folders().state(), [] { return "mine"; });
  EXPECT_TRUE(beside.isBesideAnother());
  EXPECT_FALSE(beside.leftBehind());
  beside.noteEdit();
  mHost.advance(20 * kSecond);
  EXPECT_NE(contents(copy()), "mine");
  beside.end();
  EXPECT_TRUE(isThere());
}

TEST_F(VLRecoveryTest, ARunThatIsInterruptedInAPlayComesBackOnTheSyncSourceThatThePlaySetAside) {
  launch();
  const auto deck = addSource("deck");
  app().setSyncSource(deck);
  app().play();
  mHost.advance(3 * kSecond);
  const auto show = mFolder.path() / "show.velor";
  EXPECT_TRUE(app().saveApplicationStateToURL(show));
  launch();
  EXPECT_TRUE(app().documents().recover());
  EXPECT_TRUE(app().syncSource() != nullptr && app().syncSource()->isEqual(*deck));
  app().setSyncSource(nullptr);
  EXPECT_TRUE(app().loadApplicationStateFromURL(show));
  EXPECT_TRUE(app().syncSource() != nullptr && app().syncSource()->isEqual(*deck));
}

TEST_F(VLRecoveryTest, ARunWhoseStateCannotBeSavedCountsAsInterrupted) {
  launch();
  goTo("00:00:42:00");  // a moment ago
  std::filesystem::create_directories(folders().data() / "laststate.velor");
  const auto saved = app().applicationWillTerminate();
  ASSERT_FALSE(saved);
  EXPECT_NE(saved.error().text.find("laststate.velor"), std::string::npos);
  launch();
  EXPECT_TRUE(app().documents().recovery().wasCutOff());
  EXPECT_TRUE(app().documents().recover());
  EXPECT_EQ(now(), "00:00:42:00");
}

}  // namespace
}  // namespace velor
