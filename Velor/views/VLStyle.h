// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>
#include <QRectF>
#include <cstdint>

class QPainter;

namespace velor {

/// The measures and colours of all windows, in logical pixels. Colours stand for states
/// alone, beside a word or a shape; all else is the palette of the desktop.
struct VLStyle {
  static constexpr int kNear = 4;   ///< within a thing
  static constexpr int kGap = 8;    ///< between things that differ
  static constexpr int kEdge = 12;  ///< to the edge of the window
  static constexpr int kTransportHeight = 44;
  static constexpr int kControlHeight = 28;
  static constexpr int kIcon = 16;
  static constexpr int kRadius = 5;
  static constexpr int kPanelText = 12;  ///< height of the text of a panel of fixed size

  enum class State : std::uint8_t { running, stopped, armed, warning };

  static bool isDark(const QPalette& palette);
  /// Contrast to the palette's window, button and base of at least 4.5 to 1.
  static QColor color(State state, const QPalette& palette);
  /// Of lines between and around things.
  static QColor line(const QPalette& palette);
  /// Of the ring around what has the focus: the palette's, with a contrast to its window of at
  /// least 3 to 1.
  static QColor focus(const QPalette& palette);
  /// Of text that explains.
  static QColor secondaryText(const QPalette& palette);
  /// The ring of the control in `frame` that has the focus.
  static void drawFocus(QPainter& painter, const QRectF& frame, const QPalette& palette);
  static QFont secondaryFont(const QFont& font);
  /// With digits of one width.
  static QFont timeFont(const QFont& font);
  /// Of the time of a device, readable from two steps away.
  static QFont panelTimeFont();
};

}  // namespace velor
