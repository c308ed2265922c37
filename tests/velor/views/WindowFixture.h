// SPDX-License-Identifier: MIT
#pragma once

#include <QAction>
#include <QApplication>
#include <QLineEdit>
#include <QTest>
#include <memory>
#include <string>

#include "Velor/views/VLButton.h"
#include "Velor/views/VLMainWindow.h"
#include "Velor/views/VLTableView.h"
#include "Velor/views/VLTimecodeView.h"
#include "tests/velor/app/AppFixture.h"

namespace velor {

/// The application with its main window, on simulated time.
class WindowFixture : public AppFixture {
 protected:
  ~WindowFixture() override { close(); }

  void open() {
    mMain = std::make_shared<VLMainWindow>();
    mApp = std::make_shared<VLAppDelegate>(
        mMain, std::shared_ptr<VLTimecodeViewOutlet>(mMain, &mMain->timecodeView()), folders());
    mMain->setController(mApp);
    mApp->applicationDidFinishLaunching();
    mMain->didLaunch();
    mMain->show();
    QApplication::setActiveWindow(mMain.get());
    settle();
  }
  void close() {
    end();
    mMain.reset();
  }

  /// Until neither the toolkit nor the main queue has anything to do.
  void settle() {
    QApplication::processEvents();
    mHost.settle();
    QApplication::processEvents();
  }
  template <class Widget>
  static Widget& in(QWidget& window, const char* name) {
    auto* found = window.findChild<Widget*>(name);
    EXPECT_NE(found, nullptr) << name;
    return *found;
  }
  template <class Widget = VLButton>
  Widget& child(const char* name) {
    return in<Widget>(*mMain, name);
  }
  /// The window of a class, if there is one.
  template <class Window>
  static Window* window() {
    for (QWidget* each : QApplication::topLevelWidgets()) {
      if (auto* found = dynamic_cast<Window*>(each)) {
        return found;
      }
    }
    return nullptr;
  }
  QAction& action(const char* name) { return child<QAction>(name); }
  VLTableView& markerTable() { return child<VLTableView>("markerTable"); }
  void click(const char* button, Qt::KeyboardModifiers modifiers = {}) {
    QTest::mouseClick(&child(button), Qt::LeftButton, modifiers);
    settle();
  }
  void press(QWidget& widget, int key, Qt::KeyboardModifiers modifiers = {}) {
    QTest::keyClick(&widget, static_cast<Qt::Key>(key), modifiers);
    settle();
  }
  void addMarkers(const std::vector<std::string>& times) {
    for (const std::string& time : times) {
      goTo(time);
      app().addMarker();
    }
    settle();
  }
  void clickRow(VLTableView& table, int row, int column, Qt::KeyboardModifiers modifiers = {}) {
    const QRect place = table.visualRect(table.model()->index(row, column));
    QTest::mouseClick(table.viewport(), Qt::LeftButton, modifiers, place.center());
    settle();
  }
  /// The editor that a double click on the cell opens, if it does.
  QLineEdit* beginEdit(VLTableView& table, int row, int column) {
    clickRow(table, row, column);
    const QRect place = table.visualRect(table.model()->index(row, column));
    QTest::mouseDClick(table.viewport(), Qt::LeftButton, {}, place.center());
    settle();
    return table.findChild<QLineEdit*>();
  }
  static std::string cell(const VLTableView& table, int row, int column) {
    return table.model()->index(row, column).data().toString().toStdString();
  }

  std::shared_ptr<VLMainWindow> mMain;
};

}  // namespace velor
