// SPDX-License-Identifier: MIT
#pragma once

#include <QColor>
#include <QIcon>
#include <QString>
#include <optional>
#include <string_view>

#include "Velor/app/VLMainWindowOutlet.h"
#include "Velor/views/VLStyle.h"

namespace velor {

/// The program's own icons: templates on a grid of 24, drawn sharp at any size in the colour
/// of the text, or in that of a state, in which case they are filled. Queue: main.
class VLIcons {
 public:
  using Tint = VLMainWindowOutlet::Image::Tint;

  /// `name`: of a file, without its extension. Follows the palette of the application.
  static QIcon icon(std::string_view name, std::optional<VLStyle::State> state = {});
  static QIcon icon(std::string_view name, Tint tint);
};

}  // namespace velor
