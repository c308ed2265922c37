// SPDX-License-Identifier: MIT
#include "Velor/views/VLDestinationsViewController.h"

#include <ui_VLDestinationsViewController.h>

#include <QAction>
#include <QHeaderView>
#include <algorithm>
#include <set>
#include <utility>

#include "Velor/devices/VLDeviceManager.h"
#include "Velor/devices/VLLTCGeneratorDevice.h"
#include "Velor/views/VLStatusImageView.h"
#include "Velor/views/VLStyle.h"
#include "platform/host/Host.h"

namespace velor {
namespace {

enum ColumnPlace { kStatus, kName };

constexpr int kStatusWidth = 120;

}  // namespace

VLStatusImage VLDeviceRow::image() const {
  const auto present = device.lock();
  return VLDeviceStatusImageTransformer::transformedValue(
      present != nullptr ? present->deviceStatus() : kVLDeviceStatusIdle);
}

VLDestinationsViewController::VLDestinationsViewController(VLPerform perform, OnDevice open,
                                                           OnDevice close)
    : mForm(std::make_unique<Ui::VLDestinationsViewController>()),
      mPerform(std::move(perform)),
      mModel(new Model(columns(), mPerform, this)),
      mOpen(std::move(open)),
      mClose(std::move(close)) {
  mForm->setupUi(this);
  setUpTable();
  connect(mForm->addGeneratorButton, &VLButton::clicked, this, [this] { addGenerator(); });
  connect(mForm->removeButton, &VLButton::clicked, this, [this] { removeDevice(); });
  connect(mForm->openButton, &VLButton::clicked, this, [this] { openDevice(); });
  mForm->removeButton->setToolTip(tr("Remove the selected devices (Delete)"));
  mForm->openButton->setToolTip(tr("Open the window of the device (Return)"));
  mDevicesToken = VLDeviceManager::sharedManager().addObserver(
      "devices", [job = mSelf.job([](VLDestinationsViewController& self) { self.showDevices(); })](
                     const auto&) { host::current().mainQueue().async(job); });
  showDevices();
}

VLDestinationsViewController::~VLDestinationsViewController() = default;

VLDestinationsViewController::Model::Columns VLDestinationsViewController::columns() {
  using Column = VLTableColumn<VLDeviceRow>;
  Column status(tr("Status"),
                [](const VLDeviceRow& row) { return VLStatusImageView::word(row.image()); });
  status.icon = [](const VLDeviceRow& row) { return VLStatusImageView::icon(row.image()); };
  return {status, Column(tr("Name"), [](const VLDeviceRow& row) { return row.name; })};
}

void VLDestinationsViewController::setUpTable() {
  VLTableView& table = *mForm->deviceTable;
  table.setModel(mModel);
  table.setEmptyText(
      tr("No devices. Add Generator makes an LTC generator; an LTC reader is made "
         "in the Devices menu."));
  QHeaderView& header = *table.horizontalHeader();
  header.resizeSection(kStatus, kStatusWidth);
  header.setStretchLastSection(true);
  connect(&table, &QTableView::activated, this, [this] { openDevice(); });
  connect(table.selectionModel(), &QItemSelectionModel::selectionChanged, this,
          [this] { showButtons(); });
  auto* remove = new QAction(tr("Remove"), &table);
  remove->setShortcut(Qt::Key_Delete);
  remove->setShortcutContext(Qt::WidgetWithChildrenShortcut);
  connect(remove, &QAction::triggered, this, [this] { removeDevice(); });
  table.addAction(remove);
}

void VLDestinationsViewController::showDevices() {
  const auto devices = VLDeviceManager::sharedManager().devices();
  mStatusTokens.clear();
  const auto later = [job = mSelf.job([](VLDestinationsViewController& self) {
    self.mModel->show(self.mModel->rows());
  })](const auto&) { host::current().mainQueue().async(job); };
  Model::Rows rows;
  for (const auto& device : devices) {
    if (auto* const observable = dynamic_cast<KVObservable*>(device.get())) {
      mStatusTokens.push_back(observable->addObserver("deviceStatus", later));
    }
    const auto known = std::ranges::find_if(
        mModel->rows(), [&](const auto& row) { return row->device.lock() == device; });
    rows.push_back(known != mModel->rows().end()
                       ? *known
                       : std::make_shared<VLDeviceRow>(VLDeviceRow{
                             device, QString::fromStdString(device->name().value_or(""))}));
  }
  mModel->show(rows);
  showButtons();
}

void VLDestinationsViewController::showButtons() {
  const bool isSelected = mForm->deviceTable->selectionModel()->hasSelection();
  mForm->removeButton->setEnabled(isSelected);
  mForm->openButton->setEnabled(isSelected);
}

void VLDestinationsViewController::addGenerator() {
  mPerform([] { VLDeviceManager::sharedManager().createGenerator(); });
}

// The list may be ahead of the table.
void VLDestinationsViewController::removeDevice() {
  mPerform([this] {
    VLDeviceManager& manager = VLDeviceManager::sharedManager();
    const auto devices = manager.devices();
    std::set<std::size_t> indexes;
    for (const QModelIndex& index : mForm->deviceTable->selectionModel()->selectedRows()) {
      const auto& row = mModel->rows()[static_cast<std::size_t>(index.row())];
      const auto place = std::ranges::find(devices, row->device.lock());
      if (place != devices.end()) {
        mClose(*place);
        indexes.insert(static_cast<std::size_t>(place - devices.begin()));
      }
    }
    manager.removeDevicesAtIndexes(indexes);
  });
}

void VLDestinationsViewController::openDevice() {
  const QModelIndex current = mForm->deviceTable->currentIndex();
  if (!current.isValid()) {
    return;
  }
  mPerform([this, row = mModel->rows()[static_cast<std::size_t>(current.row())]] {
    if (const auto device = row->device.lock()) {
      mOpen(device);
    }
  });
}

}  // namespace velor
