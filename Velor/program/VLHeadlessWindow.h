// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "Velor/app/VLMainWindowOutlet.h"
#include "Velor/program/VLAlertAnswers.h"

namespace velor {

/// Stands in for the window and answers its questions: as the options say, else so that no
/// cue is lost. Reports each answer in the status line, on standard error and in the log.
class VLHeadlessWindow final : public VLMainWindowOutlet {
 public:
  /// Gets a short text before standard error gets the whole.
  using Notice = std::function<void(const std::string& text)>;

  using MakeMediaWindow = std::function<std::shared_ptr<VLMediaPlaybackWindowOutlet>(
      const std::shared_ptr<VLMediaPlaybackWindowController>& controller)>;

  /// `makeMediaWindow`: none for clips that are heard and not seen.
  VLHeadlessWindow(VLAlertAnswers answers, Notice notice, MakeMediaWindow makeMediaWindow)
      : mAnswers(answers),
        mNotice(std::move(notice)),
        mMakeMediaWindow(std::move(makeMediaWindow)) {}

  /// The answer comes by the main queue.
  void presentAlert(const VLAlert& alert, VLAlert::Answer answer) override;
  void presentError(const std::string& text) override;
  std::shared_ptr<VLMediaPlaybackWindowOutlet> makeMediaPlaybackWindow(
      const std::shared_ptr<VLMediaPlaybackWindowController>& controller) override;
  // Without a window no file is chosen.
  void beginSavePanel(std::string_view /*fileType*/, FileChosen /*chosen*/) override {}
  void beginOpenPanel(std::string_view /*fileType*/, FileChosen /*chosen*/) override {}
  /// Ends the main loop.
  void replyToApplicationShouldTerminate(bool terminate) override;

 private:
  struct Decision {
    bool isDefault;      // the answer
    std::string text;    // what was done
    const char* advice;  // the option that decides otherwise
  };
  Decision decide(const VLAlert& alert) const;

  const VLAlertAnswers mAnswers;
  const Notice mNotice;
  const MakeMediaWindow mMakeMediaWindow;
};

}  // namespace velor
