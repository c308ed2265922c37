// SPDX-License-Identifier: MIT
#pragma once

#include <QAbstractTableModel>
#include <algorithm>
#include <iterator>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

namespace velor {

/// A table of objects that come and go: views keep their selection, their place and an open
/// editor wherever the change leaves them their rows. Queue: main.
template <class Object>
class VLRowsModel : public QAbstractTableModel {
 public:
  using Rows = std::vector<std::shared_ptr<Object>>;

  using QAbstractTableModel::QAbstractTableModel;

  const Rows& rows() const noexcept { return mRows; }
  int rowCount(const QModelIndex& parent = {}) const override {
    return parent.isValid() ? 0 : static_cast<int>(mRows.size());
  }

 protected:
  const std::shared_ptr<Object>& at(const QModelIndex& index) const {
    return mRows[static_cast<std::size_t>(index.row())];
  }

  void setRows(const Rows& rows) {
    if (rows == mRows) {
      return;
    }
    if (sorted(rows) == sorted(mRows)) {
      move(rows);
      return;
    }
    const auto [oldFirst, newFirst] =
        std::mismatch(mRows.begin(), mRows.end(), rows.begin(), rows.end());
    const auto [oldLast, newLast] =
        std::mismatch(mRows.rbegin(), std::make_reverse_iterator(oldFirst), rows.rbegin(),
                      std::make_reverse_iterator(newFirst));
    const auto first = static_cast<int>(oldFirst - mRows.begin());
    if (oldFirst != oldLast.base()) {
      beginRemoveRows({}, first, static_cast<int>(oldLast.base() - mRows.begin()) - 1);
      mRows.erase(oldFirst, oldLast.base());
      endRemoveRows();
    }
    if (newFirst != newLast.base()) {
      beginInsertRows({}, first, static_cast<int>(newLast.base() - rows.begin()) - 1);
      mRows.insert(mRows.begin() + first, newFirst, newLast.base());
      endInsertRows();
    }
  }

  /// What the objects say has changed, but not which they are.
  void rowsDidChange() {
    if (!mRows.empty()) {
      emit dataChanged(index(0, 0), index(rowCount() - 1, columnCount() - 1));
    }
  }

 private:
  static Rows sorted(Rows rows) {
    std::sort(rows.begin(), rows.end());
    return rows;
  }

  void move(const Rows& rows) {
    emit layoutAboutToBeChanged();
    std::unordered_map<const Object*, int> places;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      places[rows[i].get()] = static_cast<int>(i);
    }
    const QModelIndexList from = persistentIndexList();
    QModelIndexList to;
    for (const QModelIndex& each : from) {
      to.push_back(index(places.at(at(each).get()), each.column()));
    }
    mRows = rows;
    changePersistentIndexList(from, to);
    emit layoutChanged();
  }

  Rows mRows;
};

}  // namespace velor
