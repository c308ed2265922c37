// SPDX-License-Identifier: MIT
#pragma once

#include <QWidget>
#include <functional>
#include <memory>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "Velor/devices/VLDevice.h"
#include "Velor/devices/VLDeviceStatusImageTransformer.h"
#include "Velor/views/VLPerform.h"
#include "Velor/views/VLTableModel.h"
#include "platform/host/WeakSelf.h"

namespace Ui {
class VLDestinationsViewController;
}

namespace velor {

/// A row of the device table. The device goes when it is removed, whatever a table shows.
struct VLDeviceRow {
  std::weak_ptr<VLDevice> device;
  QString name;

  VLStatusImage image() const;
};

/// The window of all LTC generators and readers. Queue: main, to which it brings the changes:
/// the manager reports them on any thread, with its lock held.
class VLDestinationsViewController final : public QWidget {
  Q_OBJECT

 public:
  using OnDevice = std::function<void(const std::shared_ptr<VLDevice>& device)>;

  /// `open` shows the window of a device, `close` closes it.
  VLDestinationsViewController(VLPerform perform, OnDevice open, OnDevice close);
  ~VLDestinationsViewController() override;

  void addGenerator();
  /// The selected ones.
  void removeDevice();
  /// The one of the current row.
  void openDevice();

 private:
  using Model = VLTableModel<VLDeviceRow>;

  static Model::Columns columns();
  void setUpTable();
  void showDevices();
  void showButtons();

  const std::unique_ptr<Ui::VLDestinationsViewController> mForm;
  const VLPerform mPerform;
  Model* const mModel;  // a child
  const OnDevice mOpen;
  const OnDevice mClose;
  std::vector<KVObserverToken> mStatusTokens;  // of the devices
  KVObserverToken mDevicesToken;
  const host::WeakSelf<VLDestinationsViewController> mSelf{this};
};

}  // namespace velor
