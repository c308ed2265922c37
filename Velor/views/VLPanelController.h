// SPDX-License-Identifier: MIT
#pragma once

#include <QSize>
#include <QString>

class QWidget;

namespace velor {

/// A panel that a window of its own can present. Queue: main.
class VLPanelController {
 public:
  virtual ~VLPanelController() = default;

  /// The panel's, also while a window shows it. May be null.
  virtual QWidget* view() = 0;
  virtual QSize minSize() const = 0;
  virtual QSize maxSize() const = 0;
  virtual bool resizeable() const = 0;
  virtual QString viewControllerTitle() const = 0;
  /// Under which the frame of the window is saved; empty: it is not.
  virtual QString frameSaveName() const = 0;
};

}  // namespace velor
