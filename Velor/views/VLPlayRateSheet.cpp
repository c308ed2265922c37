// SPDX-License-Identifier: MIT
#include "Velor/views/VLPlayRateSheet.h"

#include <ui_VLPlayRateSheet.h>

#include <QLocale>
#include <utility>

#include "Velor/views/VLStyle.h"

namespace velor {
namespace {

constexpr int kDecimals = 3;

}  // namespace

VLPlayRateSheet::VLPlayRateSheet(double percent, Commit commit, QWidget* parent)
    : QDialog(parent), mForm(std::make_unique<Ui::VLPlayRateSheet>()), mCommit(std::move(commit)) {
  mForm->setupUi(this);
  mForm->layout->setSizeConstraint(QLayout::SetFixedSize);
  mForm->playRateTextField->setFont(VLStyle::timeFont(font()));
  show(percent);
  mForm->playRateTextField->selectAll();
  connect(mForm->playRateTextField, &QLineEdit::editingFinished, this, &VLPlayRateSheet::commit);
  connect(mForm->playRateTextField, &QLineEdit::returnPressed, this, &QDialog::accept);
  connect(mForm->okButton, &QAbstractButton::clicked, this, [this] {
    this->commit();
    accept();
  });
}

VLPlayRateSheet::~VLPlayRateSheet() = default;

QComboBox& VLPlayRateSheet::formatPopupButton2() const {
  return *mForm->formatPopupButton2;
}

// Nothing stands for 0; what is no number gives back what was.
void VLPlayRateSheet::commit() {
  const QString text = mForm->playRateTextField->text().trimmed().remove('%');
  bool isNumber = text.isEmpty();
  const double typed = isNumber ? 0 : QLocale::c().toDouble(text.trimmed(), &isNumber);
  if (isNumber && typed != mPercent) {
    show(mCommit(typed));
  } else {
    show(mPercent);
  }
}

void VLPlayRateSheet::show(double percent) {
  mPercent = percent;
  mForm->playRateTextField->setText(QLocale::c().toString(percent, 'f', kDecimals));
}

}  // namespace velor
