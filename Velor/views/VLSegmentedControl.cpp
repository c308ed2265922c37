// SPDX-License-Identifier: MIT
#include "Velor/views/VLSegmentedControl.h"

#include <QAccessibleWidget>
#include <QHBoxLayout>

#include "Velor/views/VLButton.h"
#include "Velor/views/VLStyle.h"

namespace velor {
namespace {

QAccessibleInterface* groupInterface(const QString& /*className*/, QObject* object) {
  auto* control = qobject_cast<VLSegmentedControl*>(object);
  return control != nullptr ? new QAccessibleWidget(control, QAccessible::Grouping) : nullptr;
}

}  // namespace

VLSegmentedControl::VLSegmentedControl(QWidget* parent)
    : QWidget(parent), mLayout(new QHBoxLayout(this)) {
  [[maybe_unused]] static const bool isInstalled = [] {
    QAccessible::installFactory(groupInterface);
    return true;
  }();
  mLayout->setContentsMargins(0, 0, 0, 0);
  mLayout->setSpacing(0);
}

void VLSegmentedControl::addSegment(const QString& title, std::uint64_t tag) {
  auto* button = new VLButton(this);
  button->setText(title);
  button->setAccessibleName(title);
  button->setCheckable(true);
  button->setMinimumHeight(VLStyle::kTransportHeight);
  button->setJoined(!mSegments.empty(), false);
  if (!mSegments.empty()) {
    mSegments.back().second->setJoined(mSegments.size() > 1, true);
  }
  mLayout->addWidget(button);
  mSegments.emplace_back(tag, button);
  connect(button, &VLButton::clicked, this, [this, tag] {
    emit segmentChosen(tag);
    setSelectedTag(mSelected);
  });
}

void VLSegmentedControl::setSelectedTag(std::uint64_t tag) {
  mSelected = tag;
  for (const auto& [each, button] : mSegments) {
    button->setChecked(each == tag);
  }
}

}  // namespace velor
