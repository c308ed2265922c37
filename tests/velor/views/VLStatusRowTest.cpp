// SPDX-License-Identifier: MIT
#include "Velor/views/VLStatusRow.h"

#include <QAccessible>
#include <QLabel>
#include <filesystem>
#include <fstream>

#include "platform/host/Log.h"
#include "tests/velor/views/WindowFixture.h"

namespace velor {
namespace {

class VLStatusRowTest : public WindowFixture {
 protected:
  VLStatusRow& row() { return child<VLStatusRow>("statusRow"); }
  /// A whole text that is shown, or what is wrong with it.
  std::string shown(const char* name) {
    const auto& label = child<QLabel>(name);
    return !label.isVisible()                         ? "hidden"
           : label.width() < label.sizeHint().width() ? "cut: " + label.text().toStdString()
                                                      : label.text().toStdString();
  }
  void look() {
    mHost.advance(host::kNsPerSecond);
    settle();
  }
};

TEST_F(VLStatusRowTest, ANarrowWindowWithAllNoticesCutsOnlyWhatIsLong) {
  std::filesystem::create_directories(folders().state());
  std::ofstream(folders().state() / VLRecovery::kFileName) << "{}";
  open();
  app().setSyncSource(addSource("A desk with a long name"));
  VELOR_LOG_WARNING("a warning that is much longer than there is room for in a narrow window");
  look();
  mMain->resize(mMain->minimumSizeHint());
  settle();
  EXPECT_EQ(shown("serverStatus"), "internal 48 kHz / 256 · 0 xruns");
  EXPECT_EQ(shown("oscStatus"), "OSC off");
  EXPECT_EQ(shown("lastRun"), "Last run interrupted");
  EXPECT_GE(child("recover").width(), child("recover").sizeHint().width());
  EXPECT_GT(child("lastWarning").width(), 100);
  EXPECT_LE(child("recover").geometry().right(), row().width());
}

TEST_F(VLStatusRowTest, AnInterruptedRunIsOfferedUntilItIsRecovered) {
  open();
  addMarkers({"01:00:00:00"});
  mHost.advance(3 * host::kNsPerSecond);
  close();  // without an end
  open();
  EXPECT_EQ(shown("lastRun"), "Last run interrupted");
  click("recover");
  EXPECT_EQ(markers().size(), 1U);
  EXPECT_EQ(shown("lastRun"), "hidden");
  EXPECT_FALSE(child("recover").isVisible());
}

TEST_F(VLStatusRowTest, NamesTheReportOfACrashBesideTheOffer) {
  const auto report = folders().crashes() / "crash-2026-11-22-14-57-38-1234.txt";
  std::filesystem::create_directories(folders().crashes());
  std::ofstream(report) << "Velor crashed.";
  std::ofstream(report.string() + ".new") << "";
  std::ofstream(folders().state() / VLRecovery::kFileName) << "{}";
  open();
  EXPECT_TRUE(row().stringValue().endsWith("Crash report: " + QString::fromStdString(report)))
      << row().stringValue().toStdString();
  EXPECT_TRUE(child("recover").isVisible());
}

TEST_F(VLStatusRowTest, NamesALastStateThatCannotBeReadAndAMissingMIDIServer) {
  std::filesystem::create_directories(folders().data());
  std::ofstream(folders().data() / "laststate.velor") << "{";
  open();
  EXPECT_TRUE(row().stringValue().contains("Last state not restored: "))
      << row().stringValue().toStdString();
  EXPECT_FALSE(child("recover").isVisible());
  mOutside->isServerThere = false;
  look();
  EXPECT_EQ(shown("serverStatus"), "No MIDI server · internal 48 kHz / 256 · 0 xruns");
  mOutside->isServerThere = true;
  look();
  EXPECT_EQ(shown("serverStatus"), "internal 48 kHz / 256 · 0 xruns");
}

TEST_F(VLStatusRowTest, ScreenReadersGetTheRowAsOneText) {
  open();
  QAccessibleInterface* status = QAccessible::queryAccessibleInterface(&row());
  EXPECT_EQ(status->text(QAccessible::Name), "Status");
  EXPECT_TRUE(status->state().readOnly);
  ASSERT_NE(status->textInterface(), nullptr);
  EXPECT_EQ(status->textInterface()->text(0, status->textInterface()->characterCount()),
            "internal 48 kHz / 256 · 0 xruns | MTC in: none | OSC off");
}

}  // namespace
}  // namespace velor
