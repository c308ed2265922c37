// SPDX-License-Identifier: MIT
#include "Velor/app/VLMenus.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/velor/app/AppFixture.h"

namespace velor {
namespace {

class VLMenusTest : public AppFixture {
 protected:
  static std::string text(const VLMenus::Items& items) {
    std::string all;
    for (const VLMenuItem& item : items) {
      all += item.title.empty() ? "-" : item.title;
      all += item.keyEquivalent.empty() ? "" : "/" + item.keyEquivalent;
      all += item.isOn ? " on, " : ", ";
    }
    return all;
  }
};

TEST_F(VLMenusTest, TheItemsSayWhatIsChosenAndChooseWhatIsStillThere) {
  launch();
  const VLMenus menus(app());
  EXPECT_EQ(text(menus.syncSourceMenu()), "Intern/t on, -, ");
  addSource("deck");
  addSource("desk");
  menus.syncSourceMenu()[3].action();
  EXPECT_EQ(text(menus.syncSourceMenu()), "Intern/t, -, deck, desk on, ");
  app().arm();
  EXPECT_TRUE(menus.isArmed());
  menus.syncSourceMenu()[0].action();
  EXPECT_EQ(app().syncSource(), nullptr);
  EXPECT_FALSE(menus.isArmed());

  const auto device = created();
  const std::string name = device->name().value_or("");
  EXPECT_EQ(text(menus.mtcDestinationsMenu()), name + ", ");
  menus.mtcDestinationsMenu()[0].action();
  EXPECT_EQ(text(menus.mtcDestinationsMenu()), name + " on, ");
  std::vector<std::shared_ptr<VLDevice>> shown;
  menus.currentDevicesMenu([&shown](const auto& each) { shown.push_back(each); })[0].action();
  ASSERT_EQ(shown.size(), 1U);
  EXPECT_EQ(shown[0], device);

  menus.playbackModeMenu()[2].action();
  menus.changePlaybackMode(17);
  EXPECT_EQ(text(menus.playbackModeMenu()), "Normal, Stop, Loop on, Time of day, ");
  menus.clockmenuFormatMenu()[4].action();
  EXPECT_EQ(text(menus.clockmenuFormatMenu()), "24, 25, 29.97, 29.97 Drop, 30 on, 30 Drop, ");
}

}  // namespace
}  // namespace velor
