// SPDX-License-Identifier: MIT
#include "Velor/views/VLDestinationsPane.h"

#include <QGuiApplication>
#include <utility>

#include "Velor/clock/VLClock.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/views/VLStyle.h"
#include "Velor/views/VLTableView.h"
#include "platform/host/Host.h"

namespace velor {
namespace {

enum ColumnPlace { kOn, kName, kState };

constexpr int kStateWidth = 88;

}  // namespace

VLDestinationsPane::VLDestinationsPane(VLTableView& table, VLPerform perform)
    : mModel(new Model(columns(), std::move(perform), &table)) {
  table.setModel(mModel);
  table.setSelectionMode(QAbstractItemView::SingleSelection);
  table.setEmptyText(QObject::tr(
      "No MIDI destinations. Start a program with a MIDI input, or a JACK or PipeWire server."));
  table.setSwitchColumn(kOn);
  table.setStretchColumn(kName);
  table.setColumnWidth(kState, kStateWidth);
}

bool VLDestinationsPane::isSending(const VLTimecodeDestinationDevice& destination) const {
  return mIsMoving && destination.enable() && destination.midiEndpoint() != nullptr;
}

QString VLDestinationsPane::stateOf(const VLTimecodeDestinationDevice& destination) const {
  if (destination.midiEndpoint() == nullptr) {
    return QObject::tr("missing");
  }
  return !destination.enable()    ? QObject::tr("off")
         : isSending(destination) ? QObject::tr("sending")
                                  : QObject::tr("ready");
}

VLDestinationsPane::Model::Columns VLDestinationsPane::columns() const {
  using Destination = VLTimecodeDestinationDevice;
  using Column = VLTableColumn<Destination>;
  const Column on(
      QObject::tr("On"), [](const Destination& each) { return each.enable(); },
      [](Destination& each, bool isOn) { each.setEnable(isOn); });
  const Column name(QObject::tr("Name"), [](const Destination& each) {
    return QString::fromStdString(each.name().value_or(""));
  });
  Column state(QObject::tr("State"), [this](const Destination& each) { return stateOf(each); });
  state.color = [this](const Destination& each) -> std::optional<QColor> {
    if (!isSending(each)) {
      return std::nullopt;
    }
    return VLStyle::color(VLStyle::State::running, QGuiApplication::palette());
  };
  return {on, name, state};
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
  mIsMoving = VLClock::sharedClock().running();
  mModel->show(VLDeviceManager::sharedManager().destinations());
}

}  // namespace velor
