// SPDX-License-Identifier: MIT
#include "Velor/views/VLStyle.h"

#include <QFontDatabase>
#include <QFontInfo>
#include <QPainter>
#include <QPen>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>

namespace velor {
namespace {

constexpr double kSecondarySize = 0.85;
constexpr int kPanelTime = 22;  // pixels
constexpr qreal kFocusWidth = 2;
constexpr double kLeastContrast = 3;  // of what is no text

struct Shades {
  QRgb light;
  QRgb dark;
};
// In the order of VLStyle::State.
constexpr std::array<Shades, 4> kShades{{
    {qRgb(0x0B, 0x6B, 0x24), qRgb(0x5A, 0xD9, 0x74)},
    {qRgb(0xB4, 0x1E, 0x18), qRgb(0xFF, 0x8A, 0x80)},
    {qRgb(0x17, 0x52, 0xB8), qRgb(0x8A, 0xB8, 0xFF)},
    {qRgb(0x7A, 0x4C, 0x00), qRgb(0xFF, 0xC0, 0x4D)},
}};

QColor mixed(const QColor& one, const QColor& other, float share) {
  const auto mix = [share](float a, float b) { return a + (b - a) * share; };
  return QColor::fromRgbF(mix(one.redF(), other.redF()), mix(one.greenF(), other.greenF()),
                          mix(one.blueF(), other.blueF()));
}

// As WCAG 2.1 defines it.
double luminance(const QColor& color) {
  const auto linear = [](double part) {
    return part <= 0.04045 ? part / 12.92 : std::pow((part + 0.055) / 1.055, 2.4);
  };
  return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
         0.0722 * linear(color.blueF());
}

double contrast(const QColor& one, const QColor& other) {
  const auto [less, more] = std::minmax({luminance(one), luminance(other)});
  return (more + 0.05) / (less + 0.05);
}

}  // namespace

bool VLStyle::isDark(const QPalette& palette) {
  return palette.color(QPalette::Window).lightness() <
         palette.color(QPalette::WindowText).lightness();
}

QColor VLStyle::color(State state, const QPalette& palette) {
  const Shades& shades = kShades[static_cast<std::size_t>(state)];
  return QColor(isDark(palette) ? shades.dark : shades.light);
}

QColor VLStyle::line(const QPalette& palette) {
  return mixed(palette.color(QPalette::Window), palette.color(QPalette::WindowText), 0.25F);
}

QColor VLStyle::focus(const QPalette& palette) {
  const QColor window = palette.color(QPalette::Window);
  QColor focus = palette.color(QPalette::Highlight);
  for (int i = 0; i < 10 && contrast(focus, window) < kLeastContrast; ++i) {
    focus = mixed(focus, palette.color(QPalette::WindowText), 0.1F);
  }
  return focus;
}

QColor VLStyle::secondaryText(const QPalette& palette) {
  return mixed(palette.color(QPalette::WindowText), palette.color(QPalette::Window), 0.25F);
}

void VLStyle::drawFocus(QPainter& painter, const QRectF& frame, const QPalette& palette) {
  painter.setBrush(Qt::NoBrush);
  painter.setPen(QPen(focus(palette), kFocusWidth));
  painter.drawRoundedRect(frame.adjusted(1.5, 1.5, -1.5, -1.5), kRadius - 1, kRadius - 1);
}

QFont VLStyle::secondaryFont(const QFont& font) {
  QFont small = font;
  small.setPixelSize(static_cast<int>(std::lround(QFontInfo(font).pixelSize() * kSecondarySize)));
  return small;
}

QFont VLStyle::timeFont(const QFont& font) {
  QFont time = QFontDatabase::systemFont(QFontDatabase::FixedFont);
  time.setPixelSize(QFontInfo(font).pixelSize());
  return time;
}

QFont VLStyle::panelTimeFont() {
  QFont font = QFontDatabase::systemFont(QFontDatabase::FixedFont);
  font.setPixelSize(kPanelTime);
  return font;
}

}  // namespace velor
