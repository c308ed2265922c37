// SPDX-License-Identifier: MIT
#include "Velor/views/VLAlertSheet.h"

#include <QFontMetrics>
#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

#include "Velor/views/VLButton.h"
#include "Velor/views/VLIcons.h"
#include "Velor/views/VLStyle.h"

namespace velor {
namespace {

constexpr int kTextWidth = 400;
constexpr int kIconSize = 32;
constexpr int kLeastButton = 88;

QLabel* plainLabel(const std::string& text, QWidget* parent) {
  auto* label = new QLabel(parent);
  label->setTextFormat(Qt::PlainText);
  label->setTextInteractionFlags(Qt::TextSelectableByMouse);
  label->setFocusPolicy(Qt::NoFocus);
  label->setWordWrap(true);
  label->setMinimumWidth(kTextWidth);
  label->setText(QString::fromStdString(text));
  return label;
}

VLButton* button(const std::string& text, QWidget* parent) {
  auto* made = new VLButton(parent);
  made->setText(QString::fromStdString(text));
  made->setAccessibleName(made->text());
  made->setFocusPolicy(Qt::StrongFocus);
  made->setMinimumWidth(kLeastButton);
  return made;
}

}  // namespace

VLAlertSheet::VLAlertSheet(const VLSheetText& text, QWidget* parent) : QDialog(parent) {
  setWindowTitle(QString::fromStdString(text.title));
  auto* icon = new QLabel(this);
  icon->setPixmap(VLIcons::icon("warningTemplate").pixmap(QSize(kIconSize, kIconSize)));
  icon->setAlignment(Qt::AlignTop);
  auto* title = plainLabel(text.title, this);
  QFont large = title->font();
  large.setWeight(QFont::DemiBold);
  title->setFont(large);

  auto* texts = new QVBoxLayout;
  texts->setSpacing(VLStyle::kGap);
  texts->addWidget(title);
  texts->addWidget(plainLabel(text.message, this));
  auto* top = new QHBoxLayout;
  top->setSpacing(VLStyle::kEdge);
  top->addWidget(icon);
  top->addLayout(texts);
  auto* buttons = new QHBoxLayout;
  buttons->setSpacing(VLStyle::kGap);
  buttons->addStretch();
  VLButton* other = nullptr;
  if (!text.otherButton.empty()) {
    other = button(text.otherButton, this);
    connect(other, &VLButton::clicked, this, &QDialog::reject);
    buttons->addWidget(other);
  }
  auto* first = button(text.defaultButton, this);
  connect(first, &VLButton::clicked, this, &QDialog::accept);
  buttons->addWidget(first);
  auto* all = new QVBoxLayout(this);
  all->setContentsMargins(VLStyle::kEdge, VLStyle::kEdge, VLStyle::kEdge, VLStyle::kEdge);
  all->setSpacing(VLStyle::kEdge);
  all->addLayout(top);
  all->addLayout(buttons);
  all->setSizeConstraint(QLayout::SetFixedSize);
  first->setFocus();
}

}  // namespace velor
