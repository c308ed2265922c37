// SPDX-License-Identifier: MIT
#pragma once

#include <QMetaProperty>
#include <QStyledItemDelegate>

namespace velor {

/// Edits the texts of a table. What is typed stays while the row's values change, and a text
/// that was opened but not changed is not written back over a value that came meanwhile.
/// Queue: main.
class VLTextDelegate final : public QStyledItemDelegate {
  Q_OBJECT

 public:
  using QStyledItemDelegate::QStyledItemDelegate;

  void setEditorData(QWidget* editor, const QModelIndex& index) const override {
    if (!editor->isVisible()) {  // it opens
      QStyledItemDelegate::setEditorData(editor, index);
      editor->setProperty(kOpenedWith, typed(*editor));
    }
  }
  void setModelData(QWidget* editor, QAbstractItemModel* model,
                    const QModelIndex& index) const override {
    if (typed(*editor) != editor->property(kOpenedWith)) {
      QStyledItemDelegate::setModelData(editor, model, index);
    }
  }

 private:
  static constexpr const char* kOpenedWith = "openedWith";

  static QVariant typed(const QWidget& editor) {
    return editor.metaObject()->userProperty().read(&editor);
  }
};

}  // namespace velor
