// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>

#include "Velor/app/VLAlert.h"
#include "Velor/program/VLOptions.h"

namespace velor {

/// The questions that the options answer in place of the user.
class VLAlertAnswers {
 public:
  struct Answer {
    bool isDefault;
    std::string text;  ///< reports what was done
  };

  explicit VLAlertAnswers(const VLOptions& options)
      : mTakesFormat(options.autoFormat), mIgnoresLoops(options.ignoreLoops) {}

  /// None: the options leave it open.
  std::optional<Answer> answerTo(const VLAlert& alert) const;

 private:
  const bool mTakesFormat;   // whatever format comes in, instead of disarming
  const bool mIgnoresLoops;  // instead of switching the destination off
};

}  // namespace velor
