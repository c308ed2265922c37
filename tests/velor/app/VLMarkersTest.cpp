// SPDX-License-Identifier: MIT
#include "Velor/app/VLMarkers.h"

#include <gtest/gtest.h>

#include "tests/velor/app/AppFixture.h"

namespace velor {
namespace {

std::shared_ptr<VLMarker> markerAt(const char* time, std::uint32_t format, const char* name = "A") {
  return VLMarker::initWithTime(KVSMPTETime::smpteTimeWithString(time, format), name);
}

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
    return markerAt(text, kSMPTETimeType25, name);
  };
  app().markers().setMarkers({named("00:00:01:00", "Intro"), named("00:00:02:00", "Verse"),
                              named("00:00:03:00", "Marker 9")});
  addAt("00:00:04:00");
  addAt("00:00:02:00");
  addAt("00:00:05:00");
  EXPECT_EQ(names(), "Intro, Verse, Marker 9, Marker 4, Marker 5");
}

TEST_F(VLMarkersTest, AreSortedByTimeThenNameAndWhatIsSelectedStaysSoWhateverIsEdited) {
  const auto timeAt = [](std::int32_t seconds, std::uint32_t format = kSMPTETimeType25) {
    return KVSMPTETime::smpteTimeWithHours(0, 0, seconds, 0, format);
  };
  const auto marker = [&timeAt](const char* name, auto... time) {
    return VLMarker::initWithTime(timeAt(time...), name);
  };
  const auto unknown = marker("x", 0);
  unknown->time()->timeStamp().mFlags = 0;
  const auto c = marker("c", 10);
  // A second of 29.97 lasts a thousandth longer than one of 25.
  app().markers().setMarkers({unknown, marker("d", 10, kSMPTETimeType2997), marker("b", 10), c,
                              marker("a", 9, kSMPTETimeType2398)});
  EXPECT_EQ(names(), "a, b, c, d, x");

  controller().setSelectionIndexes({2, 4, 99});
  EXPECT_TRUE(c->setTimecodeString("00:00:01:00"));
  EXPECT_EQ(names(), "c, a, b, d, x");
  c->setTime(timeAt(10));
  EXPECT_EQ(names(), "a, b, c, d, x");
  c->setName("aa");
  EXPECT_EQ(names(), "a, aa, b, d, x");
  EXPECT_EQ(controller().selectedObjects(), (VLMarkerList::Markers{c, unknown}));
  app().markers().removeMarkersAtIndexes({3});
  EXPECT_EQ(controller().selectedObjects(), VLMarkerList::Markers{unknown});
}

TEST_F(VLMarkersTest, EachEditIsAStepWithItsNameAndItsOpposite) {
  addAt("00:00:10:00");
  EXPECT_EQ(undoManager().undoActionName(), "insert Marker 1");
  undoManager().undo();
  EXPECT_EQ(names(), "");
  EXPECT_EQ(undoManager().redoActionName(), "remove Marker 1");
  undoManager().redo();
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
  app().deleteMarkers();  // none is selected
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

TEST(VLMarker, TakesATimeOfItsFormatAndNothingElse) {
  const auto marker = markerAt("01:02:03:04", kSMPTETimeType25);
  for (const char* refused : {"", "later", "1:2:3", "01:02:03;04", "24:00:00:00", "00:60:00:00",
                              "00:00:60:00", "00:00:00:25", "65537:00:00:00"}) {
    EXPECT_FALSE(marker->setTimecodeString(refused)) << refused;
  }
  EXPECT_EQ(marker->timecodeString(), "01:02:03:04");
  EXPECT_TRUE(marker->setTimecodeString("at 23:59:59:24, say"));
  EXPECT_EQ(marker->timecodeString(), "23:59:59:24");
  const auto drop = markerAt("01:02:03;04", kSMPTETimeType2997Drop);
  EXPECT_FALSE(drop->setTimecodeString("00:01:00;01"));
  EXPECT_TRUE(drop->setTimecodeString("00:10:00;01"));
}

}  // namespace
}  // namespace velor
