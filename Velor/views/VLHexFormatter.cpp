// SPDX-License-Identifier: MIT
#include "Velor/views/VLHexFormatter.h"

#include <algorithm>
#include <cstdlib>
#include <string>

namespace velor {
namespace {

constexpr int kDigits = 8;
constexpr int kBase = 16;
constexpr const char* kHexCharSet = "0123456789abcdefABCDEF";

}  // namespace

QString VLHexFormatter::stringForObjectValue(std::uint32_t value) {
  return QStringLiteral("%1").arg(value, kDigits, kBase, QLatin1Char('0'));
}

std::uint32_t VLHexFormatter::getObjectValue(const QString& string) {
  std::string text = string.toStdString();
  std::erase(text, ' ');
  const auto first = text.find_first_of(kHexCharSet);
  if (first == std::string::npos) {
    return 0;
  }
  text = text.substr(first, text.find_last_of(kHexCharSet) + 1 - first);
  if (text.size() > kDigits) {
    text.erase(0, text.size() - kDigits);
  }
  return static_cast<std::uint32_t>(std::strtol(text.c_str(), nullptr, kBase));
}

bool VLHexFormatter::isPartialStringValid(const QString& partial, QString& newEditingString) {
  newEditingString = stringForObjectValue(getObjectValue(partial));
  return newEditingString == partial;
}

// The cursor keeps its place from the right, where the digits come in.
QValidator::State VLHexFormatter::validate(QString& input, int& cursor) const {
  QString digits;
  if (!isPartialStringValid(input, digits)) {
    cursor = std::max(0, kDigits - static_cast<int>(input.size()) + cursor);
    input = digits;
  }
  return Acceptable;
}

}  // namespace velor
