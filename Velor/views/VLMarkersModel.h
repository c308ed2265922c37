// SPDX-License-Identifier: MIT
#pragma once

#include <QFont>

#include "Velor/app/VLMarker.h"
#include "Velor/views/VLPerform.h"
#include "Velor/views/VLRowsModel.h"

namespace velor {

/// The markers as the table shows them; names and times are edited in place. Queue: main.
class VLMarkersModel final : public VLRowsModel<VLMarker> {
  Q_OBJECT

 public:
  enum Column { kName, kTime, kColumns };

  VLMarkersModel(VLPerform perform, QObject* parent);

  /// In the order of the table. Whoever shows them paints them anew: a report of changed
  /// values would take back what is typed in an open editor.
  void setMarkers(const Rows& markers);
  void setTimeFont(const QFont& font) { mTimeFont = font; }

  int columnCount(const QModelIndex& parent = {}) const override {
    return parent.isValid() ? 0 : kColumns;
  }
  QVariant data(const QModelIndex& index, int role) const override;
  /// False for a text that is no time of the clock's format: the marker stays as it is.
  bool setData(const QModelIndex& index, const QVariant& value, int role) override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;

 private:
  const VLPerform mPerform;
  QFont mTimeFont;
};

}  // namespace velor
