// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "kvtimecode/SMPTETime.h"

// The text forms of a time and of a format. Any thread. Realtime-safe: no.
namespace velor {

/// For display: "01:02:03:04", with ';' before the frames in a drop format, or the
/// text of invalidSMPTEString.
std::string stringFromSMPTETime(const SMPTETime& time);

/// For the clipboard: "[01:02:03:04][1]", the display text and the format code.
std::string encodeableStringFromSMPTETime(const SMPTETime& time);

/// The name that people know: "29.97 Drop"; "unknown format 7" for what is none.
std::string stringFromSMPTEFormat(std::uint32_t format);

/// The text of an unknown time: "--:--:--:--".
const std::string& invalidSMPTEString();

/// The first time in the text, (\d+):(\d+):(\d+):(\d+) or, in a drop format, with ';'
/// before the frames; what stands around it does not matter. The record becomes those
/// digits, each cut to 16 bits, in the given format, and valid. Nothing is checked or
/// normalised, the format neither: 99:99:99:99 is taken. False, and an untouched
/// record, when there is no time.
bool parseSmpteTime(std::string_view string, SMPTETime& time, std::uint32_t format);

/// A time as the clipboard holds it, the first "[...][d]" in the text; as parseSmpteTime
/// for what is in the first brackets, in the format of code d. The code is one digit:
/// the text of a time in 23.98, whose code is 11, does not come back.
bool parseEncodedSmpteTime(std::string_view string, SMPTETime& time);

}  // namespace velor
