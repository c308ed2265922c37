// SPDX-License-Identifier: MIT
#include "Velor/views/VLDestinationsPane.h"

#include <QHeaderView>
#include <utility>

#include "Velor/clock/VLClock.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/views/VLStyle.h"
#include "Velor/views/VLSwitchDelegate.h"
#include "Velor/views/VLTableView.h"
#include "platform/host/Host.h"

namespace velor {
namespace {

constexpr int kStateWidth = 88;
constexpr int kOnWidth = 44;

}  // namespace

VLDestinationsPane::VLDestinationsPane(VLTableView& table, VLPerform perform)
    : mModel(new VLDestinationsModel(std::move(perform), &table)) {
  table.setModel(mModel);
  table.setSelectionMode(QAbstractItemView::SingleSelection);
  table.setEmptyText(QObject::tr(
      "No MIDI destinations. Start a program with a MIDI input, or a JACK or PipeWire server."));
  table.setItemDelegateForColumn(VLDestinationsModel::kOn, new VLSwitchDelegate(&table));
  QHeaderView& header = *table.horizontalHeader();
  header.setStretchLastSection(false);
  header.setSectionResizeMode(VLDestinationsModel::kName, QHeaderView::Stretch);
  header.setMinimumSectionSize(VLStyle::kControlHeight);
  header.resizeSection(VLDestinationsModel::kOn, kOnWidth);
  header.resizeSection(VLDestinationsModel::kState, kStateWidth);
}

void VLDestinationsPane::follow() {
  const auto later = [show = mSelf.job([](VLDestinationsPane& self) { self.showDestinations(); })](
                         const auto&) { host::current().mainQueue().async(show); };
  VLDeviceManager& manager = VLDeviceManager::sharedManager();
  mTokens.push_back(manager.addObserver("destinations", later));
  mTokens.push_back(manager.addObserver("state", later));
  mTokens.push_back(VLClock::sharedClock().addObserver("status", later));
  showDestinations();
}

void VLDestinationsPane::showDestinations() {
  const VLClock& clock = VLClock::sharedClock();
  mModel->setDestinations(VLDeviceManager::sharedManager().destinations(), clock.running());
}

}  // namespace velor
