// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QValidator>
#include <cstdint>

namespace velor {

/// Between user bits and their eight hexadecimal digits. In a field it turns each keystroke
/// into eight digits: those that are typed push the first ones out. Queue: main.
class VLHexFormatter final : public QValidator {
  Q_OBJECT

 public:
  using QValidator::QValidator;

  static QString stringForObjectValue(std::uint32_t value);
  /// Of the last eight characters, without blanks and what stands around the digits; 0 of a
  /// text without any.
  static std::uint32_t getObjectValue(const QString& string);
  /// False: `newEditingString` is to replace it.
  static bool isPartialStringValid(const QString& partial, QString& newEditingString);

  State validate(QString& input, int& cursor) const override;
};

}  // namespace velor
