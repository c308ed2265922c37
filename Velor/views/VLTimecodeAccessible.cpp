// SPDX-License-Identifier: MIT
#include "Velor/views/VLTimecodeAccessible.h"

#include <QAccessible>
#include <QAccessibleObject>
#include <QAccessibleWidget>
#include <vector>

#include "Velor/views/VLBigTimecodeView.h"
#include "Velor/views/VLClockStatusText.h"
#include "Velor/views/VLElidedLabel.h"
#include "Velor/views/VLStatusImageView.h"
#include "Velor/views/VLStatusRow.h"
#include "Velor/views/VLTimecodeField.h"
#include "Velor/views/VLTimecodeTextView.h"
#include "Velor/views/VLTimecodeView.h"

namespace velor {
namespace {

// A text without a cursor.
class TimeText : public QAccessibleTextInterface {
 public:
  virtual QString string() const = 0;
  virtual QRect characterFrame(int /*offset*/) const { return {}; }

  void selection(int /*index*/, int* start, int* end) const override { *start = *end = 0; }
  int selectionCount() const override { return 0; }
  void addSelection(int /*start*/, int /*end*/) override {}
  void removeSelection(int /*index*/) override {}
  void setSelection(int /*index*/, int /*start*/, int /*end*/) override {}
  int cursorPosition() const override { return 0; }
  void setCursorPosition(int /*position*/) override {}
  QString text(int start, int end) const override { return string().mid(start, end - start); }
  int characterCount() const override { return static_cast<int>(string().size()); }
  QRect characterRect(int offset) const override { return characterFrame(offset); }
  int offsetAtPoint(const QPoint& point) const override {
    for (int i = 0; i < characterCount(); ++i) {
      if (characterFrame(i).contains(point)) {
        return i;
      }
    }
    return -1;
  }
  void scrollToSubstring(int /*start*/, int /*end*/) override {}
  QString attributes(int /*offset*/, int* start, int* end) const override {
    *start = 0;
    *end = characterCount();
    return {};
  }
};

QRect toScreen(const QWidget& widget, const QRectF& frame) {
  return frame.toAlignedRect().translated(widget.mapToGlobal(QPoint()));
}

// One of the times of a view while it is not being edited.
class CellInterface final : public QAccessibleObject,
                            public TimeText,
                            public QAccessibleActionInterface {
 public:
  CellInterface(VLTimecodeCell& cell, VLTimecodeView& view, VLTimecodeView::Time which)
      : QAccessibleObject(&cell), mView(view), mWhich(which) {}

  QAccessibleInterface* parent() const override {
    return QAccessible::queryAccessibleInterface(&mView);
  }
  QAccessibleInterface* child(int /*index*/) const override { return nullptr; }
  int childCount() const override { return 0; }
  int indexOfChild(const QAccessibleInterface* /*child*/) const override { return -1; }
  QAccessible::Role role() const override { return QAccessible::EditableText; }
  using TimeText::text;
  QString text(QAccessible::Text kind) const override {
    switch (kind) {
      case QAccessible::Name:
        return mView.label(mWhich);
      case QAccessible::Description:
        return VLClockStatusText(mView.clockStatus());
      case QAccessible::Value:
        return string();
      default:
        return {};
    }
  }
  QRect rect() const override { return toScreen(mView, mView.frame(mWhich)); }
  QAccessible::State state() const override {
    QAccessible::State state;
    const bool canEdit = mView.canEdit(mWhich);
    state.editable = canEdit;
    state.readOnly = !canEdit;
    state.focusable = canEdit;
    state.focused = mView.hasFocus() && mView.focused() == mWhich;
    state.invisible = !mView.isVisible() || !mView.isShown(mWhich);
    return state;
  }
  void* interface_cast(QAccessible::InterfaceType type) override {
    if (type == QAccessible::ActionInterface) {
      return static_cast<QAccessibleActionInterface*>(this);
    }
    return type == QAccessible::TextInterface ? static_cast<QAccessibleTextInterface*>(this)
                                              : nullptr;
  }

  QString string() const override { return mView.cell(mWhich).stringValue(); }
  QRect characterFrame(int offset) const override {
    return toScreen(mView, mView.cell(mWhich).frameOfCharacter(mView.frame(mWhich), offset));
  }

  QStringList actionNames() const override {
    return mView.canEdit(mWhich) ? QStringList{pressAction()} : QStringList();
  }
  void doAction(const QString& /*name*/) override { mView.beginEditing(mWhich); }
  QStringList keyBindingsForAction(const QString& /*name*/) const override { return {}; }

 private:
  VLTimecodeView& mView;
  const VLTimecodeView::Time mWhich;
};

class ViewInterface final : public QAccessibleWidget {
 public:
  explicit ViewInterface(VLTimecodeView& view)
      : QAccessibleWidget(&view, QAccessible::Grouping), mView(view) {}

  int childCount() const override { return static_cast<int>(shown().size()); }
  QAccessibleInterface* child(int index) const override {
    const auto times = shown();
    return index >= 0 && index < static_cast<int>(times.size())
               ? of(times[static_cast<std::size_t>(index)])
               : nullptr;
  }
  int indexOfChild(const QAccessibleInterface* child) const override {
    for (int i = 0; i < childCount(); ++i) {
      if (this->child(i) == child) {
        return i;
      }
    }
    return -1;
  }
  QAccessibleInterface* childAt(int x, int y) const override {
    for (int i = 0; i < childCount(); ++i) {
      if (child(i)->rect().contains(x, y)) {
        return child(i);
      }
    }
    return nullptr;
  }
  QAccessibleInterface* focusChild() const override {
    return mView.edited() ? of(*mView.edited()) : mView.hasFocus() ? of(mView.focused()) : nullptr;
  }

 private:
  std::vector<VLTimecodeView::Time> shown() const {
    std::vector<VLTimecodeView::Time> times;
    for (const auto which : VLTimecodeView::kTimes) {
      if (mView.isShown(which) || mView.edited() == which) {
        times.push_back(which);
      }
    }
    return times;
  }
  QAccessibleInterface* of(VLTimecodeView::Time which) const {
    return QAccessible::queryAccessibleInterface(
        mView.edited() == which ? static_cast<QObject*>(mView.editor()) : &mView.cell(which));
  }

  VLTimecodeView& mView;
};

class EditorInterface final : public QAccessibleWidget, public TimeText {
 public:
  explicit EditorInterface(VLTimecodeTextView& editor)
      : QAccessibleWidget(&editor, QAccessible::EditableText), mEditor(editor) {}

  using TimeText::text;
  QString text(QAccessible::Text kind) const override {
    const auto* view = qobject_cast<const VLTimecodeView*>(mEditor.parentWidget());
    return kind == QAccessible::Value ? mEditor.text()
           : kind == QAccessible::Description && view != nullptr
               ? VLClockStatusText(view->clockStatus())
               : QAccessibleWidget::text(kind);
  }
  QAccessible::State state() const override {
    QAccessible::State state = QAccessibleWidget::state();
    state.editable = true;
    return state;
  }
  void* interface_cast(QAccessible::InterfaceType type) override {
    return type == QAccessible::TextInterface ? static_cast<QAccessibleTextInterface*>(this)
                                              : QAccessibleWidget::interface_cast(type);
  }

  QString string() const override { return mEditor.text(); }
  QRect characterFrame(int offset) const override {
    return toScreen(mEditor, mEditor.frameOfCharacter(offset));
  }
  // The selected pair.
  int selectionCount() const override { return mEditor.selectionStart() >= 0 ? 1 : 0; }
  void selection(int /*index*/, int* start, int* end) const override {
    *start = static_cast<int>(qMax(qsizetype{0}, mEditor.selectionStart()));
    *end = *start + 2 * selectionCount();
  }
  void setSelection(int /*index*/, int start, int /*end*/) override {
    mEditor.setSelectedRange(start);
  }
  int cursorPosition() const override {
    return static_cast<int>(qMax(qsizetype{0}, mEditor.selectionStart()));
  }
  void setCursorPosition(int position) override { mEditor.setSelectedRange(position); }

 private:
  VLTimecodeTextView& mEditor;
};

// A view that is one text.
template <class View>
class TextInterface final : public QAccessibleWidget, public TimeText {
 public:
  TextInterface(View& view, bool isEditable)
      : QAccessibleWidget(&view, QAccessible::EditableText), mView(view), mIsEditable(isEditable) {}

  using TimeText::text;
  QString text(QAccessible::Text kind) const override {
    return kind == QAccessible::Value ? string() : QAccessibleWidget::text(kind);
  }
  QAccessible::State state() const override {
    QAccessible::State state = QAccessibleWidget::state();
    state.editable = mIsEditable;
    state.readOnly = !mIsEditable;
    return state;
  }
  void* interface_cast(QAccessible::InterfaceType type) override {
    return type == QAccessible::TextInterface ? static_cast<QAccessibleTextInterface*>(this)
                                              : QAccessibleWidget::interface_cast(type);
  }
  QString string() const override { return mView.stringValue(); }

 private:
  View& mView;
  const bool mIsEditable;
};

QAccessibleInterface* make(const QString& /*className*/, QObject* object) {
  if (auto* view = qobject_cast<VLTimecodeView*>(object)) {
    return new ViewInterface(*view);
  }
  if (auto* editor = qobject_cast<VLTimecodeTextView*>(object)) {
    return new EditorInterface(*editor);
  }
  if (auto* field = qobject_cast<VLTimecodeField*>(object)) {
    return new TextInterface<VLTimecodeField>(*field, true);
  }
  if (auto* big = qobject_cast<VLBigTimecodeView*>(object)) {
    return new TextInterface<VLBigTimecodeView>(*big, false);
  }
  if (auto* status = qobject_cast<VLStatusRow*>(object)) {
    return new TextInterface<VLStatusRow>(*status, false);
  }
  auto* label = qobject_cast<VLElidedLabel*>(object);
  if (label != nullptr && !label->accessibleName().isEmpty()) {
    return new TextInterface<VLElidedLabel>(*label, false);
  }
  if (auto* image = qobject_cast<VLStatusImageView*>(object)) {
    return new TextInterface<VLStatusImageView>(*image, false);
  }
  if (auto* cell = qobject_cast<VLTimecodeCell*>(object)) {
    if (auto* view = qobject_cast<VLTimecodeView*>(cell->parent())) {
      for (const auto which : VLTimecodeView::kTimes) {
        if (&view->cell(which) == cell) {
          return new CellInterface(*cell, *view, which);
        }
      }
    }
  }
  return nullptr;
}

}  // namespace

void VLTimecodeAccessible::install() {
  static const bool isInstalled = [] {
    QAccessible::installFactory(&make);
    return true;
  }();
  static_cast<void>(isInstalled);
}

void VLTimecodeAccessible::focusDidMove(QObject& cell) {
  QAccessibleEvent event(&cell, QAccessible::Focus);
  QAccessible::updateAccessibility(&event);
}

}  // namespace velor
