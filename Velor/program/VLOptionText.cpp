// SPDX-License-Identifier: MIT
#include "Velor/program/VLOptionText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "Velor/clock/VLClockStatus.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {
namespace {

template <class Value>
struct Named {
  const char* name;
  Value value;
};

constexpr std::array<Named<std::uint32_t>, 7> kFormats = {{{"23.98", kSMPTETimeType2398},
                                                           {"24", kSMPTETimeType24},
                                                           {"25", kSMPTETimeType25},
                                                           {"29.97", kSMPTETimeType2997},
                                                           {"29.97df", kSMPTETimeType2997Drop},
                                                           {"30", kSMPTETimeType30},
                                                           {"30df", kSMPTETimeType30Drop}}};

constexpr std::array<Named<audio::SampleEncoding>, 3> kEncodings = {
    {{"16", audio::SampleEncoding::int16},
     {"24", audio::SampleEncoding::int24},
     {"float", audio::SampleEncoding::float32}}};

constexpr std::array<Named<std::uint64_t>, 4> kModes = {{{"normal", VLPlayModeNormal},
                                                         {"stop", VLPlayModeStop},
                                                         {"loop", VLPlayModeLoop},
                                                         {"time-of-day", VLPlayModeTimeOfDay}}};

template <class Value, std::size_t N>
Expected<Value> valueNamed(const std::array<Named<Value>, N>& table, const std::string& name,
                           const char* kind) {
  std::string known;
  for (const auto& entry : table) {
    if (name == entry.name) {
      return entry.value;
    }
    known += std::string(known.empty() ? "" : ", ") + entry.name;
  }
  return failure("'" + name + "' is not a " + kind + "; expected one of " + known);
}

struct TimeDigits {
  unsigned hours = 0;
  unsigned minutes = 0;
  unsigned seconds = 0;
  unsigned frames = 0;
};

Expected<TimeDigits> timeDigits(const std::string& text) {
  TimeDigits digits;
  char separator = 0;
  int end = 0;
  const int found = std::sscanf(text.c_str(), "%2u:%2u:%2u%c%2u%n", &digits.hours, &digits.minutes,
                                &digits.seconds, &separator, &digits.frames, &end);
  if (found != 5 || static_cast<std::size_t>(end) != text.size() ||
      text.find_first_not_of("0123456789:;.") != std::string::npos ||
      (separator != ':' && separator != ';' && separator != '.')) {
    return failure("'" + text + "' is not a time; expected HH:MM:SS:FF");
  }
  return digits;
}

template <class Number>
Expected<Number> numberIn(const std::string& text, Number least, Number most, const char* kind) {
  Number value{};
  const bool hasPlus = text.size() > 1 && text[0] == '+' && text[1] != '-';
  const char* const last = text.data() + text.size();
  const auto [end, problem] = std::from_chars(text.data() + (hasPlus ? 1 : 0), last, value);
  if (problem == std::errc::invalid_argument || end != last || value != value) {
    return failure("'" + text + "' is not a " + kind);
  }
  char limits[64];
  std::snprintf(limits, sizeof limits, " (%.10g to %.10g)", static_cast<double>(least),
                static_cast<double>(most));
  if (problem != std::errc() || value < least || value > most) {
    return failure("'" + text + "' is out of range" + limits);
  }
  return value;
}

}  // namespace

Expected<> VLOptionText::checkTime(const std::string& text) {
  return timeDigits(text).map([](const TimeDigits&) {});
}

Expected<SMPTETime> VLOptionText::time(const std::string& text, std::uint32_t format) {
  const auto read = timeDigits(text);
  if (!read) {
    return tl::unexpected(read.error());
  }
  const TimeDigits& digits = *read;
  const auto framesPerSecond = static_cast<unsigned>(ltc_frames_per_second(format));
  if (digits.hours > 23 || digits.minutes > 59 || digits.seconds > 59 ||
      digits.frames >= framesPerSecond) {
    return failure("'" + text + "' is out of range (up to 23:59:59:" +
                   std::to_string(framesPerSecond - 1) + " at " + VLFormatName(format) + ")");
  }
  SMPTETime time{};
  time.mType = format;
  ltc_set_time(time, static_cast<int>(digits.hours), static_cast<int>(digits.minutes),
               static_cast<int>(digits.seconds), static_cast<int>(digits.frames));
  if (static_cast<unsigned>(time.mFrames) != digits.frames) {
    return failure("'" + text + "' does not exist at " + VLFormatName(format) +
                   ": drop-frame counting leaves it out");
  }
  return time;
}

Expected<float> VLOptionText::level(const std::string& text) {
  std::string number = text;
  const auto isLetter = [](char c, char capital) { return c == capital || c == capital + 32; };
  const bool hasUnit =
      number.size() > 2 && isLetter(number[number.size() - 2], 'D') && isLetter(number.back(), 'B');
  if (hasUnit) {
    number.resize(number.size() - 2);
  }
  double decibels = 0;
  char rest = 0;
  // Digits only, since what reads numbers also reads "inf" and "0x1".
  if (!hasUnit || number.find_first_not_of("+-.0123456789 ") != std::string::npos ||
      std::sscanf(number.c_str(), "%lf %c", &decibels, &rest) != 1) {
    return failure("'" + text + "' is not a level; expected for example -12dB");
  }
  if (decibels > 0) {
    return failure("'" + text + "' is above full scale, 0dB");
  }
  return static_cast<float>(std::pow(10.0, decibels / 20.0));
}

Expected<std::array<std::uint8_t, kLTCUserBytes>> VLOptionText::userBits(const std::string& text) {
  constexpr std::size_t kDigits = 2 * kLTCUserBytes;
  if (text.size() != kDigits ||
      text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
    return failure("'" + text + "' is not a set of user bits; expected eight hexadecimal digits");
  }
  std::array<std::uint8_t, kLTCUserBytes> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] =
        static_cast<std::uint8_t>(std::stoi(text.substr(kDigits - 2 * (i + 1), 2), nullptr, 16));
  }
  return bytes;
}

Expected<double> VLOptionText::number(const std::string& text, double least, double most,
                                      const char* kind) {
  return numberIn(text, least, most, kind);
}

Expected<int> VLOptionText::wholeNumber(const std::string& text, int least, int most,
                                        const char* kind) {
  return numberIn(text, least, most, kind);
}

Expected<std::uint32_t> VLOptionText::format(const std::string& text) {
  return valueNamed(kFormats, text, "format");
}

const char* VLFormatName(std::uint32_t format) {
  const auto entry = std::find_if(kFormats.begin(), kFormats.end(),
                                  [format](const auto& each) { return each.value == format; });
  return entry != kFormats.end() ? entry->name : "?";
}

Expected<audio::SampleEncoding> VLOptionText::encoding(const std::string& text) {
  return valueNamed(kEncodings, text, "sample size");
}

Expected<std::uint64_t> VLOptionText::playMode(const std::string& text) {
  return valueNamed(kModes, text, "play mode");
}

}  // namespace velor
