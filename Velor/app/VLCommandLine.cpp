// SPDX-License-Identifier: MIT
#include "Velor/app/VLCommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <initializer_list>
#include <stdexcept>

#include "Velor/app/VLPortNames.h"
#include "Velor/clock/VLClockStatus.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/audio/file/SoundFileWriter.h"

namespace velor {
namespace {

constexpr int kUsageStatus = 2;
constexpr double kMaxRatePercent = 2.0;
constexpr int kMaxPort = 65535;
constexpr int kMaxFreewheel = 86400;  // seconds

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

constexpr std::array<Named<audio::SampleEncoding>, 3> kBits = {
    {{"16", audio::SampleEncoding::int16},
     {"24", audio::SampleEncoding::int24},
     {"float", audio::SampleEncoding::float32}}};
constexpr double kMaxDuration = 7 * 24 * 3600.0;

constexpr std::array<Named<std::uint64_t>, 4> kModes = {{{"normal", VLPlayModeNormal},
                                                         {"stop", VLPlayModeStop},
                                                         {"loop", VLPlayModeLoop},
                                                         {"time-of-day", VLPlayModeTimeOfDay}}};

class UsageError : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The value of a name; an unknown one is refused with the names that there are.
template <class Value, std::size_t N>
Value valueNamed(const std::array<Named<Value>, N>& table, const std::string& name,
                 const char* option) {
  std::string known;
  for (const auto& entry : table) {
    if (name == entry.name) {
      return entry.value;
    }
    known += std::string(known.empty() ? "" : ", ") + entry.name;
  }
  throw UsageError(std::string(option) + ": unknown '" + name + "' (one of " + known + ")");
}

// The value, or the error with the option.
template <class Value>
Value valueOf(const std::optional<Value>& value, const std::string& error, const char* option) {
  if (!value) {
    throw UsageError(std::string(option) + ": " + error);
  }
  return *value;
}

SMPTETime timeOption(const std::string& text, std::uint32_t format, const char* option) {
  std::string error;
  return valueOf(VLTimeFromText(text, format, error), error, option);
}

// An offset may be negative: it wraps around the day, as the clock's sums do.
SMPTETime offsetOption(const std::string& text, std::uint32_t format) {
  const bool negative = !text.empty() && text.front() == '-';
  SMPTETime offset = timeOption(negative ? text.substr(1) : text, format, "--offset");
  if (negative) {
    SMPTETime zero = ltc_smptetime_from_frame_number(0, format);
    ltc_subtract(zero, offset);
    offset = zero;
  }
  return offset;
}

void refuseIf(bool condition, const std::string& message) {
  if (condition) {
    throw UsageError(message);
  }
}

// -1 stands for no end.
int secondsOption(const std::string& text, const char* option) {
  int seconds = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  refuseIf(failure != std::errc() || end != text.data() + text.size(),
           std::string(option) + ": '" + text + "' is not a whole number of seconds");
  refuseIf(seconds < -1 || seconds > kMaxFreewheel,
           std::string(option) + ": out of range (-1 to " + std::to_string(kMaxFreewheel) + ")");
  return seconds;
}

// `mode` is null when none is given.
std::optional<std::uint64_t> playModeOf(const std::string* mode, bool hasStop, bool hasLoop,
                                        bool hasStart, bool hasPreroll) {
  refuseIf(hasStop && hasLoop, "--stop-at and --loop contradict each other");
  if (mode == nullptr) {
    return hasStop   ? std::optional(VLPlayModeStop)
           : hasLoop ? std::optional(VLPlayModeLoop)
                     : std::nullopt;
  }
  const std::uint64_t value = valueNamed(kModes, *mode, "--mode");
  refuseIf(hasStop && value != VLPlayModeStop, "--stop-at contradicts --mode " + *mode);
  refuseIf(hasLoop && value != VLPlayModeLoop, "--loop contradicts --mode " + *mode);
  refuseIf(hasStart && value == VLPlayModeTimeOfDay, "--start contradicts --mode time-of-day");
  refuseIf(hasPreroll && value == VLPlayModeTimeOfDay, "--preroll contradicts --mode time-of-day");
  return value;
}

// The words of `velor encode`.
struct EncodeWords {
  std::string format = "25";
  std::string start = "00:00:00:00";
  double duration = 0;
  int rate = 48000;
  std::string level = "-12dB";
  std::string userBits = "00000000";
  std::string bits = "16";
  std::string file;
};

CLI::App& addEncode(CLI::App& app, EncodeWords& words) {
  CLI::App& encode = *app.add_subcommand("encode", "Write LTC to a sound file");
  encode.add_option("--format", words.format, "23.98, 24, 25, 29.97, 29.97df, 30 or 30df")
      ->capture_default_str();
  encode.add_option("--start", words.start, "The first frame, HH:MM:SS:FF")->capture_default_str();
  encode.add_option("--duration", words.duration, "Seconds; the last frame may be cut")->required();
  encode.add_option("--rate", words.rate, "Samples a second")->capture_default_str();
  encode.add_option("--level", words.level, "Up to 0dB, which is full scale")
      ->capture_default_str();
  encode
      .add_option("--user-bits", words.userBits, "Eight hexadecimal digits, the first group last")
      ->capture_default_str();
  encode.add_option("--bits", words.bits, "16, 24 or float")->capture_default_str();
  encode.add_option("FILE", words.file, "A name that ends with .wav, .w64 or .flac")->required();
  return encode;
}

VLEncodeOptions encodeOptions(const EncodeWords& words) {
  VLEncodeOptions options;
  std::string error;
  options.file = words.file;
  options.start =
      timeOption(words.start, valueNamed(kFormats, words.format, "--format"), "--start");
  options.duration = words.duration;
  refuseIf(!(words.duration > 0 && words.duration <= kMaxDuration),
           "--duration: out of range (above 0, up to 604800)");
  options.level = valueOf(VLLevelFromText(words.level, error), error, "--level");
  options.userBits = valueOf(VLUserBitsFromText(words.userBits, error), error, "--user-bits");
  options.sound.sampleRate = words.rate;
  refuseIf(words.rate < VLEncodeOptions::kMinSampleRate ||
               words.rate > audio::SoundFormat::kMaxSampleRate,
           "--rate: out of range (" + std::to_string(VLEncodeOptions::kMinSampleRate) + " to " +
               std::to_string(audio::SoundFormat::kMaxSampleRate) + ")");
  options.sound.encoding = valueNamed(kBits, words.bits, "--bits");
  const std::string refusal =
      audio::SoundFileWriter::refusal(words.file, options.sound, VLEncodeLength(options));
  refuseIf(!refusal.empty(), refusal);
  refuseIf(VLEncodeLength(options) == 0, "--duration: it is shorter than half a sample");
  refuseIf(audio::SoundFileWriter::isSilent(options.level, options.sound.encoding),
           "--level: '" + words.level + "' is silence at --bits " + words.bits);
  return options;
}

// The words of `velor decode`.
struct DecodeWords {
  VLDecodeOptions options;
  bool csv = false;
  bool json = false;
};

CLI::App& addDecode(CLI::App& app, DecodeWords& words) {
  CLI::App& decode = *app.add_subcommand("decode", "Print the LTC of a sound file, frame by frame");
  decode.add_option("--channel", words.options.channel, "The channel that holds it, from 1 on")
      ->capture_default_str();
  decode.add_flag("--csv", words.csv, "Print comma-separated values, with a head");
  decode.add_flag("--json", words.json, "Print an object a line");
  decode.add_option("FILE", words.options.file, "A WAV, W64 or FLAC file")->required();
  return decode;
}

VLDecodeOptions decodeOptions(const DecodeWords& words) {
  VLDecodeOptions options = words.options;
  refuseIf(words.csv && words.json, "--csv and --json contradict each other");
  refuseIf(options.channel < 1, "--channel: channels count from 1 on");
  options.form = words.csv    ? VLDecodeOptions::Form::csv
                 : words.json ? VLDecodeOptions::Form::json
                              : VLDecodeOptions::Form::text;
  return options;
}

// An empty word would be read as the number 0.
void refuseEmptyNumbers(const CLI::App& app, std::initializer_list<const char*> options) {
  for (const char* option : options) {
    const auto& words = app.get_option(option)->results();
    refuseIf(!words.empty() && words.front().empty(), std::string(option) + ": '' is no number");
  }
}

// The words of the OSC options.
struct OSCWords {
  int port = 0;
  std::vector<std::string> allow;
  std::vector<std::string> targets;
  std::vector<std::string> forget;
};

void addOSC(CLI::App& app, OSCWords& words) {
  app.add_option("--osc-port", words.port, "Take commands by OSC at this UDP port, 1 to 65535");
  app.add_option("--osc-allow", words.allow,
                 "Obey OSC commands from this address as well, from now on; may be repeated")
      ->type_name("ADDRESS")
      ->allow_extra_args(false);
  app.add_option(
         "--osc-target", words.targets,
         "Tell the clock's time and state there by OSC as well, from now on; may be repeated")
      ->type_name("HOST:PORT")
      ->allow_extra_args(false);
  app.add_option("--osc-forget", words.forget,
                 "Remove a saved OSC host or target from its list; may be repeated")
      ->type_name("ADDRESS|HOST:PORT")
      ->allow_extra_args(false);
}

VLOSCOptions oscOptions(const CLI::App& app, const OSCWords& words) {
  VLOSCOptions options;
  std::string error;
  if (app.count("--osc-port") > 0) {
    refuseIf(words.port < 1 || words.port > kMaxPort, "--osc-port: out of range (1 to 65535)");
    options.port = static_cast<std::uint16_t>(words.port);
  }
  refuseIf(!words.allow.empty() && !options.port, "--osc-allow needs --osc-port");
  for (const std::string& word : words.allow) {
    options.allow.push_back(valueOf(VLHostAddressFromText(word, error), error, "--osc-allow"));
  }
  for (const std::string& word : words.targets) {
    options.targets.push_back(valueOf(VLOSCTargetFromText(word, error), error, "--osc-target"));
  }
  for (const std::string& word : words.forget) {
    const bool isRead = VLOSCForgetFromText(word, options, error);
    refuseIf(!isRead, "--osc-forget: " + error);
  }
  return options;
}

// Beside a command, which has options of its own, or beside the one option that goes with
// no other.
void refuseOthers(const CLI::App& app, const std::string& one, const std::string& other = "") {
  for (const CLI::Option* option : app.get_options()) {
    refuseIf(option->count() > 0 && option->get_name() != one && option->get_name() != other,
             option->get_name() + " does not go with '" + one + "'");
  }
}

// A channel that is missing may appear, a word without a channel names none.
void refuseWithoutChannel(const std::string& text, const char* option) {
  const std::size_t colon = text.rfind(':');
  refuseIf(colon == std::string::npos || colon == 0 || colon + 1 == text.size(),
           std::string(option) + ": '" + text + "' is not a DEVICE:CHANNEL");
}

VLCommandLine refusal(const std::string& error) {
  VLCommandLine result;
  result.exitStatus = kUsageStatus;
  result.output = "velor: " + VLPrintable(error) + "\n";
  return result;
}

}  // namespace

std::optional<float> VLLevelFromText(const std::string& text, std::string& error) {
  std::string number = text;
  const auto isLetter = [](char c, char capital) { return c == capital || c == capital + 32; };
  const bool hasUnit =
      number.size() > 2 && isLetter(number[number.size() - 2], 'D') && isLetter(number.back(), 'B');
  double decibels = 0;
  char rest = 0;
  if (hasUnit) {
    number.resize(number.size() - 2);
  }
  // Digits only, since what reads numbers also reads "inf" and "0x1".
  if (!hasUnit || number.find_first_not_of("+-.0123456789 ") != std::string::npos ||
      std::sscanf(number.c_str(), "%lf %c", &decibels, &rest) != 1) {
    error = "'" + text + "' is no level (-12dB for instance)";
    return std::nullopt;
  }
  if (decibels > 0) {
    error = "'" + text + "' is above full scale (0dB)";
    return std::nullopt;
  }
  return static_cast<float>(std::pow(10.0, decibels / 20.0));
}

std::optional<std::array<std::uint8_t, kLTCUserBytes>> VLUserBitsFromText(const std::string& text,
                                                                          std::string& error) {
  constexpr std::size_t kDigits = 2 * kLTCUserBytes;
  if (text.size() != kDigits ||
      text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
    error = "'" + text + "' are no user bits (eight hexadecimal digits)";
    return std::nullopt;
  }
  std::array<std::uint8_t, kLTCUserBytes> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] =
        static_cast<std::uint8_t>(std::stoi(text.substr(kDigits - 2 * (i + 1), 2), nullptr, 16));
  }
  return bytes;
}

const char* VLFormatName(std::uint32_t format) {
  const auto entry = std::find_if(kFormats.begin(), kFormats.end(),
                                  [format](const auto& each) { return each.value == format; });
  return entry != kFormats.end() ? entry->name : "?";
}

std::optional<SMPTETime> VLTimeFromText(const std::string& text, std::uint32_t format,
                                        std::string& error) {
  unsigned hours = 0;
  unsigned minutes = 0;
  unsigned seconds = 0;
  unsigned frames = 0;
  char separator = 0;
  int end = 0;
  const int found = std::sscanf(text.c_str(), "%2u:%2u:%2u%c%2u%n", &hours, &minutes, &seconds,
                                &separator, &frames, &end);
  const bool onlyDigits = std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= '0' && c <= '9') || c == ':' || c == ';' || c == '.';
  });
  if (found != 5 || static_cast<std::size_t>(end) != text.size() || !onlyDigits ||
      (separator != ':' && separator != ';' && separator != '.')) {
    error = "'" + text + "' is no time (HH:MM:SS:FF)";
    return std::nullopt;
  }
  const auto framesPerSecond = static_cast<unsigned>(ltc_frames_per_second(format));
  if (hours > 23 || minutes > 59 || seconds > 59 || frames >= framesPerSecond) {
    error = "'" + text +
            "' is out of range (up to 23:59:59:" + std::to_string(framesPerSecond - 1) + " at " +
            VLFormatName(format) + ")";
    return std::nullopt;
  }
  SMPTETime time{};
  time.mType = format;
  ltc_set_time(time, static_cast<int>(hours), static_cast<int>(minutes), static_cast<int>(seconds),
               static_cast<int>(frames));
  if (static_cast<unsigned>(time.mFrames) != frames) {
    error = "'" + text + "' does not exist at " + VLFormatName(format) +
            ": drop-frame counting leaves it out";
    return std::nullopt;
  }
  return time;
}

std::optional<VLTimes> VLTimesFromWords(const VLTimeWords& words, std::uint32_t format,
                                        std::string& error) {
  try {
    VLTimes times;
    if (words.start) {
      times.start = timeOption(*words.start, format, "--start");
    }
    if (words.offset) {
      times.offset = offsetOption(*words.offset, format);
    }
    if (words.stopAt) {
      times.stopAt = timeOption(*words.stopAt, format, "--stop-at");
    }
    if (words.loop) {
      times.loop = {timeOption(words.loop->first, format, "--loop"),
                    timeOption(words.loop->second, format, "--loop")};
      refuseIf(ltc_compare(times.loop->first, times.loop->second) != -1,
               "--loop: it must end after it starts");
    }
    return times;
  } catch (const UsageError& refused) {
    error = refused.what();
    return std::nullopt;
  }
}

VLCommandLine VLParseCommandLine(const std::vector<std::string>& arguments) {
  VLOptions options;
  std::string format;
  std::string mode;
  std::vector<std::string> loop;
  double preroll = 0;
  bool isExactDrop = false;
  bool isNoExactDrop = false;
  std::string freewheel;
  std::optional<std::string> ltcLevel;
  std::optional<std::string> ltcUserBits;

  CLI::App app{"Velor: timecode for stage, studio and installation work"};
  app.name("velor");
  app.set_version_flag("--version", std::string("velor ") + VELOR_VERSION);
  app.add_flag("--headless", options.headless, "Run without a window, until SIGINT or SIGTERM");
  app.add_flag("--list", options.list,
               "Print MIDI sources and destinations with their ids, and audio devices with their "
               "channels");
  app.add_option("FILE", options.file,
                 "A document to open; without one, the state that the last run left");
  std::string inspected;
  app.add_option("--inspect", inspected, "Print what a document says, and what is wrong with it")
      ->type_name("FILE");
  app.add_flag("--recover", options.recover,
               "Open what a run that was cut off has left of its state");
  app.add_flag("--fresh", options.fresh, "Start without the state of the last run");
  app.add_flag("--keep", options.keep,
               "Save the devices, destinations, OSC port, hosts and targets that options add");
  app.add_flag("--wait", options.wait,
               "Start without a named port or device that is missing; use it when it appears");
  app.add_option("--format", format,
                 "23.98, 24, 25, 29.97, 29.97df, 30 or 30df; else that of the document, or 25");
  auto* exactDropOption =
      app.add_flag("--exact-drop", isExactDrop, "Send exact drop-frame numbers to MTC and LTC");
  app.add_flag("--no-exact-drop", isNoExactDrop, "Take back a saved --exact-drop")
      ->excludes(exactDropOption);
  app.add_option("--start", options.times.start, "The time to start from, HH:MM:SS:FF");
  app.add_flag("--play", options.play, "Start the clock");
  app.add_option("--mtc-out", options.mtcOut,
                 "Send MTC to this MIDI destination: its display name, its full port name or its "
                 "id; may be repeated")
      ->allow_extra_args(false);
  app.add_option("--sync-source", options.syncSource,
                 "Read MTC from this MIDI source, named as for --mtc-out; also that of --ltc-in");
  app.add_flag("--arm", options.arm, "Follow the MTC of the sync source");
  app.add_flag("--auto-format", options.autoFormat,
               "Take over the format of the MTC that comes in, instead of disarming");
  app.add_flag("--ignore-loops", options.ignoreLoops,
               "Go on sending to a destination whose MTC comes back, instead of switching it off");
  app.add_option("--rate-percent", options.ratePercent, "Run faster or slower, -2 to 2");
  app.add_option("--offset", options.times.offset, "Added to the time that is sent, [-]HH:MM:SS:FF")
      ->type_name("TIME");
  auto* prerollOption =
      app.add_option("--preroll", preroll, "Start this many seconds earlier, 0 to 60");
  app.add_option("--mode", mode, "normal, stop, loop or time-of-day");
  app.add_option("--stop-at", options.times.stopAt, "Stop at this time");
  app.add_option("--ltc-out", options.ltcOut,
                 "Play LTC on this channel of an audio device, which is named by its name or its "
                 "UID; channels count from 1; may be repeated")
      ->type_name("DEVICE:CHANNEL")
      ->allow_extra_args(false);
  app.add_option("--ltc-level", ltcLevel, "Of the LTC, up to 0dB, which is full scale")
      ->default_str("-20dB");
  app.add_option("--ltc-user-bits", ltcUserBits,
                 "Of the LTC: eight hexadecimal digits, the first group last")
      ->default_str("00000000");
  app.add_option("--ltc-in", options.ltcIn,
                 "Read LTC from this channel of an audio device, named as for --ltc-out, and send "
                 "it on as MTC from the MIDI source 'LTC Reader 1'")
      ->type_name("DEVICE:CHANNEL");
  auto* freewheelOption =
      app.add_option("--freewheel", freewheel,
                     "Whole seconds of freewheel after LTC drops out; -1 = forever")
          ->type_name("SECONDS")
          ->default_str("5");
  app.add_option("--loop", loop, "Go from END back to START")->expected(2)->type_name("START END");

  OSCWords oscWords;
  addOSC(app, oscWords);

  EncodeWords encodeWords;
  DecodeWords decodeWords;
  const CLI::App& encode = addEncode(app, encodeWords);
  const CLI::App& decode = addDecode(app, decodeWords);
  app.require_subcommand(0, 1);

  VLCommandLine result;
  try {
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    app.parse(reversed);

    if (encode.parsed()) {
      refuseOthers(app, encode.get_name());
      refuseEmptyNumbers(encode, {"--duration", "--rate"});
      result.encode = encodeOptions(encodeWords);
      return result;
    }
    if (decode.parsed()) {
      refuseOthers(app, decode.get_name());
      refuseEmptyNumbers(decode, {"--channel"});
      result.decode = decodeOptions(decodeWords);
      return result;
    }
    if (app.count("--inspect") > 0) {
      refuseOthers(app, "--inspect");
      result.inspect = inspected;
      return result;
    }
    if (options.list) {
      refuseOthers(app, "--list", "--headless");
    }
    refuseEmptyNumbers(app, {"--rate-percent", "--preroll"});
    if (app.count("--format") > 0) {
      options.format = valueNamed(kFormats, format, "--format");
    }
    if (isExactDrop || isNoExactDrop) {
      options.exactDrop = isExactDrop;
    }
    if (!loop.empty()) {
      options.times.loop = {loop[0], loop[1]};
    }
    // In a format that is not known yet, what is no time at all is found already.
    std::string error;
    if (!VLTimesFromWords(options.times, options.format.value_or(kSMPTETimeType30), error)) {
      refuseIf(options.format.has_value() || error.find("is no time") != std::string::npos, error);
    }
    refuseIf(options.ratePercent && (!std::isfinite(*options.ratePercent) ||
                                     std::abs(*options.ratePercent) > kMaxRatePercent),
             "--rate-percent: out of range (-2 to 2)");
    if (prerollOption->count() > 0) {
      refuseIf(!(preroll >= 0 && preroll <= VLOptions::kMaxPreroll),
               "--preroll: out of range (0 to 60)");
      options.preroll = preroll;
    }
    options.playMode = playModeOf(app.count("--mode") > 0 ? &mode : nullptr,
                                  options.times.stopAt.has_value(), options.times.loop.has_value(),
                                  options.times.start.has_value(), options.preroll.has_value());
    for (const std::string& output : options.ltcOut) {
      refuseWithoutChannel(output, "--ltc-out");
    }
    if (options.ltcIn) {
      refuseWithoutChannel(*options.ltcIn, "--ltc-in");
    }
    for (const char* option : {"--ltc-level", "--ltc-user-bits"}) {
      refuseIf(app.count(option) > 0 && options.ltcOut.empty(),
               std::string(option) + " needs --ltc-out");
    }
    if (freewheelOption->count() > 0) {
      refuseIf(!options.ltcIn, "--freewheel needs --ltc-in");
      options.freewheel = secondsOption(freewheel, "--freewheel");
    }
    if (ltcLevel) {
      options.ltcLevel = valueOf(VLLevelFromText(*ltcLevel, error), error, "--ltc-level");
    }
    if (ltcUserBits) {
      options.ltcUserBits = 0;
      const auto bytes = valueOf(VLUserBitsFromText(*ltcUserBits, error), error, "--ltc-user-bits");
      for (std::size_t i = 0; i < bytes.size(); ++i) {
        *options.ltcUserBits |= std::uint32_t{bytes[i]} << 8 * i;
      }
    }
    refuseEmptyNumbers(app, {"--osc-port"});
    options.osc = oscOptions(app, oscWords);
    options.osc.keep = options.keep;
    refuseIf(options.arm && options.play,
             "--arm and --play contradict each other: an armed clock is started by MTC");
    refuseIf(options.file && options.recover, "FILE and --recover contradict each other");
    refuseIf(options.fresh && options.recover, "--fresh and --recover contradict each other");
    refuseIf(!options.headless && !options.list,
             "there is no window yet: use --headless or --list (--help tells more)");
    result.options = options;
  } catch (const CLI::CallForHelp&) {
    result.output = app.help();
  } catch (const CLI::CallForVersion&) {
    result.output = app.version() + "\n";
  } catch (const CLI::ParseError& error) {
    result = refusal(error.what());
  } catch (const UsageError& error) {
    result = refusal(error.what());
  }
  return result;
}

}  // namespace velor
