// SPDX-License-Identifier: MIT
#include "Velor/views/VLOSCHostsPane.h"

#include <QObject>
#include <cstddef>

#include "Velor/osc/VLOSCServer.h"
#include "Velor/views/VLTableView.h"
#include "platform/host/Host.h"

namespace velor {
namespace {

enum ColumnPlace { kOn, kAddress };

}  // namespace

VLOSCHostsPane::VLOSCHostsPane(VLTableView& table, const VLPerform& perform)
    : allowedHostsTableView(table), mModel(new Model(columns(), perform, &table)) {
  table.setModel(mModel);
  table.setEmptyText(
      QObject::tr("No hosts. One that sends a command while the server runs appears here."));
  table.setSwitchColumn(kOn);
  table.setStretchColumn(kAddress);
  mToken = VLOSCServer::sharedServer().addObserver(
      "hostFilter", [show = mSelf.job([](VLOSCHostsPane& self) { self.showHosts(); })](
                        const auto&) { host::current().mainQueue().async(show); });
  showHosts();
}

VLOSCHostsPane::Model::Columns VLOSCHostsPane::columns() {
  using Entry = VLOSCHostFilterEntry;
  using Column = VLTableColumn<Entry>;
  const Column on(
      QObject::tr("On"), [](const Entry& each) { return each.enabled(); },
      [](Entry& each, bool isOn) { each.setEnabled(isOn); });
  const Column address(QObject::tr("Address"),
                       [](const Entry& each) { return QString::fromStdString(each.address()); });
  return {on, address};
}

VLOSCHostsPane::Model::Rows VLOSCHostsPane::hosts() {
  const VLOSCServer& server = VLOSCServer::sharedServer();
  Model::Rows entries;
  for (std::size_t i = 0; i < server.countOfHostFilter(); ++i) {
    entries.push_back(server.objectInHostFilterAtIndex(i));
  }
  return entries;
}

void VLOSCHostsPane::remove() {
  const auto places = mModel->placesOf(allowedHostsTableView.selectedRows(), hosts());
  VLOSCServer::sharedServer().removeHostFilterAtIndexes(places);
}

}  // namespace velor
