// SPDX-License-Identifier: MIT
// velor_views_gallery FOLDER: writes a picture of each view, in light and dark and at each
// scale, to be looked at.
#include <QApplication>
#include <QDir>
#include <QLineEdit>
#include <QPainter>
#include <QPalette>
#include <QVBoxLayout>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "Velor/views/VLBigTimecodeView.h"
#include "Velor/views/VLTimecodeField.h"
#include "Velor/views/VLTimecodeView.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "sim/SimulatedHost.h"

namespace {

using namespace velor;

SMPTETime timeOf(const char* text, std::uint32_t format = kSMPTETimeType25) {
  SMPTETime time{};
  time.mType = format;
  std::string written = text;
  if (ltc_type_is_drop(format)) {
    written[8] = ';';
  }
  parseSmpteTime(written, time, format);
  ltc_normalize(time);
  return time;
}

QPalette darkPalette() {
  QPalette palette(QColor(45, 45, 48));
  palette.setColor(QPalette::Base, QColor(30, 30, 32));
  palette.setColor(QPalette::Text, Qt::white);
  return palette;
}

class AllEditable final : public VLTimecodeViewDelegate {
 public:
  void timecodeDidChange(VLTimecodeViewOutlet&) override {}
  void offsetDidChange(VLTimecodeViewOutlet&) override {}
  void stopTimeDidChange(VLTimecodeViewOutlet&) override {}
  void loopStartTimeDidChange(VLTimecodeViewOutlet&) override {}
  void loopEndTimeDidChange(VLTimecodeViewOutlet&) override {}
  bool canEditOffsetInTimecodeView(const VLTimecodeViewOutlet&) const override { return true; }
  bool canEditStopTimeInTimecodeView(const VLTimecodeViewOutlet&) const override { return true; }
};

void fill(VLTimecodeView& view, std::uint64_t mode, VLClockStatus status, const char* time,
          std::uint32_t format) {
  view.copyTime(timeOf(time, format));
  view.setSmpteOffset(timeOf("00:00:10:00", format));
  view.setStartTime(timeOf("01:00:00:00", format));
  view.setStopTime(timeOf("01:30:00:00", format));
  view.setLoopStartTime(timeOf("01:10:00:00", format));
  view.setLoopEndTime(timeOf("01:20:00:00", format));
  view.setMainCounterIsEditable(true);
  view.setPlayMode(mode);
  view.setClockStatus(status);
}

// The panel in its modes and states, one below the other.
void panels(const QDir& folder, const QString& theme, double scale) {
  QWidget window;
  QVBoxLayout column(&window);
  const auto delegate = std::make_shared<AllEditable>();
  const struct {
    std::uint64_t mode;
    VLClockStatus status;
    const char* time;
    std::uint32_t format;
    int edited;
  } kRows[] = {
      {VLPlayModeNormal, VLClockStopped, "01:00:12:07", kSMPTETimeType25, -1},
      {VLPlayModeStop, VLClockRolling, "01:00:12;29", kSMPTETimeType2997Drop, -1},
      {VLPlayModeLoop, VLClockArmed, "10:11:17:00", kSMPTETimeType24, 0},
      {VLPlayModeLoop, VLClockChasing, "23:59:59:24", kSMPTETimeType25, 2},
      {VLPlayModeTimeOfDay, VLClockArmedWrongFormat, "01:00:12:07", kSMPTETimeType30, 1},
  };
  std::vector<VLTimecodeView*> views;
  for (const auto& row : kRows) {
    auto* view = views.emplace_back(new VLTimecodeView);
    view->setDelegate(delegate);
    view->setScale(scale);
    fill(*view, row.mode, row.status, row.time, row.format);
    column.addWidget(view);
  }
  auto* unknown = views.emplace_back(new VLTimecodeView);
  unknown->setScale(scale);
  column.addWidget(unknown);
  VLTimecodeField field;
  field.setSmpteTime(timeOf("01:02:03:04"));
  column.addWidget(&field);
  window.resize(static_cast<int>(860 * scale), 100);
  window.show();
  QApplication::setActiveWindow(&window);
  QApplication::processEvents();
  for (std::size_t i = 0; i < std::size(kRows); ++i) {
    if (kRows[i].edited >= 0) {
      views[i]->beginEditing(static_cast<VLTimecodeView::Time>(kRows[i].edited));
      QApplication::processEvents();
      views[i]->grab().save(
          folder.filePath(QString("edit-%1-%2-%3.png").arg(i).arg(theme).arg(scale)));
    }
  }
  views[0]->setFocus(Qt::TabFocusReason);
  QApplication::processEvents();
  window.grab().save(folder.filePath(QString("panels-%1-%2.png").arg(theme).arg(scale)));
}

void big(const QDir& folder, const QString& name, QSize size, VLClockStatus status,
         const char* time) {
  VLBigTimecodeView view;
  view.resize(size);
  view.setClockStatus(status);
  view.setMainTime(timeOf(time));
  view.show();
  QApplication::processEvents();
  view.grab().save(folder.filePath(name + ".png"));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: velor_views_gallery FOLDER\n", stderr);
    return 2;
  }
  qputenv("QT_QPA_PLATFORM", "offscreen");
  const QApplication application(argc, argv);
  QApplication::setStyle("Fusion");
  const host::SimulatedHost host;
  const QDir folder(argv[1]);
  const QPalette light = QApplication::palette();
  for (const double scale : {1.0, 1.5, 2.0, 3.0}) {
    QApplication::setPalette(light);
    panels(folder, "light", scale);
    QApplication::setPalette(darkPalette());
    panels(folder, "dark", scale);
  }
  big(folder, "big-running", {1000, 1000}, VLClockRolling, "15:50:20:12");
  big(folder, "big-stopped", {700, 700}, VLClockStopped, "10:00:00:00");
  big(folder, "big-wide", {900, 300}, VLClockChasing, "01:02:03:04");
  big(folder, "big-small", {260, 120}, VLClockArmed, "01:02:03:04");
  return 0;
}
