// SPDX-License-Identifier: MIT
#include "Velor/views/VLMarkersModel.h"

#include <utility>

namespace velor {

VLMarkersModel::VLMarkersModel(VLPerform perform, QObject* parent)
    : VLRowsModel(parent), mPerform(std::move(perform)) {}

void VLMarkersModel::setMarkers(const Rows& markers) {
  setRows(markers);
}

QVariant VLMarkersModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) {
    return {};
  }
  if (role == Qt::DisplayRole || role == Qt::EditRole || role == Qt::ToolTipRole) {
    const VLMarker& marker = *at(index);
    return QString::fromStdString(index.column() == kName ? marker.name()
                                                          : marker.timecodeString());
  }
  return role == Qt::FontRole && index.column() == kTime ? QVariant(mTimeFont) : QVariant();
}

bool VLMarkersModel::setData(const QModelIndex& index, const QVariant& value, int role) {
  if (!index.isValid() || role != Qt::EditRole) {
    return false;
  }
  // The edit moves the row, and with it what the index stands for.
  const auto marker = at(index);
  const std::string text = value.toString().toStdString();
  bool isTaken = false;
  mPerform([&] {
    if (index.column() == kTime) {
      isTaken = text != marker->timecodeString() && marker->setTimecodeString(text);
    } else if (text != marker->name()) {
      marker->setName(text);
      isTaken = true;
    }
  });
  if (isTaken) {
    rowsDidChange();
  }
  return isTaken;
}

QVariant VLMarkersModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) {
    return role == Qt::TextAlignmentRole ? QVariant(Qt::AlignLeft | Qt::AlignVCenter) : QVariant();
  }
  return section == kName ? tr("Name") : tr("Time");
}

Qt::ItemFlags VLMarkersModel::flags(const QModelIndex& index) const {
  return index.isValid() ? Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemIsEditable
                         : Qt::NoItemFlags;
}

}  // namespace velor
