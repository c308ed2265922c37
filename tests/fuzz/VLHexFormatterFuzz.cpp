// SPDX-License-Identifier: MIT
// Any text in a field of user bits: it becomes eight digits, which stay as they are; a digit
// that is typed after them pushes the first one out.
//
// The input is the place of the cursor and the text in UTF-16, sound or not.
#include "Velor/views/VLHexFormatter.h"

#include <QString>
#include <algorithm>
#include <charconv>
#include <cstring>
#include <string>
#include <vector>

#include "tests/fuzz/FuzzTarget.h"

namespace {

using velor::VLHexFormatter;

bool isDigit(QChar each) {
  return QStringLiteral("0123456789abcdefABCDEF").contains(each);
}

// What a field shows of the text.
QString shown(QString text, int cursor) {
  require(VLHexFormatter().validate(text, cursor) == QValidator::Acceptable, "any text is taken");
  require(text.size() == 8 && std::all_of(text.begin(), text.end(), &isDigit), "eight digits");
  require(cursor >= 0 && cursor <= text.size(), "the cursor is in the text");
  return text;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 + sizeof(char16_t)) {
    return 0;
  }
  std::vector<char16_t> units((size - 1) / sizeof(char16_t));
  std::memcpy(units.data(), data + 1, units.size() * sizeof(char16_t));
  const QString text = QString::fromUtf16(units.data(), static_cast<qsizetype>(units.size()));
  const int cursor = data[0] % (static_cast<int>(text.size()) + 1);

  const QString digits = shown(text, cursor);
  require(shown(digits, cursor % 9) == digits, "digits stay as they are");
  require(shown(digits + "7", 9) == digits.mid(1) + "7", "a digit pushes the first one out");

  QString all = text;
  all.remove(' ');
  if (!all.isEmpty() && std::all_of(all.begin(), all.end(), &isDigit)) {
    const std::string last = all.right(8).toStdString();
    std::uint32_t value = 0;
    std::from_chars(last.data(), last.data() + last.size(), value, 16);
    require(VLHexFormatter::getObjectValue(text) == value, "the last eight digits are the value");
  }
  return 0;
}
