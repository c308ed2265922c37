// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

#include "kvtimecode/SMPTETime.h"

class QWidget;

namespace velor {

/// Stands behind a text that is edited as a time: gives its format and takes each change.
/// Queue: main.
class VLTimecodeTypeProvider {
 public:
  virtual ~VLTimecodeTypeProvider() = default;

  /// A format code.
  virtual std::uint32_t timecodeFormatForView(const QWidget& view) const = 0;
  virtual void setSmpteTime(const SMPTETime& time) = 0;
};

}  // namespace velor
