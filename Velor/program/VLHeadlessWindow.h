// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <utility>

#include "Velor/app/VLMainWindowOutlet.h"

namespace velor {

/// Stands for the window where there is nobody to answer: each question gets the
/// answer by which no cue is lost, and the log and standard error tell of it.
class VLHeadlessWindow final : public VLMainWindowOutlet {
 public:
  struct Answers {
    bool takesFormat = false;   ///< whatever format comes in, instead of disarming
    bool ignoresLoops = false;  ///< instead of switching the destination off
  };
  /// Gets a short text before standard error gets the whole.
  using Notice = std::function<void(const std::string& text)>;

  VLHeadlessWindow(Answers answers, Notice notice)
      : mAnswers(answers), mNotice(std::move(notice)) {}

  /// The answer comes by the main queue.
  void presentAlert(const VLAlert& alert, VLAlert::Answer answer) override;
  void presentError(const std::string& text) override;
  // There is nobody to choose a file.
  void beginSavePanel(std::string_view /*fileType*/, FileChosen /*chosen*/) override {}
  void beginOpenPanel(std::string_view /*fileType*/, FileChosen /*chosen*/) override {}
  /// Ends the main loop.
  void replyToApplicationShouldTerminate(bool terminate) override;

 private:
  bool answerTo(VLAlert::Kind kind) const;

  const Answers mAnswers;
  const Notice mNotice;
};

}  // namespace velor
