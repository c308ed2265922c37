// SPDX-License-Identifier: MIT
#include "Velor/views/VLMainWindow.h"

#include <gtest/gtest.h>

#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>

#include "Kv-Appkit/KVException.h"
#include "Velor/views/VLBigTimecodeView.h"
#include "Velor/views/VLStatusRow.h"
#include "platform/host/LogProblem.h"
#include "tests/velor/views/WindowFixture.h"

namespace velor {
namespace {

class VLMainWindowTest : public WindowFixture {
 protected:
  VLMainWindowTest() { open(); }

  QDialog* sheet() { return mMain->sheets().current(); }
  void answer(const char* button) {
    ASSERT_NE(sheet(), nullptr);
    for (VLButton* each : sheet()->findChildren<VLButton*>()) {
      if (each->text() == button) {
        each->click();
        settle();
        return;
      }
    }
    FAIL() << button;
  }
  bool says(const QString& text) {
    return std::ranges::any_of(sheet()->findChildren<QLabel*>(),
                               [&text](const QLabel* each) { return each->text() == text; });
  }
  /// The entries of a menu as it opens; a mark stands before those that are on.
  std::vector<std::string> entries(const char* name) {
    auto& menu = child<QMenu>(name);
    emit menu.aboutToShow();
    std::vector<std::string> result;
    for (const QAction* item : menu.actions()) {
      if (!item->isSeparator()) {
        result.push_back((item->isChecked() ? "*" : "") + item->text().toStdString());
      }
    }
    return result;
  }
  void choose(const char* menu, const QString& text) {
    for (QAction* item : child<QMenu>(menu).actions()) {
      if (item->text() == text) {
        item->trigger();
      }
    }
    settle();
  }
};

TEST_F(VLMainWindowTest, ButtonsAndKeysReachTheClock) {
  click("startButton");
  EXPECT_TRUE(clock().running());
  auto& popup = child<QComboBox>("formatPopupButton");
  popup.setCurrentIndex(popup.findText("30"));
  emit popup.activated(popup.currentIndex());
  EXPECT_EQ(popup.currentText(), "25") << "a running clock refuses it";
  press(*mMain, Qt::Key_Space);
  EXPECT_FALSE(clock().running());

  clickRow(markerTable(), 0, 0);
  for (const char* name : {"startButton", "formatPopupButton", "markerTable", "playRateButton"}) {
    auto& focus = child<QWidget>(name);
    focus.setFocus();
    const bool wasRunning = clock().running();
    press(focus, Qt::Key_Space);
    EXPECT_NE(clock().running(), wasRunning) << name;
  }
  click("prerollButton");
  EXPECT_TRUE(clock().preroll());
  EXPECT_TRUE(child("prerollButton").isChecked());
}

TEST_F(VLMainWindowTest, ReturnPressesTheFocusedControlAndControlGoesWithItsEvent) {
  goTo("00:00:10:00");
  auto& stop = child("stopButton");
  stop.setFocus();
  press(stop, Qt::Key_Return, Qt::ControlModifier);
  EXPECT_EQ(now(), "00:00:00:00");
  goTo("00:00:10:00");
  click("stopButton", Qt::ControlModifier);
  EXPECT_EQ(now(), "00:00:00:00");
  // What has no event of its own has no modifier either.
  EXPECT_FALSE(mMain->isControlKeyHeld());

  auto& popup = child<QComboBox>("formatPopupButton");
  popup.setFocus();
  QWheelEvent turn(QPointF(5, 5), popup.mapToGlobal(QPointF(5, 5)), {}, {0, -120}, {}, {},
                   Qt::NoScrollPhase, false);
  QApplication::sendEvent(&popup, &turn);
  EXPECT_EQ(clock().smpteFormat(), kSMPTETimeType25);
  press(popup, Qt::Key_Return);
  EXPECT_NE(QApplication::activePopupWidget(), nullptr);
  popup.hidePopup();
}

TEST_F(VLMainWindowTest, MenusShowTheMomentAtWhichTheyOpen) {
  const auto source = addSource("Desk & Co");
  appear("Console");
  EXPECT_EQ(entries("syncSourceMenu"), (std::vector<std::string>{"*Intern", "Desk && Co"}));
  choose("syncSourceMenu", "Desk && Co");
  EXPECT_EQ(entries("syncSourceMenu"), (std::vector<std::string>{"Intern", "*Desk && Co"}));
  press(*mMain, Qt::Key_T, Qt::ControlModifier);
  EXPECT_EQ(app().syncSource(), nullptr);

  EXPECT_EQ(entries("mtcDestinationsMenu"), std::vector<std::string>{"Console"});
  choose("mtcDestinationsMenu", "Console");
  EXPECT_EQ(entries("mtcDestinationsMenu"), std::vector<std::string>{"*Console"});
  EXPECT_EQ(listed(), std::vector<std::string>{"+Console"});

  EXPECT_EQ(entries("clockmenuFormatMenu"),
            (std::vector<std::string>{"24", "*25", "29.97", "29.97 Drop", "30", "30 Drop"}));
  choose("clockmenuFormatMenu", "30");
  EXPECT_EQ(child<QComboBox>("formatPopupButton").currentText(), "30");
  entries("playbackModeMenu");
  choose("playbackModeMenu", "Loop");
  EXPECT_EQ(mMain->timecodeView().playMode(), VLPlayModeLoop);
  child<QWidget>("playbackModeControl").findChildren<VLButton*>().at(1)->click();
  EXPECT_EQ(entries("playbackModeMenu"),
            (std::vector<std::string>{"Normal", "*Stop", "Loop", "Time of day"}));
}

TEST_F(VLMainWindowTest, TheBigWindowFollowsTheClock) {
  goTo("01:00:00:00");
  app().popOutMainCounter();
  const VLBigTimecodeView* big = nullptr;
  for (const QWidget* each : QApplication::allWidgets()) {
    big = big != nullptr ? big : dynamic_cast<const VLBigTimecodeView*>(each);
  }
  ASSERT_NE(big, nullptr);
  const auto shown = [&] {
    settle();
    return big->stringValue().toStdString();
  };
  EXPECT_EQ(shown(), "01:00:00:00");
  goTo("02:00:00:00");
  EXPECT_EQ(shown(), "02:00:00:00");
  runFor(5);
  EXPECT_EQ(shown(), now());
}

TEST_F(VLMainWindowTest, TheQuestionOfTheQuitHoldsItUntilItIsAnswered) {
  click("startButton");
  mMain->close();
  settle();
  ASSERT_NE(sheet(), nullptr);
  EXPECT_EQ(sheet()->windowModality(), Qt::WindowModal);
  const QDialog* first = sheet();
  mMain->quit();
  settle();
  EXPECT_EQ(sheet(), first);
  answer("No");
  EXPECT_EQ(sheet(), nullptr);
  EXPECT_TRUE(clock().running());
  EXPECT_TRUE(mMain->isVisible());
  mMain->quit();
  settle();
  EXPECT_NE(sheet(), nullptr);
}

TEST_F(VLMainWindowTest, SheetsComeOneAfterTheOtherAndPassedQuestionsDoNothing) {
  const auto source = addSource("Desk");
  app().setSyncSource(source);
  clock().arm();
  playBlocks(*source, 3, 1, kRate30);
  settle();
  ASSERT_NE(sheet(), nullptr);
  EXPECT_EQ(sheet()->windowTitle(), "Wrong SMPTE Format");
  mMain->presentError("<b>no</b> & none");
  settle();
  EXPECT_EQ(sheet()->windowTitle(), "Wrong SMPTE Format");
  app().setSyncSource(nullptr);
  answer("use 30 fps");
  EXPECT_EQ(clock().smpteFormat(), kSMPTETimeType25);
  EXPECT_TRUE(says("<b>no</b> & none"));
  answer("OK");
  EXPECT_EQ(sheet(), nullptr);
}

TEST_F(VLMainWindowTest, AnExceptionOfAnActionBecomesASheetAndALineOfTheLog) {
  const std::uint64_t before = host::lastLogProblem().number;
  mMain->performOnController([](VLAppDelegate&) { KVRaiseServiceError("createSource", -50); });
  settle();
  EXPECT_TRUE(says("Error: createSource (-50)"));
  EXPECT_EQ(host::lastLogProblem().number, before + 1);
  answer("OK");
  mHost.advance(host::kNsPerSecond);
  settle();
  EXPECT_TRUE(child("lastWarning").isVisible());
  EXPECT_TRUE(child<VLStatusRow>("statusRow").stringValue().contains("createSource (-50)"));
  click("lastWarning");
  EXPECT_FALSE(child("lastWarning").isVisible());
}

TEST_F(VLMainWindowTest, ThePlayRateIsTakenAsTypedOrGivenBack) {
  click("playRateButton");
  ASSERT_NE(sheet(), nullptr);
  auto& field = *sheet()->findChild<QLineEdit*>("playRateTextField");
  const auto typed = [&](const char* text) {
    field.setText(text);
    emit field.editingFinished();
    settle();
    return field.text().toStdString();
  };
  EXPECT_EQ(typed("-1.5"), "-1.500");
  EXPECT_NEAR(clock().playRatePercent(), -1.5, 1e-9);
  EXPECT_EQ(typed("fast"), "-1.500");
  EXPECT_EQ(typed(""), "0.000");
  EXPECT_EQ(typed("2,5"), "0.000");
  EXPECT_EQ(typed("1e9"), typed("1e10"));
  field.setText("0.1");
  press(field, Qt::Key_Return);
  EXPECT_EQ(sheet(), nullptr);
  EXPECT_EQ(child("playRateButton").text(), "+0.10 %");
}

TEST_F(VLMainWindowTest, TheEditMenuReachesTheTimeThatIsEdited) {
  addMarkers({"00:00:10:00"});
  goTo("00:00:20:00");
  settle();
  QTest::mouseClick(&mMain->timecodeView(), Qt::LeftButton, {},
                    QPoint(mMain->timecodeView().width() / 2, 20));
  settle();
  emit child<QMenu>("editMenu").aboutToShow();
  EXPECT_TRUE(action("copy").isEnabled());
  action("copy").trigger();
  action("delete").trigger();
  EXPECT_EQ(now(), "00:00:00:00");
  EXPECT_EQ(markers(), std::vector<std::string>{"00:00:10:00 Marker 1"});
  action("paste").trigger();
  EXPECT_EQ(now(), "00:00:20:00");
}

TEST_F(VLMainWindowTest, DestinationsAreSwitchedInTheirRowsAndFollowTheSystem) {
  const auto desk = appear("Console");
  settle();
  auto& table = child<VLTableView>("mtcDestinationsTable");
  EXPECT_EQ(cell(table, 0, 2), "off");
  table.setFocus();
  table.setCurrentIndex(table.model()->index(0, 1));
  press(table, Qt::Key_Return);
  EXPECT_EQ(listed(), std::vector<std::string>{"+Console"});
  EXPECT_EQ(cell(table, 0, 2), "ready");
  click("startButton");
  EXPECT_EQ(cell(table, 0, 2), "sending");
  vanish(desk);
  settle();
  EXPECT_EQ(table.model()->rowCount(), 0);
}

TEST_F(VLMainWindowTest, TabGoesInTheSameOrderAndComesAround) {
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

TEST_F(VLMainWindowTest, AnyKeyAnywhereLeavesTheWindowStanding) {
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
