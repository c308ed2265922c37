// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QTableView>

namespace velor {

/// A table of rows: Space is left to the transport, Return begins the edit of a cell or
/// turns its switch, or else is as a double click, and a table without rows says what to do.
/// Actions that a selection triggers can ask VLEventModifiers. Queue: main.
class VLTableView final : public QTableView {
  Q_OBJECT

 public:
  explicit VLTableView(QWidget* parent = nullptr);

  void setEmptyText(const QString& text);
  /// For a model with switches in this column.
  void setSwitchColumn(int column);
  /// The column that takes what the others leave.
  void setStretchColumn(int column);
  /// One index for each.
  QModelIndexList selectedRows() const { return selectionModel()->selectedRows(); }

 protected:
  bool viewportEvent(QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  QItemSelectionModel::SelectionFlags selectionCommand(const QModelIndex& index,
                                                       const QEvent* event) const override;

 private:
  void actOn(const QModelIndex& index);

  QString mEmptyText;
};

}  // namespace velor
