// SPDX-License-Identifier: MIT
#include "Velor/views/VLFilePanels.h"

#include <QFileDialog>
#include <utility>

namespace velor {
namespace {

std::filesystem::path pathOf(const QString& file) {
  return {QFile::encodeName(file).toStdString()};
}

}  // namespace

VLSheetText VLFilePanels::replaceText(const std::filesystem::path& path) {
  return {tr("Replace the document?").toStdString(),
          tr("\"%1\" exists already.")
              .arg(QString::fromStdString(path.filename().string()))
              .toStdString(),
          tr("Replace").toStdString(), tr("Cancel").toStdString()};
}

void VLFilePanels::begin(std::string_view fileType, bool isSave, FileChosen chosen) {
  const QString suffix =
      QString::fromUtf8(fileType.data(), static_cast<qsizetype>(fileType.size()));
  auto* panel = new QFileDialog(&mWindow, isSave ? tr("Save") : tr("Open"));
  panel->setAcceptMode(isSave ? QFileDialog::AcceptSave : QFileDialog::AcceptOpen);
  // With this and without its own questions, the panel runs no loop of its own.
  panel->setFileMode(QFileDialog::AnyFile);
  panel->setOption(QFileDialog::DontConfirmOverwrite);
  panel->setOption(QFileDialog::ReadOnly, !isSave);
  panel->setDefaultSuffix(suffix);
  panel->setNameFilters({tr("Velor documents") + " (*." + suffix + ")"});
  mSheets.begin(*panel, [panel, chosen = std::move(chosen)](bool isAccepted) {
    const QStringList files = panel->selectedFiles();
    chosen(isAccepted && !files.empty() ? pathOf(files.front()) : std::filesystem::path());
  });
}

void VLFilePanels::beginOpen(std::string_view fileType, FileChosen chosen) {
  begin(fileType, false, std::move(chosen));
}

void VLFilePanels::beginSave(std::string_view fileType, FileChosen chosen) {
  begin(fileType, true, [this, chosen = std::move(chosen)](const std::filesystem::path& path) {
    std::error_code ignored;
    if (path.empty() || !std::filesystem::exists(path, ignored)) {
      chosen(path);
      return;
    }
    mSheets.ask(replaceText(path), [path, chosen](bool isDefault) {
      chosen(isDefault ? path : std::filesystem::path());
    });
  });
}

}  // namespace velor
