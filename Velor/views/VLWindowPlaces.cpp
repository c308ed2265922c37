// SPDX-License-Identifier: MIT
#include "Velor/views/VLWindowPlaces.h"

#include <QEvent>
#include <QHeaderView>
#include <QLayout>
#include <QSplitter>
#include <QTableView>
#include <utility>

#include "Velor/views/VLScreenFit.h"

namespace velor {

VLWindowPlaces::VLWindowPlaces(QWidget& window, QString name,
                               std::shared_ptr<VLWindowFrames> frames)
    : QObject(&window), mWindow(window), mName(std::move(name)), mFrames(std::move(frames)) {
  mPlaced.setSingleShot(true);
  connect(&mPlaced, &QTimer::timeout, this, [this] { VLScreenFit::fitToScreens(mWindow); });
}

void VLWindowPlaces::keep(QWidget& window, const QString& name,
                          const std::shared_ptr<VLWindowFrames>& frames) {
  auto* places = new VLWindowPlaces(window, name, frames);
  places->restore();
  window.installEventFilter(places);
  VLScreenFit::follow(window);
}

void VLWindowPlaces::restore() {
  mWindow.restoreGeometry(mFrames->frame(mName));
  if (mWindow.layout() != nullptr) {
    mWindow.layout()->activate();  // a divider's place means nothing before its pane has a size
  }
  for (auto* splitter : mWindow.findChildren<QSplitter*>()) {
    splitter->restoreState(mFrames->frame(nameOf(*splitter)));
  }
  for (auto* table : mWindow.findChildren<QTableView*>()) {
    table->horizontalHeader()->restoreState(mFrames->frame(nameOf(*table)));
  }
}

void VLWindowPlaces::save() {
  mFrames->saveFrame(mName, mWindow.saveGeometry());
  for (auto* splitter : mWindow.findChildren<QSplitter*>()) {
    mFrames->saveFrame(nameOf(*splitter), splitter->saveState());
  }
  for (auto* table : mWindow.findChildren<QTableView*>()) {
    mFrames->saveFrame(nameOf(*table), table->horizontalHeader()->saveState());
  }
}

// While it is hidden the desktop may report another place. The window manager places a window
// when it is shown, partly outside of the screen for some sizes: that is over when it is painted.
bool VLWindowPlaces::eventFilter(QObject* object, QEvent* event) {
  if (event->type() == QEvent::Show && !event->spontaneous()) {
    mIsBeingPlaced = true;
  } else if (event->type() == QEvent::Paint && std::exchange(mIsBeingPlaced, false)) {
    mPlaced.start(0);
  }
  if (event->type() == QEvent::Hide && !event->spontaneous()) {
    save();
  }
  return QObject::eventFilter(object, event);
}

}  // namespace velor
