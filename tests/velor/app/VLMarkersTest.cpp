// SPDX-License-Identifier: MIT
#include "Velor/app/VLMarkers.h"

#include <gtest/gtest.h>

#include "tests/velor/app/AppFixture.h"

namespace velor {
namespace {

class VLMarkersTest : public AppFixture {
 protected:
  VLMarkersTest() { launch(); }

  void addAt(const std::string& text) {
    goTo(text);
    app().addMarker();
  }
  VLMarkerController& controller() { return app().markers().controller(); }
  qt::UndoManager& undoManager() { return app().undoManager(); }
  std::string names() {
    std::string result;
    for (const auto& marker : controller().arrangedObjects()) {
      result += (result.empty() ? "" : ", ") + marker->name();
    }
    return result;
  }
};

TEST_F(VLMarkersTest, JumpsLeaveTheMarkerTheyStandOnAndDoNotWrap) {
  addAt("00:00:20:00");
  addAt("00:00:10:00");
  app().gotoPrevMarker();
  EXPECT_EQ(now(), "00:00:10:00");
  app().moveToMarker(2);
  EXPECT_EQ(now(), "00:00:20:00");
  EXPECT_EQ(controller().selectionIndexes(), std::set<std::size_t>{1});
  app().moveToMarker(101);
  EXPECT_EQ(now(), "00:00:20:00");
  app().moveToMarker(99);
  EXPECT_EQ(now(), "00:00:10:00");
  goTo("00:00:15:00");
  app().gotoNextMarker();
  EXPECT_EQ(now(), "00:00:20:00");
  goTo("00:00:15:00");
  app().moveToMarker(0);
  EXPECT_EQ(now(), "00:00:10:00");
  app().moveToMarker(7);
  EXPECT_EQ(now(), "00:00:10:00");
  // Two at one time, by an edit: both are left.
  EXPECT_TRUE(controller().arrangedObjects()[1]->setTimecodeString("00:00:10:00"));
  app().gotoNextMarker();
  app().gotoPrevMarker();
  EXPECT_EQ(now(), "00:00:10:00");
}

TEST_F(VLMarkersTest, NamesCountFromTheListAndATimeThatHasAMarkerGetsNone) {
  app().gotoNextMarker();
  app().gotoPrevMarker();
  EXPECT_EQ(now(), "00:00:00:00") << "nowhere to go";
  const auto named = [](const char* text, const char* name) {
    return VLMarker::initWithTime(KVSMPTETime::smpteTimeWithString(text, kSMPTETimeType25), name);
  };
  app().markers().setMarkers({named("00:00:01:00", "Intro"), named("00:00:02:00", "Verse"),
                              named("00:00:03:00", "Marker 9")});
  addAt("00:00:04:00");
  addAt("00:00:02:00");
  addAt("00:00:05:00");
  EXPECT_EQ(names(), "Intro, Verse, Marker 9, Marker 4, Marker 5");
}

TEST_F(VLMarkersTest, EachEditIsAStepWithItsNameAndItsOpposite) {
  addAt("00:00:10:00");
  EXPECT_EQ(undoManager().undoActionName(), "insert Marker 1");
  undoManager().undo();
  EXPECT_EQ(names(), "");
  EXPECT_EQ(undoManager().redoActionName(), "remove Marker 1");
  undoManager().redo();
  EXPECT_EQ(undoManager().undoActionName(), "insert Marker 1");
  addAt("00:00:05:00");
  addAt("00:00:07:00");
  controller().setSelectionIndexes({0, 1, 2});
  app().deleteMarkers();
  EXPECT_EQ(names(), "");
  EXPECT_EQ(undoManager().undoActionName(), "remove 3 markers");
  undoManager().undo();
  EXPECT_EQ(names(), "Marker 2, Marker 3, Marker 1");
  EXPECT_EQ(app().markers().markers()[0]->name(), "Marker 1") << "each at its index";
  EXPECT_EQ(undoManager().redoActionName(), "insert 3 markers");
  controller().setSelectionIndexes({1});
  app().deleteMarkers();
  EXPECT_EQ(names(), "Marker 2, Marker 1");
  undoManager().undo();
  EXPECT_EQ(app().markers().markers()[2]->name(), "Marker 3");
}

TEST_F(VLMarkersTest, AFormatKeepsTheirRealTimesAndAnUnknownTimeIsPassedOver) {
  addAt("00:00:10:20");
  addAt("00:00:20:00");
  app().markers().insertMarkers({VLMarker::initWithTime(std::make_shared<KVSMPTETime>(), "lost")},
                                {1});
  controller().arrangedObjects()[0]->time()->timeStamp().mFlags = 0;
  controller().rearrangeObjects();
  EXPECT_FALSE(controller().arrangedObjects()[0]->setTimecodeString("half past"));
  clock().setSmpteFormat(kSMPTETimeType30);
  EXPECT_EQ(controller().arrangedObjects()[0]->timecodeString(), "00:00:10:24");
  EXPECT_EQ(controller().arrangedObjects()[1]->timecodeString(), "00:00:20:00");
  controller().setSelectionIndexes({0});
  app().deleteMarkers();
  clock().setSmpteFormat(kSMPTETimeType25);
  undoManager().undo();
  EXPECT_EQ(controller().arrangedObjects()[0]->timecodeString(), "00:00:10:20");
  clock().setSmpteFormat(kSMPTETimeType30);
  goTo("00:00:00:00");
  app().gotoNextMarker();
  EXPECT_EQ(now(), "00:00:10:24");
  app().gotoNextMarker();
  app().gotoNextMarker();
  EXPECT_EQ(now(), "00:00:20:00");
}

}  // namespace
}  // namespace velor
