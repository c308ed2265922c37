// SPDX-License-Identifier: MIT
#include "Velor/views/VLMarkersPane.h"

#include <QItemSelection>
#include <QScopedValueRollback>
#include <cstddef>
#include <set>
#include <utility>

#include "Velor/app/VLAppDelegate.h"
#include "Velor/views/VLEventModifiers.h"
#include "Velor/views/VLStyle.h"
#include "Velor/views/VLTableView.h"

namespace velor {
namespace {

enum ColumnPlace { kName, kTime, kColumns };

}  // namespace

VLMarkersPane::Model::Columns VLMarkersPane::columns(const QFont& timeFont) {
  using Column = VLTableColumn<VLMarker>;
  Column name(QObject::tr("Name"),
              [](const VLMarker& marker) { return QString::fromStdString(marker.name()); });
  name.setText = [](VLMarker& marker, const QString& typed) {
    marker.setName(typed.toStdString());
    return true;
  };
  Column time(QObject::tr("Time"), [](const VLMarker& marker) {
    return QString::fromStdString(marker.timecodeString());
  });
  time.setText = [](VLMarker& marker, const QString& typed) {
    return marker.setTimecodeString(typed.toStdString());
  };
  time.font = timeFont;
  return {name, time};
}

VLMarkersPane::VLMarkersPane(VLTableView& table, VLPerform perform)
    : markerTable(table),
      mPerform(std::move(perform)),
      mModel(new Model(columns(VLStyle::timeFont(table.font())), mPerform, &table)) {
  table.setModel(mModel);
  table.setEmptyText(QObject::tr("No markers. + adds one at the current time."));
  table.setStretchColumn(kName);
  const QFontMetrics metrics(VLStyle::timeFont(table.font()));
  table.setColumnWidth(kTime, metrics.horizontalAdvance("00:00:00:00") + 2 * VLStyle::kEdge);
  QObject::connect(table.selectionModel(), &QItemSelectionModel::selectionChanged, mModel, [this] {
    if (!mIsFollowing) {
      mPerform([this] { selectionDidChange(); });
    }
  });
}

VLMarkersPane::~VLMarkersPane() {
  markerTable.selectionModel()->disconnect(mModel);
  // An open editor ends with its model; otherwise it would commit to what has ended.
  markerTable.setModel(nullptr);
}

void VLMarkersPane::setController(const std::shared_ptr<VLAppDelegate>& controller) {
  mController = controller;
  mTokens.clear();
  VLMarkerController& markers = controller->markers().controller();
  mTokens.push_back(markers.addObserver("arrangedObjects", [this](const auto&) { showMarkers(); }));
  mTokens.push_back(
      markers.addObserver("selectionIndexes", [this](const auto&) { showSelection(); }));
  showMarkers();
}

void VLMarkersPane::showMarkers() {
  if (const auto controller = mController.lock()) {
    {
      const QScopedValueRollback following(mIsFollowing, true);
      mModel->show(controller->markers().controller().arrangedObjects());
    }
    showSelection();
  }
}

void VLMarkersPane::showSelection() {
  const auto controller = mController.lock();
  if (controller == nullptr || mIsFollowing) {
    return;
  }
  const QScopedValueRollback following(mIsFollowing, true);
  const std::set<std::size_t>& indexes = controller->markers().controller().selectionIndexes();
  QItemSelection selection;
  for (auto it = indexes.begin(); it != indexes.end();) {
    const int first = static_cast<int>(*it);
    int last = first;
    while (++it != indexes.end() && static_cast<int>(*it) == last + 1) {
      ++last;
    }
    selection.select(mModel->index(first, 0), mModel->index(last, kColumns - 1));
  }
  QItemSelectionModel& model = *markerTable.selectionModel();
  if (model.selection() != selection) {
    model.select(selection, QItemSelectionModel::ClearAndSelect);
    if (indexes.size() == 1) {
      const QModelIndex only = mModel->index(static_cast<int>(*indexes.begin()), 0);
      model.setCurrentIndex(only, QItemSelectionModel::NoUpdate);
      markerTable.scrollTo(only);
    }
  }
}

void VLMarkersPane::selectionDidChange() {
  const auto controller = mController.lock();
  if (controller == nullptr) {
    return;
  }
  std::set<std::size_t> indexes;
  for (const QModelIndex& row : markerTable.selectedRows()) {
    indexes.insert(static_cast<std::size_t>(row.row()));
  }
  {
    const QScopedValueRollback following(mIsFollowing, true);
    controller->markers().controller().setSelectionIndexes(indexes);
  }
  if (!VLEventModifiers::isControlHeld() || indexes.empty()) {
    return;
  }
  // The one that was selected last, which is not the lowest in the table.
  const auto current = static_cast<std::size_t>(markerTable.currentIndex().row());
  const std::size_t last = indexes.contains(current) ? current : *indexes.rbegin();
  const auto marker = controller->markers().controller().arrangedObjects()[last];
  if (marker->isValid()) {
    controller->setCurrentTime(marker->time());
  }
}

}  // namespace velor
