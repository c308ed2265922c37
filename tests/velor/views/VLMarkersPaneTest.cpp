// SPDX-License-Identifier: MIT
#include "Velor/views/VLMarkersPane.h"

#include <gtest/gtest.h>

#include "tests/velor/views/WindowFixture.h"

namespace velor {
namespace {

class VLMarkersPaneTest : public WindowFixture {
 protected:
  VLMarkersPaneTest() { open(); }

  using Rows = std::vector<std::string>;
  Rows rows() {
    Rows result;
    for (int row = 0; row < markerTable().model()->rowCount(); ++row) {
      result.push_back(cell(markerTable(), row, 1) + " " + cell(markerTable(), row, 0));
    }
    return result;
  }
  std::vector<int> selected() {
    std::vector<int> result;
    for (const QModelIndex& each : markerTable().selectionModel()->selectedRows()) {
      result.push_back(each.row());
    }
    std::ranges::sort(result);
    return result;
  }
  /// By a double click, the keys and Return or Escape.
  void edit(int row, int column, const char* text, int end) {
    QLineEdit* editor = beginEdit(markerTable(), row, column);
    ASSERT_NE(editor, nullptr);
    editor->selectAll();
    QTest::keyClicks(editor, text);
    press(*editor, end);
  }
};

TEST_F(VLMarkersPaneTest, NamesAndTimesAreEditedInPlaceAndTheRowGoesToItsPlace) {
  addMarkers({"00:00:10:00", "00:00:20:00", "00:00:30:00"});
  edit(0, 0, "Walk in", Qt::Key_Return);
  EXPECT_EQ(rows()[0], "00:00:10:00 Walk in");
  EXPECT_FALSE(clock().running());  // the blank was typed
  edit(0, 1, "00:00:25:00", Qt::Key_Return);
  EXPECT_EQ(rows(), (Rows{"00:00:20:00 Marker 2", "00:00:25:00 Walk in", "00:00:30:00 Marker 3"}));
  EXPECT_EQ(selected(), std::vector<int>{1});
  edit(1, 1, "00:00:99:99", Qt::Key_Return);
  edit(1, 0, "gone", Qt::Key_Escape);
  EXPECT_EQ(rows()[1], "00:00:25:00 Walk in");
}

TEST_F(VLMarkersPaneTest, OnlyAClickOrAKeyWithControlMovesTheClock) {
  addMarkers({"00:00:10:00", "00:00:20:00", "00:00:30:00"});
  goTo("00:01:00:00");
  auto& table = markerTable();
  clickRow(table, 0, 0);
  EXPECT_EQ(now(), "00:01:00:00");
  clickRow(table, 1, 0, Qt::ControlModifier);
  EXPECT_EQ(now(), "00:00:20:00");
  EXPECT_EQ(selected(), (std::vector<int>{0, 1}));
  press(table, Qt::Key_Down, Qt::ControlModifier);
  EXPECT_EQ(now(), "00:00:30:00");
  EXPECT_EQ(selected(), std::vector<int>{2});

  goTo("00:01:00:00");
  clickRow(table, 2, 0, Qt::ControlModifier);  // leaves none selected
  press(table, Qt::Key_A, Qt::ControlModifier);
  EXPECT_EQ(selected().size(), 3U);
  press(table, Qt::Key_Delete);
  EXPECT_TRUE(rows().empty());
  press(table, Qt::Key_Z, Qt::ControlModifier);
  EXPECT_EQ(rows().size(), 3U);
  EXPECT_EQ(now(), "00:01:00:00");
}

TEST_F(VLMarkersPaneTest, TheTableAndTheListSelectTheSameWhoeverSelected) {
  addMarkers({"00:00:10:00", "00:00:20:00", "00:00:30:00"});
  goTo("00:00:05:00");
  app().gotoNextMarker();
  EXPECT_EQ(selected(), std::vector<int>{0});
  clickRow(markerTable(), 2, 1);
  EXPECT_EQ(app().markers().controller().selectionIndexes(), std::set<std::size_t>{2});
  click("addMarkerButton");  // none at 00:00:10:00, where one stands
  EXPECT_EQ(rows().size(), 3U);
  goTo("00:00:15:00");
  click("addMarkerButton");
  EXPECT_EQ(selected(), std::vector<int>{1});
  click("nextMarkerButton");
  EXPECT_EQ(now(), "00:00:20:00");
  EXPECT_EQ(selected(), std::vector<int>{2});
}

TEST_F(VLMarkersPaneTest, AnOpenEditorOutlivesMarkersThatComeByOtherWays) {
  addMarkers({"00:00:10:00", "00:00:30:00"});
  auto& table = markerTable();
  table.edit(table.model()->index(1, 0));
  auto* editor = table.findChild<QLineEdit*>();
  ASSERT_NE(editor, nullptr);
  editor->setText("Finale");
  goTo("00:00:20:00");
  app().addMarker();
  settle();
  ASSERT_EQ(table.findChild<QLineEdit*>(), editor);
  press(*editor, Qt::Key_Return);
  EXPECT_EQ(rows()[2], "00:00:30:00 Finale");
}

}  // namespace
}  // namespace velor
