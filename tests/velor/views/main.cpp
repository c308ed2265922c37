// SPDX-License-Identifier: MIT
// The platform is chosen here, since the build asks for the list of tests without a display.
#include <gtest/gtest.h>

#include <QApplication>

int main(int argc, char** argv) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QLocale::setDefault(QLocale::c());
  const QApplication application(argc, argv);
  QApplication::setStyle("Fusion");
  testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
