// SPDX-License-Identifier: MIT
#include "Velor/views/VLStatusRow.h"

#include <QLabel>
#include <filesystem>
#include <fstream>

#include "tests/velor/views/WindowFixture.h"

namespace velor {
namespace {

class VLStatusRowTest : public WindowFixture {
 protected:
  VLStatusRow& row() { return child<VLStatusRow>("statusRow"); }
  std::string shown(const char* name) {
    const auto& label = child<QLabel>(name);
    return label.isVisible() ? label.text().toStdString() : "hidden";
  }
};

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
  for (const auto& [isThere, text] :
       {std::pair(false, "No MIDI server · internal 48 kHz / 256 · 0 xruns"),
        std::pair(true, "internal 48 kHz / 256 · 0 xruns")}) {
    mOutside->isServerThere = isThere;
    mHost.advance(host::kNsPerSecond);
    settle();
    EXPECT_EQ(shown("serverStatus"), text);
  }
}

}  // namespace
}  // namespace velor
