// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QCoreApplication>
#include <QString>
#include <cmath>

#include "Velor/clock/VLClockStatus.h"

namespace velor {

/// The word for a status of the clock, which stands beside its colour.
inline QString VLClockStatusText(VLClockStatus status) {
  const char* word = nullptr;
  switch (status) {
    case VLClockRolling:
      word = QT_TRANSLATE_NOOP("VLClockStatus", "running");
      break;
    case VLClockArmed:
      word = QT_TRANSLATE_NOOP("VLClockStatus", "armed");
      break;
    case VLClockChasing:
      word = QT_TRANSLATE_NOOP("VLClockStatus", "chasing");
      break;
    case VLClockArmedWrongFormat:
      word = QT_TRANSLATE_NOOP("VLClockStatus", "wrong format");
      break;
    default:
      word = QT_TRANSLATE_NOOP("VLClockStatus", "stopped");
  }
  return QCoreApplication::translate("VLClockStatus", word);
}

inline QColor VLQColor(const VLColor& color) {
  const auto whole = [](double part) { return static_cast<int>(std::lround(255 * part)); };
  return {whole(color.red), whole(color.green), whole(color.blue), whole(color.alpha)};
}

}  // namespace velor
