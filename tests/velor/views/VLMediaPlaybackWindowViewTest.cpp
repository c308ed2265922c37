// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <QDialog>
#include <QLabel>
#include <fstream>

#include "Velor/views/VLMediaPlaybackWindow.h"
#include "Velor/views/VLSlider.h"
#include "Velor/views/VLTimecodeField.h"
#include "tests/velor/views/WindowFixture.h"

namespace velor {
namespace {

class VLMediaPlaybackWindowViewTest : public WindowFixture {
 protected:
  VLMediaPlaybackWindowViewTest() {
    open();
    action("newPlaybackWindow").trigger();
    settle();
  }

  static VLMediaPlaybackWindow* window() { return WindowFixture::window<VLMediaPlaybackWindow>(); }
  template <class Widget>
  static Widget& part(const char* name) {
    return in<Widget>(*window(), name);
  }
  void clickPart(const char* name) {
    QTest::mouseClick(&part<VLButton>(name), Qt::LeftButton);
    settle();
  }
  VLMediaPlaybackWindowController& controller() { return *app().mediaWindows().windows().at(0); }
  void load(const char* name) {
    std::ofstream(folders().state() / name) << "";
    QDialog& panel = *window()->sheets().current();
    panel.disconnect();  // one that ends without a choice closes the window
    panel.hide();
    controller().loadMediumAtURL(folders().state() / name);
    mHost.advance(50'000'000);
    settle();
  }
};

TEST_F(VLMediaPlaybackWindowViewTest, AsksForAClipAtOnceAndClosesWithoutOne) {
  ASSERT_NE(window(), nullptr);
  EXPECT_FALSE(part<VLButton>("playButton").isEnabled());
  ASSERT_NE(window()->sheets().current(), nullptr);
  window()->sheets().current()->reject();
  settle();
  EXPECT_EQ(window(), nullptr);
  EXPECT_TRUE(app().mediaWindows().windows().empty());
}

TEST_F(VLMediaPlaybackWindowViewTest, TheControlsDriveTheClip) {
  mMedia.clips["clip.mp4"].title = "Walk-in";
  std::filesystem::create_directories(folders().state());
  load("clip.mp4");
  EXPECT_EQ(window()->windowTitle(), "Walk-in");
  QApplication::setActiveWindow(window());
  settle();
  auto& start = *window()->findChild<VLTimecodeField*>();
  start.setFocus(Qt::TabFocusReason);
  QTest::keyClicks(QApplication::focusWidget(), "0203");
  EXPECT_EQ(controller().clipStartTimeString(), "02:03:00:00");
  for (int pair = 2; pair < 4; ++pair) {
    EXPECT_TRUE(start.isAncestorOf(QApplication::focusWidget()));
    press(*QApplication::focusWidget(), Qt::Key_Tab);
  }
  EXPECT_FALSE(start.isAncestorOf(QApplication::focusWidget()));
  media::SimulatedPlayer& player = *mMedia.players.at(0);
  clickPart("playButton");
  EXPECT_EQ(player.rate(), 1);
  window()->setMTCInStatus(VLClockRolling);
  EXPECT_EQ(part<QLabel>("chaseLabel").text(), "in step with MTC");
  clickPart("playButton");
  EXPECT_EQ(player.rate(), 0);
  part<VLSlider>("positionSlider").setValue(4000);
  mHost.advance(host::kNsPerSecond);
  EXPECT_EQ(player.currentTime(), std::chrono::seconds(4));
  clickPart("nextFrameButton");
  mHost.advance(host::kNsPerSecond);
  EXPECT_EQ(player.currentTime(), std::chrono::milliseconds(4040));
  part<VLSlider>("volumeSlider").setValue(50);
  EXPECT_EQ(player.volume(), 0.5F);
  clickPart("onlineButton");
  EXPECT_FALSE(controller().online());
  part<QAction>("controlMasterClock").trigger();
  EXPECT_TRUE(controller().controlMasterClock());

  clickPart("fullScreenButton");
  EXPECT_TRUE(window()->isFullScreen());
  press(*window(), Qt::Key_Escape);
  EXPECT_FALSE(window()->isFullScreen());

  player.fail("the disk is gone");
  settle();
  EXPECT_TRUE(controller().isVisible());
  EXPECT_FALSE(part<VLButton>("playButton").isEnabled());
}

}  // namespace
}  // namespace velor
