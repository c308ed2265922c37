// SPDX-License-Identifier: MIT
// What screen readers and the keyboard meet in the main window, in its order.
#include <QAccessible>
#include <QComboBox>
#include <QDialog>

#include "Velor/views/VLScreenFit.h"
#include "tests/velor/views/WindowFixture.h"

namespace velor {
namespace {

class VLMainWindowAccessTest : public WindowFixture {
 protected:
  /// The named controls and texts in the order in which they are read.
  static void collect(QAccessibleInterface* parent, QStringList& names) {
    for (int i = 0; i < parent->childCount(); ++i) {
      QAccessibleInterface* child = parent->child(i);
      const QString name = child->text(QAccessible::Name);
      const bool isContent = child->role() == QAccessible::MenuBar ||
                             child->role() == QAccessible::StaticText ||
                             child->tableInterface() != nullptr;
      if (!name.isEmpty() && !child->state().invisible &&
          child->role() != QAccessible::StaticText && child->role() != QAccessible::MenuBar) {
        names.push_back(name);
      }
      if (!isContent) {
        collect(child, names);
      }
    }
  }
  QStringList names() {
    QStringList names;
    collect(QAccessible::queryAccessibleInterface(mMain->centralWidget()), names);
    return names;
  }
};

TEST_F(VLMainWindowAccessTest, ReadsFromTheCountersToTheStatus) {
  open();
  EXPECT_EQ(names().join(" | ").toStdString(),
            "Timecode | Offset | Start Time | Play | Stop | Arm | Pre-roll | Play Mode | Normal | "
            "Stop | Loop | Time of day | 25 | Play Rate... | Destinations | Previous Marker | "
            "Add Marker | Next Marker | Markers | Status");
  const auto label = QAccessible::queryAccessibleInterface(&child<QComboBox>("formatPopupButton"))
                         ->relations(QAccessible::Label);
  ASSERT_EQ(label.size(), 1);
  EXPECT_EQ(label[0].first->text(QAccessible::Name), "Format");
}

TEST_F(VLMainWindowAccessTest, TabGoesInTheSameOrderAndComesAround) {
  open();
  child("startButton").setFocus();
  std::string order;
  for (int i = 0; i < 20; ++i) {
    QWidget* focus = QApplication::focusWidget();
    ASSERT_NE(focus, nullptr) << order;
    order +=
        (focus == &mMain->timecodeView() ? "counters" : focus->accessibleName().toStdString()) +
        "|";
    press(*focus, Qt::Key_Tab);
    if (QApplication::focusWidget() == &child("startButton")) {
      break;
    }
  }
  // The format is named by its label; of the counters, two can be edited.
  EXPECT_EQ(order,
            "Play|Stop|Arm|Pre-roll|Normal|Stop|Loop|Time of day||Play Rate...|Destinations|"
            "Previous Marker|Add Marker|Next Marker|Markers|counters|counters|");
}

TEST_F(VLMainWindowAccessTest, AnyKeyAnywhereLeavesTheWindowStanding) {
  open();
  addMarkers({"01:00:00:00", "02:00:00:00"});
  appear("Console");
  settle();
  for (int stop = 0; stop < 18; ++stop) {
    for (const int key :
         {Qt::Key_Return, Qt::Key_Backtab, Qt::Key_Backspace, Qt::Key_Insert, Qt::Key_Delete,
          Qt::Key_Home, Qt::Key_End, Qt::Key_Left, Qt::Key_Up, Qt::Key_Right, Qt::Key_Down,
          Qt::Key_PageUp, Qt::Key_PageDown, Qt::Key_Space, Qt::Key_F2, Qt::Key_Escape}) {
      for (const auto modifiers : {Qt::NoModifier, Qt::ShiftModifier, Qt::ControlModifier}) {
        QWidget* focus = QApplication::focusWidget();
        press(focus != nullptr ? *focus : *mMain, key, modifiers);
      }
      while (QWidget* popup = QApplication::activePopupWidget()) {
        popup->close();
        settle();
      }
      while (QDialog* sheet = mMain->sheets().current()) {
        sheet->reject();
        settle();
      }
    }
    for (const char letter : std::string("az09")) {
      QTest::keyClick(QApplication::focusWidget(), letter);
    }
    press(*QApplication::focusWidget(), Qt::Key_Escape);
    mMain->activateWindow();
    press(*QApplication::focusWidget(), Qt::Key_Tab);
  }
  EXPECT_TRUE(mMain->isVisible());
  EXPECT_EQ(cell(markerTable(), 0, 1).size(), 11U);
}

}  // namespace
}  // namespace velor
