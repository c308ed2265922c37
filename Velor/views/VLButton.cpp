// SPDX-License-Identifier: MIT
#include "Velor/views/VLButton.h"

#include <QAccessibleWidget>
#include <QKeyEvent>
#include <QPainter>
#include <QPainterPath>

#include "Velor/views/VLEventModifiers.h"
#include "Velor/views/VLStyle.h"

namespace velor {
namespace {

constexpr int kMargin = 10;  // left and right of what it shows

QColor fillColor(const QAbstractButton& button, bool isHovered) {
  const QPalette& palette = button.palette();
  const QColor plain = palette.color(QPalette::Button);
  const bool isDark = VLStyle::isDark(palette);
  if (button.isDown()) {
    return isDark ? plain.lighter(170) : plain.darker(125);
  }
  if (button.isChecked()) {
    return isDark ? plain.lighter(190) : plain.darker(118);
  }
  return isHovered && button.isEnabled() ? (isDark ? plain.lighter(130) : plain.darker(106))
                                         : plain;
}

// One that can be checked stays a button for screen readers, so that Arm is the same thing
// in both of its states.
class ButtonInterface final : public QAccessibleWidget {
 public:
  explicit ButtonInterface(VLButton& button)
      : QAccessibleWidget(&button, QAccessible::Button), mButton(button) {}

  QString text(QAccessible::Text kind) const override {
    const QString text = QAccessibleWidget::text(kind);
    return kind == QAccessible::Name && text.isEmpty() ? mButton.text() : text;
  }
  QAccessible::State state() const override {
    QAccessible::State state = QAccessibleWidget::state();
    state.checkable = mButton.isCheckable();
    state.checked = mButton.isChecked();
    state.pressed = mButton.isDown();
    return state;
  }
  QStringList actionNames() const override {
    return mButton.isEnabled() ? QStringList{pressAction()} : QStringList();
  }
  void doAction(const QString& name) override {
    if (name == pressAction()) {
      mButton.click();
    }
  }

 private:
  VLButton& mButton;
};

QAccessibleInterface* makeInterface(const QString& /*className*/, QObject* object) {
  auto* button = qobject_cast<VLButton*>(object);
  return button != nullptr ? new ButtonInterface(*button) : nullptr;
}

}  // namespace

VLButton::VLButton(QWidget* parent) : QToolButton(parent) {
  [[maybe_unused]] static const bool isInstalled = [] {
    QAccessible::installFactory(makeInterface);
    return true;
  }();
  setFocusPolicy(Qt::TabFocus);
  setAttribute(Qt::WA_Hover);
}

void VLButton::setJoined(bool before, bool after) {
  mJoinedBefore = before;
  mJoinedAfter = after;
  update();
}

void VLButton::setTextVisible(bool visible) {
  mIsTextVisible = visible;
  updateGeometry();
  update();
}

QSize VLButton::sizeHint() const {
  int width = 2 * kMargin;
  if (!icon().isNull()) {
    width += iconSize().width();
  }
  if (showsText()) {
    width += fontMetrics().horizontalAdvance(text()) + (icon().isNull() ? 0 : VLStyle::kGap - 2);
  }
  const int height = std::max(minimumHeight(), VLStyle::kControlHeight);
  return {std::max(width, height), height};
}

void VLButton::setElided(bool elided) {
  mIsElided = elided;
  setSizePolicy(elided ? QSizePolicy::Maximum : QSizePolicy::Fixed, QSizePolicy::Fixed);
}

QSize VLButton::minimumSizeHint() const {
  const QSize whole = sizeHint();
  return mIsElided
             ? QSize(std::max(whole.height(), 2 * kMargin + iconSize().width()), whole.height())
             : whole;
}

void VLButton::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const QRectF frame = QRectF(rect()).adjusted(0.5, 0.5, mJoinedAfter ? 0.5 : -0.5, -0.5);
  // The corners of joined sides lie outside of the clip.
  const qreal beyond = 2 * VLStyle::kRadius;
  const QRectF shape = frame.adjusted(mJoinedBefore ? -beyond : 0, 0, mJoinedAfter ? beyond : 0, 0);
  painter.setPen(VLStyle::line(palette()));
  painter.setBrush(fillColor(*this, underMouse()));
  painter.drawRoundedRect(shape, VLStyle::kRadius, VLStyle::kRadius);
  if (mJoinedBefore) {
    painter.drawLine(frame.topLeft(), frame.bottomLeft());
  }

  const QFontMetrics metrics = fontMetrics();
  const int iconWidth = icon().isNull() ? 0 : iconSize().width();
  const int gap = iconWidth != 0 && showsText() ? VLStyle::kGap - 2 : 0;
  const int room = width() - 2 * kMargin - iconWidth - gap;
  const bool isCut = mIsElided && metrics.horizontalAdvance(text()) > room;
  const QString shown = isCut ? metrics.elidedText(text(), Qt::ElideRight, room) : text();
  const int textWidth = showsText() ? metrics.horizontalAdvance(shown) : 0;
  int x = (width() - iconWidth - gap - textWidth) / 2;
  if (iconWidth != 0) {
    icon().paint(&painter, QRect(QPoint(x, (height() - iconSize().height()) / 2), iconSize()),
                 Qt::AlignCenter, isEnabled() ? QIcon::Normal : QIcon::Disabled);
    x += iconWidth + gap;
  }
  if (showsText()) {
    painter.setPen(
        palette().color(isEnabled() ? QPalette::Active : QPalette::Disabled, QPalette::ButtonText));
    painter.drawText(QRect(x, 0, width() - x, height()), Qt::AlignVCenter | Qt::AlignLeft, shown);
  }
  if (hasFocus()) {
    VLStyle::drawFocus(painter, rect(), palette());
  }
}

bool VLButton::event(QEvent* event) {
  const VLEventModifiers held(*event);
  return QToolButton::event(event);
}

void VLButton::keyPressEvent(QKeyEvent* event) {
  if (event->key() != Qt::Key_Return && event->key() != Qt::Key_Enter) {
    QToolButton::keyPressEvent(event);
    return;
  }
  if (!event->isAutoRepeat()) {
    click();
  }
}

}  // namespace velor
