// SPDX-License-Identifier: MIT
#include "Velor/views/VLDestinationsModel.h"

#include <QGuiApplication>
#include <QPalette>
#include <utility>

#include "Velor/views/VLStyle.h"

namespace velor {

VLDestinationsModel::VLDestinationsModel(VLPerform perform, QObject* parent)
    : VLRowsModel(parent), mPerform(std::move(perform)) {}

void VLDestinationsModel::setDestinations(const Rows& destinations, bool isMoving) {
  mIsMoving = isMoving;
  setRows(destinations);
  rowsDidChange();
}

QString VLDestinationsModel::stateOf(const VLTimecodeDestinationDevice& destination) const {
  if (destination.midiEndpoint() == nullptr) {
    return tr("missing");
  }
  if (!destination.enable()) {
    return tr("off");
  }
  return mIsMoving ? tr("sending") : tr("ready");
}

QVariant VLDestinationsModel::data(const QModelIndex& index, int role) const {
  if (!index.isValid()) {
    return {};
  }
  const VLTimecodeDestinationDevice& destination = *at(index);
  const bool isSending = index.column() == kState && mIsMoving && destination.enable();
  switch (role) {
    case Qt::CheckStateRole:
      return index.column() == kOn ? QVariant(destination.enable() ? Qt::Checked : Qt::Unchecked)
                                   : QVariant();
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
      return index.column() == kName    ? QString::fromStdString(destination.name().value_or(""))
             : index.column() == kState ? stateOf(destination)
                                        : QVariant();
    case Qt::ForegroundRole:
      return isSending
                 ? QVariant(VLStyle::color(VLStyle::State::running, QGuiApplication::palette()))
                 : QVariant();
    case Qt::AccessibleTextRole:
      return index.column() == kOn ? tr("On") : data(index, Qt::DisplayRole);
    default:
      return {};
  }
}

bool VLDestinationsModel::setData(const QModelIndex& index, const QVariant& value, int role) {
  if (!index.isValid() || role != Qt::CheckStateRole) {
    return false;
  }
  const auto destination = at(index);
  mPerform([&] { destination->setEnable(value.toInt() == Qt::Checked); });
  rowsDidChange();
  return true;
}

QVariant VLDestinationsModel::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal || role != Qt::DisplayRole) {
    return role == Qt::TextAlignmentRole ? QVariant(Qt::AlignLeft | Qt::AlignVCenter) : QVariant();
  }
  return section == kOn ? tr("On") : section == kName ? tr("Name") : tr("State");
}

Qt::ItemFlags VLDestinationsModel::flags(const QModelIndex& index) const {
  const Qt::ItemFlags all = Qt::ItemIsSelectable | Qt::ItemIsEnabled;
  return !index.isValid()        ? Qt::NoItemFlags
         : index.column() == kOn ? all | Qt::ItemIsUserCheckable
                                 : all;
}

}  // namespace velor
