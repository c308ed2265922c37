// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QFont>
#include <QIcon>
#include <QString>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "Velor/views/VLPerform.h"
#include "Velor/views/VLRowsModel.h"

namespace velor {

/// A column of a table of objects: a text or a switch, and the edits that it takes.
template <class Object>
struct VLTableColumn {
  using Text = std::function<QString(const Object& object)>;
  using IsOn = std::function<bool(const Object& object)>;
  using SetOn = std::function<void(Object& object, bool on)>;

  VLTableColumn(QString theTitle, Text theText)
      : title(std::move(theTitle)), text(std::move(theText)) {}
  VLTableColumn(QString theTitle, IsOn theSwitch, SetOn turn)
      : title(std::move(theTitle)), isOn(std::move(theSwitch)), setOn(std::move(turn)) {}

  QString title;
  Text text;  ///< empty: a switch
  IsOn isOn;
  SetOn setOn;
  /// The text in an editor; empty: as shown.
  Text editedText;
  /// Takes what the user has typed; false leaves the object as it is. Empty: fixed.
  std::function<bool(Object& object, const QString& typed)> setText;
  /// Whether the row takes edits; empty: all rows do.
  IsOn isEditable;
  std::optional<QFont> font;
  /// None: the palette's.
  std::function<std::optional<QColor>(const Object& object)> color;
  /// Beside the text; empty: none.
  std::function<QIcon(const Object& object)> icon;
};

/// A table of objects by its columns. Queue: main.
template <class Object>
class VLTableModel final : public VLRowsModel<Object> {
 public:
  using Columns = std::vector<VLTableColumn<Object>>;
  using typename VLRowsModel<Object>::Rows;

  VLTableModel(Columns columns, VLPerform perform, QObject* parent)
      : VLRowsModel<Object>(parent), mColumns(std::move(columns)), mPerform(std::move(perform)) {}

  /// In the order of the table; shows the values of all again.
  void show(const Rows& rows) {
    this->setRows(rows);
    this->rowsDidChange();
  }

  /// The places in `objects` of those that these rows show.
  std::set<std::size_t> placesOf(const QModelIndexList& rows, const Rows& objects) const {
    std::set<std::shared_ptr<Object>> wanted;
    for (const QModelIndex& each : rows) {
      wanted.insert(this->at(each));
    }
    std::set<std::size_t> places;
    for (std::size_t i = 0; i < objects.size(); ++i) {
      if (wanted.contains(objects[i])) {
        places.insert(i);
      }
    }
    return places;
  }

  int columnCount(const QModelIndex& parent = {}) const override {
    return parent.isValid() ? 0 : static_cast<int>(mColumns.size());
  }
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override {
    if (orientation == Qt::Horizontal && role == Qt::DisplayRole) {
      return mColumns[static_cast<std::size_t>(section)].title;
    }
    return role == Qt::TextAlignmentRole ? QVariant(Qt::AlignLeft | Qt::AlignVCenter) : QVariant();
  }
  Qt::ItemFlags flags(const QModelIndex& index) const override {
    if (!index.isValid()) {
      return Qt::NoItemFlags;
    }
    const VLTableColumn<Object>& column = columnOf(index);
    Qt::ItemFlags flags = Qt::ItemIsSelectable | Qt::ItemIsEnabled;
    flags.setFlag(Qt::ItemIsUserCheckable, static_cast<bool>(column.setOn));
    flags.setFlag(Qt::ItemIsEditable,
                  column.setText && (!column.isEditable || column.isEditable(*this->at(index))));
    return flags;
  }
  QVariant data(const QModelIndex& index, int role) const override {
    if (!index.isValid()) {
      return {};
    }
    const Object& object = *this->at(index);
    const VLTableColumn<Object>& column = columnOf(index);
    switch (role) {
      case Qt::CheckStateRole:
        return column.isOn ? QVariant(column.isOn(object) ? Qt::Checked : Qt::Unchecked)
                           : QVariant();
      case Qt::EditRole:
        return column.editedText ? column.editedText(object) : data(index, Qt::DisplayRole);
      case Qt::DisplayRole:
      case Qt::ToolTipRole:
        return column.text ? QVariant(column.text(object)) : QVariant();
      case Qt::AccessibleTextRole:
        return column.text ? column.text(object) : column.title;
      case Qt::FontRole:
        return column.font ? QVariant(*column.font) : QVariant();
      case Qt::DecorationRole:
        return column.icon ? QVariant(column.icon(object)) : QVariant();
      case Qt::ForegroundRole: {
        const auto color = column.color ? column.color(object) : std::nullopt;
        return color ? QVariant(*color) : QVariant();
      }
      default:
        return {};
    }
  }
  bool setData(const QModelIndex& index, const QVariant& value, int role) override {
    if (!index.isValid()) {
      return false;
    }
    // The edit may move the row, and with it what the index stands for.
    const std::shared_ptr<Object> object = this->at(index);
    const VLTableColumn<Object>& column = columnOf(index);
    bool isTaken = false;
    if (role == Qt::CheckStateRole && column.setOn) {
      mPerform([&] { column.setOn(*object, value.toInt() == Qt::Checked); });
      isTaken = true;
    } else if (role == Qt::EditRole && column.setText) {
      mPerform([&] { isTaken = column.setText(*object, value.toString()); });
    }
    if (isTaken) {
      this->rowsDidChange();
    }
    return isTaken;
  }

 private:
  const VLTableColumn<Object>& columnOf(const QModelIndex& index) const {
    return mColumns[static_cast<std::size_t>(index.column())];
  }

  const Columns mColumns;
  const VLPerform mPerform;
};

}  // namespace velor
