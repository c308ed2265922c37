// SPDX-License-Identifier: MIT
#include "Velor/views/VLMainWindowPlaces.h"

#include <QHeaderView>
#include <QSplitter>
#include <QTableView>
#include <algorithm>

#include "Velor/views/VLTimecodeView.h"

namespace velor {
namespace {

constexpr const char* kWindow = "mainWindow";
constexpr const char* kScale = "timecodeView.scale";
constexpr double kMostScale = 3;

}  // namespace

void VLMainWindowPlaces::restore(const VLWindowFrames& frames) {
  bool isNumber = false;
  const double scale = frames.frame(kScale).toDouble(&isNumber);
  if (isNumber) {
    mTimecodeView.setScale(std::clamp(scale, 1.0, kMostScale));
  }
  mWindow.restoreGeometry(frames.frame(kWindow));
  for (auto* splitter : mWindow.findChildren<QSplitter*>()) {
    splitter->restoreState(frames.frame(splitter->objectName()));
  }
  for (auto* table : mWindow.findChildren<QTableView*>()) {
    table->horizontalHeader()->restoreState(frames.frame(table->objectName()));
  }
}

void VLMainWindowPlaces::save(VLWindowFrames& frames) const {
  frames.saveFrame(kScale, QByteArray::number(mTimecodeView.scale()));
  frames.saveFrame(kWindow, mWindow.saveGeometry());
  for (auto* splitter : mWindow.findChildren<QSplitter*>()) {
    frames.saveFrame(splitter->objectName(), splitter->saveState());
  }
  for (auto* table : mWindow.findChildren<QTableView*>()) {
    frames.saveFrame(table->objectName(), table->horizontalHeader()->saveState());
  }
}

}  // namespace velor
