// SPDX-License-Identifier: MIT
#include "Velor/views/VLIcons.h"

#include <QFile>
#include <QGuiApplication>
#include <QIconEngine>
#include <QPainter>
#include <QPalette>
#include <QPixmap>
#include <QSvgRenderer>
#include <optional>
#include <utility>

#include "Velor/views/VLStyle.h"

// Outside of any namespace, as it must be: the resources of a static library.
static void loadIcons() {
  Q_INIT_RESOURCE(icons);
}

namespace velor {
namespace {

using Tint = VLIcons::Tint;

// None: the colour of the text.
std::optional<VLStyle::State> stateOf(Tint tint) {
  switch (tint) {
    case Tint::green:
      return VLStyle::State::running;
    case Tint::red:
      return VLStyle::State::stopped;
    case Tint::blue:
      return VLStyle::State::armed;
    case Tint::none:
    case Tint::black:
      break;
  }
  return std::nullopt;
}

class TemplateEngine final : public QIconEngine {
 public:
  TemplateEngine(QByteArray svg, std::optional<VLStyle::State> state)
      : mSvg(std::move(svg)), mState(state) {}

  void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode,
             QIcon::State /*state*/) override {
    const QPalette palette = QGuiApplication::palette();
    const QColor color =
        mode == QIcon::Selected ? palette.color(QPalette::HighlightedText)
        : mState && mode != QIcon::Disabled
            ? VLStyle::color(*mState, palette)
            : palette.color(mode == QIcon::Disabled ? QPalette::Disabled : QPalette::Active,
                            QPalette::ButtonText);
    QByteArray svg = mSvg;
    svg.replace("currentColor", color.name().toLatin1());
    if (mState) {
      svg.replace("class=\"body\"", "fill=\"" + color.name().toLatin1() + "\"");
    }
    QSvgRenderer(svg).render(painter, rect);
  }

  QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
    QPixmap pixmap(size);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    paint(&painter, QRect(QPoint(), size), mode, state);
    return pixmap;
  }

  QIconEngine* clone() const override { return new TemplateEngine(mSvg, mState); }

 private:
  const QByteArray mSvg;
  const std::optional<VLStyle::State> mState;
};

}  // namespace

QIcon VLIcons::icon(std::string_view name, Tint tint) {
  return icon(name, stateOf(tint));
}

QIcon VLIcons::icon(std::string_view name, std::optional<VLStyle::State> state) {
  loadIcons();
  QFile file(":/velor/" + QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size())) +
             ".svg");
  return file.open(QIODevice::ReadOnly) ? QIcon(new TemplateEngine(file.readAll(), state))
                                        : QIcon();
}

}  // namespace velor
