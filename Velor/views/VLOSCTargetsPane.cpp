// SPDX-License-Identifier: MIT
#include "Velor/views/VLOSCTargetsPane.h"

#include <QGuiApplication>
#include <QObject>
#include <QStringList>
#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "Velor/app/VLAppDelegate.h"
#include "Velor/osc/VLOSCClientDispatcher.h"
#include "Velor/osc/VLUserDefinedOSCClient.h"
#include "Velor/views/VLSheets.h"
#include "Velor/views/VLStyle.h"
#include "Velor/views/VLTableView.h"
#include "platform/host/Host.h"
#include "platform/network/HostAddresses.h"

namespace velor {
namespace {

enum ColumnPlace { kOn, kHost, kPort, kState };

constexpr int kPortWidth = 72;
constexpr int kStateWidth = 120;

// The host of all machines on the first network 192.168.x.y of this host, for a mask of 24
// bits; null without such a network.
std::optional<std::string> broadcastHost() {
  for (const std::string& address : network::hostAddresses().addresses()) {
    QStringList parts = QString::fromStdString(address).split('.');
    if (parts.size() == 4 && parts[0] == "192" && parts[1] == "168") {
      parts[3] = "255";
      return parts.join('.').toStdString();
    }
  }
  return std::nullopt;
}

QString storedHostOf(const VLOSCClient& client) {
  return QString::fromStdString(client.storedHost().value_or(""));
}

QString hostOf(const VLOSCClient& client) {
  const auto& name = client.serviceName();
  return name && !client.userDefinedHost()
             ? QString::fromStdString(*name) + " (" + storedHostOf(client) + ")"
             : storedHostOf(client);
}

bool isUnreachable(const VLOSCClient& client) {
  return client.enabled() && !(client.connected() && client.alive());
}

QString stateOf(const VLOSCClient& client) {
  if (!client.enabled()) {
    return QObject::tr("off");
  }
  if (!client.userDefinedHost() && !client.isPresent()) {
    return QObject::tr("missing");
  }
  return client.connected() ? QObject::tr("ready") : QObject::tr("not connected");
}

}  // namespace

VLOSCTargetsPane::VLOSCTargetsPane(VLTableView& table, VLSheets& sheets)
    : clientsTableView(table),
      mSheets(sheets),
      mModel(new Model(columns(), sheets.performer(), &table)) {
  table.setModel(mModel);
  table.setEmptyText(QObject::tr(
      "No targets. Those on the network appear here; Add Target adds one by its address."));
  table.setSwitchColumn(kOn);
  table.setStretchColumn(kHost);
  table.setColumnWidth(kPort, kPortWidth);
  table.setColumnWidth(kState, kStateWidth);
  mToken = VLOSCClientDispatcher::sharedDispatcher().addObserver("clients", later());
  showTargets();
}

VLOSCTargetsPane::Model::Columns VLOSCTargetsPane::columns() {
  using Column = VLTableColumn<VLOSCClient>;
  const auto isEditable = [](const VLOSCClient& each) { return each.userDefinedHost(); };
  const Column on(
      QObject::tr("On"), [](const VLOSCClient& each) { return each.enabled(); },
      [](VLOSCClient& each, bool isOn) { each.setEnabled(isOn); });
  Column host(QObject::tr("Host"), hostOf);
  host.editedText = storedHostOf;
  host.isEditable = isEditable;
  host.setText = [this](VLOSCClient& each, const QString& typed) { return setHost(each, typed); };
  Column port(QObject::tr("Port"),
              [](const VLOSCClient& each) { return QString::number(each.storedPort()); });
  port.isEditable = isEditable;
  port.setText = [this](VLOSCClient& each, const QString& typed) { return setPort(each, typed); };
  Column state(QObject::tr("State"), stateOf);
  state.color = [](const VLOSCClient& each) -> std::optional<QColor> {
    if (!isUnreachable(each)) {
      return std::nullopt;
    }
    return VLStyle::color(VLStyle::State::warning, QGuiApplication::palette());
  };
  return {on, host, port, state};
}

bool VLOSCTargetsPane::setHost(VLOSCClient& client, const QString& typed) {
  const QString host = typed.trimmed();
  if (host.isEmpty()) {
    mSheets.presentError(
        QObject::tr("A target needs a host; expected a name or an address").toStdString());
    return false;
  }
  static_cast<VLUserDefinedOSCClient&>(client).setHost(host.toStdString());
  return true;
}

bool VLOSCTargetsPane::setPort(VLOSCClient& client, const QString& typed) {
  auto& target = static_cast<VLUserDefinedOSCClient&>(client);
  const QString text = typed.trimmed();
  if (text.isEmpty()) {
    target.setNilValueForKey("port");
    return true;
  }
  bool isNumber = false;
  const unsigned port = text.toUInt(&isNumber);
  if (!isNumber || port == 0 || port > std::numeric_limits<std::uint16_t>::max()) {
    mSheets.presentError(
        QObject::tr("'%1' is not a port; expected 1 to 65535").arg(text).toStdString());
    return false;
  }
  target.setPort(static_cast<std::uint16_t>(port));
  return true;
}

// --- what is shown

KVObservable::Observer VLOSCTargetsPane::later() const {
  return [isWaiting = mIsWaiting,
          show = mSelf.job([](VLOSCTargetsPane& self) { self.showTargets(); })](const auto&) {
    if (!isWaiting->exchange(true)) {
      host::current().mainQueue().async(show);
    }
  };
}

void VLOSCTargetsPane::showTargets() {
  mIsWaiting->store(false);
  const auto clients = VLOSCClientDispatcher::sharedDispatcher().clients();
  auto former = std::exchange(mTokensOfClients, {});
  for (const auto& client : clients) {
    std::vector<KVObserverToken>& tokens = mTokensOfClients[client.get()];
    if (const auto known = former.find(client.get()); known != former.end()) {
      tokens = std::move(known->second);
      continue;
    }
    for (const char* key : {"statusImage", "host", "port"}) {
      tokens.push_back(client->addObserver(key, later()));
    }
  }
  former.clear();  // while the model still holds the clients
  mModel->show(clients);
}

void VLOSCTargetsPane::select(const VLOSCClient& client) {
  const auto& rows = mModel->rows();
  const auto found =
      std::ranges::find_if(rows, [&](const auto& each) { return each.get() == &client; });
  if (found != rows.end()) {
    clientsTableView.setCurrentIndex(mModel->index(static_cast<int>(found - rows.begin()), kHost));
  }
}

// --- what the user does

void VLOSCTargetsPane::addClientEntry(VLAppDelegate& controller) {
  const auto client =
      VLUserDefinedOSCClient::initWithUdpHost(kDefaultHost, VLUserDefinedOSCClient::kDefaultPort);
  controller.inBackground([&queue = host::current().mainQueue(), weak = std::weak_ptr(client)] {
    const auto host = broadcastHost();
    if (!host) {
      return;
    }
    queue.async([weak, host] {
      const auto target = weak.lock();
      if (target != nullptr && target->storedHost() == kDefaultHost) {
        target->setHost(host);
      }
    });
  });
  VLOSCClientDispatcher::sharedDispatcher().addClient(client);
  showTargets();
  select(*client);
}

void VLOSCTargetsPane::remove() {
  VLOSCClientDispatcher& dispatcher = VLOSCClientDispatcher::sharedDispatcher();
  dispatcher.removeClientsAtIndexes(
      mModel->placesOf(clientsTableView.selectedRows(), dispatcher.clients()));
}

}  // namespace velor
