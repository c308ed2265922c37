// SPDX-License-Identifier: MIT
#include "Velor/program/VLAlertAnswers.h"

namespace velor {

std::optional<VLAlertAnswers::Answer> VLAlertAnswers::answerTo(const VLAlert& alert) const {
  if (alert.kind == VLAlert::Kind::wrongFormat && mTakesFormat) {
    return Answer{true, "MTC at " + alert.subject + ": changed the clock's format"};
  }
  if (alert.kind == VLAlert::Kind::mtcLoop && mIgnoresLoops) {
    return Answer{false, "MTC loop " + alert.subject + ": still sending"};
  }
  return std::nullopt;
}

}  // namespace velor
