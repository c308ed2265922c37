// SPDX-License-Identifier: MIT
#pragma once

#include <QCoreApplication>
#include <filesystem>
#include <string_view>

#include "Velor/app/VLMainWindowOutlet.h"
#include "Velor/views/VLSheets.h"

class QFileDialog;

namespace velor {

/// The panels that ask for a document or a clip, as sheets. Queue: main.
class VLFilePanels {
  Q_DECLARE_TR_FUNCTIONS(VLFilePanels)

 public:
  using FileChosen = VLMainWindowOutlet::FileChosen;

  VLFilePanels(QWidget& window, VLSheets& sheets) : mWindow(window), mSheets(sheets) {}

  /// Asks before a file is replaced.
  void beginSave(std::string_view fileType, FileChosen chosen);
  void beginOpen(std::string_view fileType, FileChosen chosen);
  /// Of any format.
  void beginOpenClip(FileChosen chosen);

 private:
  static VLSheetText replaceText(const std::filesystem::path& path);
  QFileDialog& makePanel(const QString& title, bool isSave);
  void begin(QFileDialog& panel, FileChosen chosen);
  void beginDocument(std::string_view fileType, bool isSave, FileChosen chosen);

  QWidget& mWindow;
  VLSheets& mSheets;
};

}  // namespace velor
