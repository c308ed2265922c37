// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <string_view>

class QObject;
class QLocale;

namespace velor {

/// The texts of the windows in the language of the desktop. Queue: main.
class VLTranslation {
 public:
  /// For the windows that are made afterwards, as far as there are translations; for the
  /// life of the owner: the application.
  static void install(QObject& owner, const QLocale& locale);
  /// A text that the controller gives, which knows of no language: a question, the name of an
  /// undo step, a play mode. One that is not known stays as it is.
  static QString text(std::string_view english);
};

}  // namespace velor
