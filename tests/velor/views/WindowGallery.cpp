// SPDX-License-Identifier: MIT
// velor_window_gallery FOLDER: writes pictures of the main window and its sheets, to be looked
// at. QT_SCALE_FACTOR sets their scale.
#include <QDialog>
#include <QDir>
#include <QMenu>
#include <cstdio>

#include "platform/host/Log.h"
#include "tests/velor/views/WindowFixture.h"

namespace velor {
namespace {

class Gallery final : public WindowFixture {
 public:
  explicit Gallery(const char* folder) : mFolderOfPictures(folder) {}

  void TestBody() override {
    const QPalette light = QApplication::palette();
    for (const bool isDark : {false, true}) {
      QApplication::setPalette(isDark ? darkPalette() : light);
      mTheme = isDark ? "dark" : "light";
      open();
      save(*mMain, "empty");
      fill();
      save(*mMain, "stopped");
      child<QWidget>("armButton").setFocus(Qt::TabFocusReason);
      clock().setPlayMode(VLPlayModeLoop);
      app().play();
      mHost.advance(2 * kFrame25);
      VELOR_LOG_WARNING("lost the JACK server; will reconnect");
      mHost.advance(20 * kFrame25);
      settle();
      save(*mMain, "running");
      mMain->resize(mMain->minimumSizeHint().width(), 480);
      settle();
      save(*mMain, "narrow");
      mMain->resize(1400, 700);
      settle();
      save(*mMain, "wide");
      for (const char* name : {"fileMenu", "editMenu", "clockMenu", "mtcDestinationsMenu"}) {
        auto& menu = child<QMenu>(name);
        menu.popup({});
        settle();
        save(menu, name);
        menu.close();
      }
      app().openPlaybackRateSheet();
      settle();
      saveSheet("rate");
      mMain->quit();
      settle();
      saveSheet("quit");
      close();
      KVSharedInstances::clear();
    }
  }

 private:
  static QPalette darkPalette() {
    QPalette palette(QColor(45, 45, 48));
    palette.setColor(QPalette::Base, QColor(30, 30, 32));
    palette.setColor(QPalette::AlternateBase, QColor(37, 37, 40));
    palette.setColor(QPalette::Highlight, QColor(42, 110, 200));
    return palette;
  }
  void fill() {
    appear("Console");
    appear("Recorder with quite a long name, as some programs give their ports");
    manager().createGenerator();
    settle();
    manager().destinations()[0]->setEnable(true);
    app().setSyncSource(addSource("Desk"));
    const char* names[] = {"Walk-in", "Act 1", "Act 2", "Interval", "Finale"};
    const char* times[] = {"00:58:00:00", "01:00:00:00", "01:22:10:05", "01:45:00:00",
                           "02:31:59:24"};
    for (int i = 0; i < 5; ++i) {
      goTo(times[i]);
      app().addMarker();
      app().markers().controller().selectedObjects().front()->setName(names[i]);
    }
    goTo("01:00:12:07");
    app().gotoPrevMarker();
    goTo("01:00:12:07");
    settle();
  }
  void save(QWidget& widget, const char* name) {
    widget.grab().save(mFolderOfPictures.filePath(QString("main-%1-%2.png").arg(mTheme, name)));
  }
  void saveSheet(const char* name) {
    if (QDialog* sheet = mMain->sheets().current()) {
      save(*sheet, name);
      sheet->reject();
      settle();
    }
  }

  const QDir mFolderOfPictures;
  QString mTheme;
};

}  // namespace
}  // namespace velor

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: velor_window_gallery FOLDER\n", stderr);
    return 2;
  }
  qputenv("QT_QPA_PLATFORM", "offscreen");
  const QApplication application(argc, argv);
  QApplication::setStyle("Fusion");
  velor::Gallery(argv[1]).TestBody();
  return 0;
}
