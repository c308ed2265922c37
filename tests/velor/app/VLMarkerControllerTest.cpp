// SPDX-License-Identifier: MIT
#include "Velor/app/VLMarkerController.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "kvtimecode/SMPTETime.h"

namespace velor {
namespace {

class VLMarkerControllerTest : public ::testing::Test, public VLMarkerList {
 protected:
  VLMarkerControllerTest() {
    for (const char* key : {"arrangedObjects", "selectionIndexes"}) {
      mTokens.push_back(mController.addObserver(
          key, [this](std::string_view told) { mTold += std::string(told) + " "; }));
    }
  }

  const Markers& markers() const override { return mMarkers; }
  void insertMarkers(const Markers& markers, const std::set<std::size_t>& indexes) override {
    auto next = markers.begin();
    for (const std::size_t index : indexes) {
      mMarkers.insert(mMarkers.begin() + static_cast<std::ptrdiff_t>(index), *next++);
    }
    mController.contentChanged();
  }
  void removeMarkersAtIndexes(const std::set<std::size_t>& indexes) override {
    mTold += "remove ";
    for (auto index = indexes.rbegin(); index != indexes.rend(); ++index) {
      mMarkers.erase(mMarkers.begin() + static_cast<std::ptrdiff_t>(*index));
    }
    mController.contentChanged();
  }

  static std::shared_ptr<VLMarker> marker(const char* name, std::int32_t seconds,
                                          std::uint32_t format = kSMPTETimeType25) {
    return VLMarker::initWithTime(KVSMPTETime::smpteTimeWithHours(0, 0, seconds, 0, format), name);
  }
  static std::shared_ptr<VLMarker> unknown(const char* name) {
    auto made = marker(name, 0);
    made->time()->timeStamp().mFlags = 0;
    return made;
  }
  /// The names in order, the selected ones in brackets.
  std::string shown() const {
    std::string text;
    for (std::size_t i = 0; i < mController.arrangedObjects().size(); ++i) {
      const std::string& name = mController.arrangedObjects()[i]->name();
      text += mController.selectionIndexes().contains(i) ? "[" + name + "]" : name;
    }
    return text;
  }
  std::string told() { return std::exchange(mTold, {}); }

  Markers mMarkers;
  VLMarkerController mController{*this};
  std::string mTold;
  std::vector<KVObserverToken> mTokens;
};

TEST_F(VLMarkerControllerTest, SortsByTimeThenNameWithFormatsMixedAndUnknownTimesBehind) {
  // A second of 29.97 lasts a thousandth longer than one of 25.
  mMarkers = {unknown("y"),
              marker("e", 20),
              unknown("x"),
              marker("d", 10, kSMPTETimeType2997),
              marker("b", 10),
              marker("c", 10),
              marker("a", 9, kSMPTETimeType2398)};
  mController.contentChanged();
  EXPECT_EQ(shown(), "abcdexy");
  // Not announced by the marker.
  mMarkers[1]->time()->setSeconds(1);
  mController.rearrangeObjects();
  EXPECT_EQ(shown(), "eabcdxy");
}

TEST_F(VLMarkerControllerTest, AnEditRearrangesAndWhatIsSelectedStaysSo) {
  mMarkers = {marker("a", 1), marker("b", 2), marker("c", 3), unknown("z")};
  mController.contentChanged();
  mController.setSelectionIndexes({0, 2, 4, 99});
  EXPECT_EQ(shown(), "[a]b[c]z");
  EXPECT_EQ(told(), "arrangedObjects selectionIndexes ");
  mController.setSelectionIndexes({0, 2});
  EXPECT_EQ(told(), "");

  EXPECT_TRUE(mMarkers[0]->setTimecodeString("00:00:09:00"));
  EXPECT_EQ(shown(), "b[c][a]z");
  EXPECT_EQ(told(), "arrangedObjects selectionIndexes ");
  mMarkers[2]->setTime(mMarkers[0]->time()->copy());
  EXPECT_EQ(shown(), "b[a][c]z");
  mMarkers[0]->setName("d");
  EXPECT_EQ(shown(), "b[c][d]z");
  EXPECT_EQ(told(), "arrangedObjects arrangedObjects ");

  const auto gone = mMarkers[2];
  removeMarkersAtIndexes({2});
  EXPECT_EQ(shown(), "b[d]z");
  told();
  gone->setName("gone");
  EXPECT_EQ(told(), "");
  mController.setSelectedObjects({mMarkers[2], gone, mMarkers[1]});
  EXPECT_EQ(shown(), "[b]d[z]");
  EXPECT_EQ(mController.selectedObjects(), (Markers{mMarkers[1], mMarkers[2]}));
}

TEST_F(VLMarkerControllerTest, AddsBehindTheListAndRemovesTheSelectionAtOnce) {
  mController.addObject(marker("c", 3));
  mController.addObject(marker("a", 1));
  mController.addObject(marker("b", 2));
  EXPECT_EQ(shown(), "a[b]c");
  EXPECT_EQ(mMarkers[1]->name(), "a");
  mController.setSelectionIndexes({0, 2});
  told();
  mController.remove();
  EXPECT_EQ(shown(), "b");
  EXPECT_EQ(told(), "remove arrangedObjects selectionIndexes ");
  mController.remove();
  EXPECT_EQ(told(), "");
}

}  // namespace
}  // namespace velor
