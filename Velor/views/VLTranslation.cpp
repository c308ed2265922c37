// SPDX-License-Identifier: MIT
#include "Velor/views/VLTranslation.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QRegularExpression>
#include <QTranslator>
#include <memory>

// Outside of any namespace, as it must be: the resources of a static library.
static void loadTranslations() {
  Q_INIT_RESOURCE(translations);
}

namespace velor {
namespace {

// Named, as two pieces of one text within the list below would pass for a missing comma.
constexpr const char* kWrongFormat =
    QT_TRANSLATE_NOOP("VLAppDelegate",
                      "The clock receives MTC on %1 at %2 fps, which does not match the currently "
                      "set format of %3 fps");
constexpr const char* kLoop =
    QT_TRANSLATE_NOOP("VLAppDelegate",
                      "There appears to be a MIDI loop between \"%1\" and \"%2\". For correct "
                      "operation \"%3\" should not be a MTC Destination");
constexpr const char* kQuit =
    QT_TRANSLATE_NOOP("VLAppDelegate",
                      "Do you really want to quit Velor? Some devices are currently running and "
                      "generating timecode.");

// What the controller gives; the more particular one first.
constexpr const char* kTexts[] = {
    QT_TRANSLATE_NOOP("VLAppDelegate", "Normal"),
    QT_TRANSLATE_NOOP("VLAppDelegate", "Stop"),
    QT_TRANSLATE_NOOP("VLAppDelegate", "Loop"),
    QT_TRANSLATE_NOOP("VLAppDelegate", "Time of day"),
    QT_TRANSLATE_NOOP("VLAppDelegate", "Wrong SMPTE Format"),
    kWrongFormat,
    QT_TRANSLATE_NOOP("VLAppDelegate", "use %1 fps"),
    QT_TRANSLATE_NOOP("VLAppDelegate", "Cancel"),
    QT_TRANSLATE_NOOP("VLAppDelegate", "MIDI/MTC Loop detected!"),
    kLoop,
    QT_TRANSLATE_NOOP("VLAppDelegate", "Disable %1"),
    QT_TRANSLATE_NOOP("VLAppDelegate", "Proceed anyway"),
    QT_TRANSLATE_NOOP("VLAppDelegate", "Devices are running - Quit anyway?"),
    kQuit,
    QT_TRANSLATE_NOOP("VLAppDelegate", "Yes"),
    QT_TRANSLATE_NOOP("VLAppDelegate", "No"),
    QT_TRANSLATE_NOOP("VLAppDelegate", "change start time %1"),
    QT_TRANSLATE_NOOP("VLAppDelegate", "insert %1 markers"),
    QT_TRANSLATE_NOOP("VLAppDelegate", "insert %1"),
    QT_TRANSLATE_NOOP("VLAppDelegate", "remove %1 markers"),
    QT_TRANSLATE_NOOP("VLAppDelegate", "remove %1"),
};

// With what stands for %1, %2 and so on captured in this order.
QRegularExpression patternOf(const QString& text) {
  static const QRegularExpression place("\\\\%\\d");
  return QRegularExpression(
      QRegularExpression::anchoredPattern(QRegularExpression::escape(text).replace(place, "(.*)")),
      QRegularExpression::DotMatchesEverythingOption);
}

}  // namespace

void VLTranslation::install(QObject& owner, const QLocale& locale) {
  loadTranslations();
  // Not a later one of the user's: English, which needs no file, may come before it.
  const QLocale language(locale.uiLanguages().value(0));
  const auto load = [&](const QString& name, const QString& folder) {
    auto translator = std::make_unique<QTranslator>(&owner);
    if (translator->load(language, name, "_", folder)) {
      QCoreApplication::installTranslator(translator.release());
    }
  };
  load("qtbase", QLibraryInfo::path(QLibraryInfo::TranslationsPath));  // of panels for files
  load("velor", ":/velor/i18n");
}

QString VLTranslation::text(std::string_view english) {
  const QString given = QString::fromUtf8(english.data(), static_cast<qsizetype>(english.size()));
  for (const char* each : kTexts) {
    const auto match = patternOf(each).match(given);
    if (!match.hasMatch()) {
      continue;
    }
    QString text = QCoreApplication::translate("VLAppDelegate", each);
    for (qsizetype i = text.size() - 2; i >= 0; --i) {
      if (text[i] == '%' && text[i + 1].isDigit()) {
        text.replace(i, 2, match.captured(text[i + 1].digitValue()));
      }
    }
    return text;
  }
  return given;
}

}  // namespace velor
