// SPDX-License-Identifier: MIT
#pragma once

#include "Velor/devices/VLTimecodeDestinationDevice.h"
#include "Velor/views/VLPerform.h"
#include "Velor/views/VLRowsModel.h"

namespace velor {

/// The MIDI destinations, each with its switch for MTC and what becomes of it.
/// Queue: main.
class VLDestinationsModel final : public VLRowsModel<VLTimecodeDestinationDevice> {
  Q_OBJECT

 public:
  enum Column { kOn, kName, kState, kColumns };

  VLDestinationsModel(VLPerform perform, QObject* parent);

  /// `isMoving`: whether the clock sends, by itself or as it follows.
  void setDestinations(const Rows& destinations, bool isMoving);

  int columnCount(const QModelIndex& parent = {}) const override {
    return parent.isValid() ? 0 : kColumns;
  }
  QVariant data(const QModelIndex& index, int role) const override;
  bool setData(const QModelIndex& index, const QVariant& value, int role) override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;

 private:
  QString stateOf(const VLTimecodeDestinationDevice& destination) const;

  const VLPerform mPerform;
  bool mIsMoving = false;
};

}  // namespace velor
