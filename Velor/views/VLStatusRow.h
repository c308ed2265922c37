// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QWidget>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "Kv-Appkit/KVObservable.h"
#include "platform/host/WeakSelf.h"

class QHBoxLayout;

namespace velor {

class VLAppDelegate;
class VLButton;
class VLElidedLabel;

/// What the system around the clock does, in one row: the audio and MIDI server, the MTC that
/// comes in, OSC, the last warning until it is clicked or superseded, and what is left of the
/// last run. Queue: main.
class VLStatusRow final : public QWidget {
  Q_OBJECT

 public:
  explicit VLStatusRow(QWidget* parent = nullptr);
  ~VLStatusRow() override;

  /// From then on it follows them.
  void follow(const std::shared_ptr<VLAppDelegate>& controller, std::function<void()> recover);
  void refresh();

  /// The whole row, for screen readers.
  QString stringValue() const;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  VLElidedLabel* addText(const char* name);
  static void show(VLElidedLabel& label, const QString& text, int kept);
  static QString serverText();
  static QString audioServerText();
  QString syncText(const VLAppDelegate& controller) const;
  static QString oscText();
  void showWarning();
  void showLastRun(VLAppDelegate& controller);
  void lookAgain();

  QHBoxLayout* const mLayout;
  VLElidedLabel* const mServer;
  VLElidedLabel* const mSync;
  VLElidedLabel* const mOSC;
  VLButton* const mWarning;
  VLElidedLabel* const mLastRun;
  VLButton* const mRecover;
  std::uint64_t mWarningShown = 0;  // its number
  std::weak_ptr<VLAppDelegate> mController;
  std::vector<KVObserverToken> mTokens;
  const host::WeakSelf<VLStatusRow> mSelf{this};
};

}  // namespace velor
