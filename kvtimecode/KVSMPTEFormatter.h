// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "kvtimecode/KVSMPTETime.h"

namespace velor {

/// Turns a time into the text of a field and back: "01:02:03.04", or "01:02:03;04" in
/// a drop format. Belongs to one thread. Realtime-safe: no.
class KVSMPTEFormatter {
 public:
  /// The code of the format that texts are read in; 24 at first.
  std::uint32_t format() const noexcept { return _format; }
  void setFormat(std::uint32_t format) noexcept { _format = format; }

  /// The digits as they are, valid or not; "00:00:00.00" for null. The format of the
  /// time becomes the formatter's: the text that comes back is read in it.
  std::string stringForObjectValue(const KVSMPTETime* value);

  /// Makes an object of the first time in the text, with the format's divider, or any
  /// character in its place where that is '.'. Numbers that are too large carry over, each
  /// in its turn. False, and an untouched object, without a time. The description is
  /// never written. Asserts the format when there is a time.
  bool getObjectValue(std::shared_ptr<KVSMPTETime>& object, std::string_view string,
                      std::string* errorDescription) const;

  /// The regular expression of the texts that are taken: hours, minutes, seconds, frames.
  static std::string regexPatternForFormat(std::uint32_t format);

  /// The divider before the frames: ";" or ".".
  static std::string frameDividerForFormat(std::uint32_t format);

 private:
  std::uint32_t _format = kSMPTETimeType24;
};

}  // namespace velor
