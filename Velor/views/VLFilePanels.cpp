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

// In this file mode and without its own questions, the panel runs no loop of its own.
QFileDialog& VLFilePanels::makePanel(const QString& title, bool isSave) {
  auto* panel = new QFileDialog(&mWindow, title);
  panel->setAcceptMode(isSave ? QFileDialog::AcceptSave : QFileDialog::AcceptOpen);
  panel->setFileMode(QFileDialog::AnyFile);
  panel->setOption(QFileDialog::DontConfirmOverwrite);
  panel->setOption(QFileDialog::ReadOnly, !isSave);
  return *panel;
}

void VLFilePanels::begin(QFileDialog& panel, FileChosen chosen) {
  mSheets.begin(panel, [&panel, chosen = std::move(chosen)](bool isAccepted) {
    const QStringList files = panel.selectedFiles();
    chosen(isAccepted && !files.empty() ? pathOf(files.front()) : std::filesystem::path());
  });
}

void VLFilePanels::beginDocument(std::string_view fileType, bool isSave, FileChosen chosen) {
  const QString suffix =
      QString::fromUtf8(fileType.data(), static_cast<qsizetype>(fileType.size()));
  QFileDialog& panel = makePanel(isSave ? tr("Save") : tr("Open"), isSave);
  panel.setDefaultSuffix(suffix);
  panel.setNameFilters({tr("Velor documents") + " (*." + suffix + ")"});
  begin(panel, std::move(chosen));
}

void VLFilePanels::beginOpenClip(FileChosen chosen) {
  begin(makePanel(tr("Open Clip"), false), std::move(chosen));
}

void VLFilePanels::beginOpen(std::string_view fileType, FileChosen chosen) {
  beginDocument(fileType, false, std::move(chosen));
}

void VLFilePanels::beginSave(std::string_view fileType, FileChosen chosen) {
  beginDocument(fileType, true,
                [this, chosen = std::move(chosen)](const std::filesystem::path& path) {
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
