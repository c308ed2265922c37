// SPDX-License-Identifier: MIT
#pragma once

#include <QInputEvent>

namespace velor {

/// The modifiers of the mouse or key event that a view is handling, as long as this lives.
/// The state of the keyboard that the toolkit reports can be of another moment, and means
/// nothing for what comes by OSC or by a screen reader. Queue: main.
class VLEventModifiers {
 public:
  explicit VLEventModifiers(const QEvent& event) : mFormer(sHeld) {
    if (event.isInputEvent()) {
      sHeld = static_cast<const QInputEvent&>(event).modifiers();
    }
  }
  ~VLEventModifiers() { sHeld = mFormer; }
  VLEventModifiers(const VLEventModifiers&) = delete;
  VLEventModifiers& operator=(const VLEventModifiers&) = delete;

  static bool isControlHeld() { return sHeld.testFlag(Qt::ControlModifier); }

 private:
  inline static Qt::KeyboardModifiers sHeld;
  const Qt::KeyboardModifiers mFormer;
};

}  // namespace velor
