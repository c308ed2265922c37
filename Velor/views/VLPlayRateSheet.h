// SPDX-License-Identifier: MIT
#pragma once

#include <QDialog>
#include <functional>
#include <memory>

namespace Ui {
class VLPlayRateSheet;
}
class QComboBox;

namespace velor {

/// The play rate as a difference to the normal speed in percent, taken over with Return or
/// OK; the format is beside it. Queue: main.
class VLPlayRateSheet final : public QDialog {
  Q_OBJECT

 public:
  /// Takes the percentage and gives the one in force.
  using Commit = std::function<double(double percent)>;

  VLPlayRateSheet(double percent, Commit commit, QWidget* parent);
  ~VLPlayRateSheet() override;

  QComboBox& formatPopupButton2() const;

 private:
  void commit();
  void show(double percent);

  const std::unique_ptr<Ui::VLPlayRateSheet> mForm;
  const Commit mCommit;
  double mPercent = 0;
};

}  // namespace velor
