// SPDX-License-Identifier: MIT
#include "Velor/views/VLTranslation.h"

#include <QMenuBar>

#include "tests/velor/views/WindowFixture.h"

namespace velor {
namespace {

class VLTranslationTest : public WindowFixture {
 protected:
  VLTranslationTest() { VLTranslation::install(mOfTheTest, QLocale("de_DE")); }
  ~VLTranslationTest() override { close(); }
  QObject mOfTheTest;
};

TEST_F(VLTranslationTest, AGermanWindowShowsGermanWhileTimesAndNumbersKeepTheirForm) {
  open();
  QStringList menus;
  for (const QAction* each : mMain->menuBar()->actions()) {
    menus.push_back(each->text().remove('&'));
  }
  EXPECT_EQ(menus.mid(0, 3), QStringList({"Datei", "Bearbeiten", "Uhr"}));
  EXPECT_EQ(child("startButton").accessibleName(), "Start");
  EXPECT_EQ(mMain->timecodeView().label(VLTimecodeView::Time::first), "Startzeit");
  EXPECT_EQ(markerTable().model()->headerData(0, Qt::Horizontal), "Name");
  addMarkers({"01:02:03:04"});
  EXPECT_EQ(cell(markerTable(), 0, 1), "01:02:03:04");
  EXPECT_EQ(action("undo").text(), "&Rückgängig: Marker 1 einfügen");
  app().clock().setPlayRatePercent(2);
  settle();
  EXPECT_EQ(child("playRateButton").text(), "+2.00 %");
  EXPECT_EQ(child<QWidget>("formatPopupButton").property("currentText"), "25");
}

TEST_F(VLTranslationTest, QuestionsOfTheControllerKeepTheirNamesInTheirPlaces) {
  EXPECT_EQ(VLTranslation::text("There appears to be a MIDI loop between \"%2\" and \"b\". For "
                                "correct operation \"b\" should not be a MTC Destination"),
            "Zwischen „%2“ und „b“ scheint eine MIDI-Schleife zu bestehen. Für einen richtigen "
            "Betrieb darf „b“ kein MTC-Ziel sein.");
  EXPECT_EQ(VLTranslation::text("insert 12 markers"), "12 Marker einfügen");
  EXPECT_EQ(VLTranslation::text("Device 3 is away"), "Device 3 is away");
}

TEST(VLTranslationOfEnglish, AnEnglishDesktopStaysEnglishWhateverItsSecondLanguageIs) {
  QObject ofTheTest;
  VLTranslation::install(ofTheTest, QLocale("en_US"));
  EXPECT_EQ(VLTranslation::text("Yes"), "Yes");
}

}  // namespace
}  // namespace velor
