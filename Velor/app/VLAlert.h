// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

namespace velor {

/// A question to the user with two answers, or a notice that has only the first one.
struct VLAlert {
  enum class Kind { wrongFormat, mtcLoop, devicesAreRunning, featureNotAvailable };

  Kind kind;
  std::string title;
  std::string subject;  // what it is about, where there is no room for the message
  std::string message;
  std::string defaultButton;
  std::string otherButton;

  /// True for the default button.
  using Answer = std::function<void(bool isDefault)>;
};

}  // namespace velor
