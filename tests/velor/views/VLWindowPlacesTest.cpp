// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <QHeaderView>
#include <QMap>
#include <QScreen>
#include <QSplitter>

#include "Velor/devices/VLDeviceManager.h"
#include "tests/velor/views/WindowFixture.h"

namespace velor {
namespace {

class VLWindowPlacesTest : public WindowFixture {
 protected:
  using Windows = QMap<QString, QWidget*>;  // by title

  /// All but the main one, opened as a user does.
  Windows openAll() {
    open();
    if (manager().devices().empty()) {
      action("addLTCGenerator").trigger();
    }
    action("showDestinationsWindow").trigger();
    action("showOSCSetup").trigger();
    settle();
    mMain->deviceWindows().showWindowForDevice(manager().devices().front());
    settle();
    Windows windows;
    for (QWidget* each : QApplication::topLevelWidgets()) {
      if (each->isVisible() && each != mMain.get()) {
        windows[each->windowTitle()] = each;
      }
    }
    EXPECT_EQ(windows.keys(), (QStringList{"Devices", "LTC Generator 1", "OSC Setup"}));
    return windows;
  }
};

TEST_F(VLWindowPlacesTest, EveryWindowIsAsItWasLeftHoweverItWasClosed) {
  Windows windows = openAll();
  windows["Devices"]->setGeometry(60, 70, 444, 333);
  windows["LTC Generator 1"]->move(123, 234);
  windows["OSC Setup"]->setGeometry(20, 30, 600, 580);
  settle();
  in<QTableView>(*windows["Devices"], "deviceTable").horizontalHeader()->resizeSection(0, 155);
  auto& divider = in<QSplitter>(*windows["OSC Setup"], "splitView");
  divider.setSizes({divider.height() - 240, 240});
  settle();
  const QList<int> sizes = divider.sizes();
  mMain->resize(760, 500);
  child<QSplitter>("mainSplitView").setSizes({200, 530});
  markerTable().horizontalHeader()->resizeSection(1, 222);
  action("larger").trigger();
  settle();
  const QList<int> halves = child<QSplitter>("mainSplitView").sizes();
  const QSize size = mMain->size();
  mMain->move(QApplication::primaryScreen()->geometry().bottomRight() + QPoint(300, 300));
  windows["Devices"]->close();
  action("showDestinationsWindow").trigger();  // made anew
  settle();
  windows["OSC Setup"]->close();
  for (QWidget* each : QApplication::topLevelWidgets()) {
    each->hide();
  }
  ASSERT_TRUE(app().applicationWillTerminate());
  close();

  windows = openAll();
  EXPECT_EQ(windows["Devices"]->geometry(), QRect(60, 70, 444, 333));
  EXPECT_EQ(in<QTableView>(*windows["Devices"], "deviceTable").columnWidth(0), 155);
  EXPECT_EQ(windows["LTC Generator 1"]->pos(), QPoint(123, 234));
  EXPECT_EQ(windows["OSC Setup"]->geometry(), QRect(20, 30, 600, 580));
  EXPECT_EQ(in<QSplitter>(*windows["OSC Setup"], "splitView").sizes(), sizes);
  EXPECT_EQ(mMain->size(), size);
  EXPECT_EQ(child<QSplitter>("mainSplitView").sizes(), halves);
  EXPECT_EQ(markerTable().columnWidth(1), 222);
  EXPECT_EQ(mMain->timecodeView().scale(), 1.5);
  EXPECT_TRUE(QApplication::primaryScreen()->geometry().contains(mMain->geometry()));
}

TEST_F(VLWindowPlacesTest, NoWindowStaysOutOfReachWhenAScreenBecomesSmallerOrGoes) {
  Windows windows = openAll();
  windows["Velor"] = mMain.get();
  QScreen& screen = *QApplication::primaryScreen();
  const QRect room = screen.availableGeometry();
  const auto change = [&] { emit screen.availableGeometryChanged(room); };
  const auto go = [&] { emit qGuiApp->screenRemoved(&screen); };
  for (const std::function<void()>& happens : {std::function<void()>(change), {go}}) {
    for (QWidget* each : windows) {
      each->move(room.bottomRight() - QPoint(10, 10));
    }
    settle();
    happens();
    settle();
    for (QWidget* each : windows) {
      EXPECT_TRUE(room.contains(QRect(each->frameGeometry().topLeft(), QSize(100, 20))))
          << each->windowTitle().toStdString();
    }
  }
}

}  // namespace
}  // namespace velor
