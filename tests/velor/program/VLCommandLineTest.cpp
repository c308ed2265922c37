// SPDX-License-Identifier: MIT
#include "Velor/program/VLCommandLine.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "Velor/clock/VLClockStatus.h"

namespace velor {
namespace {

using Words = std::vector<std::string>;

Words withHeadless(Words words) {
  words.insert(words.begin(), "--headless");
  return words;
}

TEST(VLCommandLine, AWrongWordIsOneLineThatNamesItWithTheStatus2) {
  struct Case {
    Words words;
    const char* line;
  };
  const Case runs[] = {
      {{"--start", "1:2"}, "--start: '1:2' is not a time; expected HH:MM:SS:FF"},
      {{"--start", "01:00\n:00:00"}, "--start: '01:00?:00:00' is not a time; expected HH:MM:SS:FF"},
      {{"--format", "25", "--start", "24:00:00:00"},
       "--start: '24:00:00:00' is out of range (up to 23:59:59:24 at 25)"},
      {{"--format", "29.97df", "--start", "00:01:00;01"},
       "--start: '00:01:00;01' does not exist at 29.97df: drop-frame counting leaves it out"},
      {{"--format", "26"},
       "--format: '26' is not a format; expected one of 23.98, 24, 25, 29.97, 29.97df, 30, 30df"},
      {{"--play", "--arm"}, "--arm contradicts --play: an armed clock is started by MTC"},
      {{"--format", "25", "--loop", "00:00:02:00", "00:00:01:00"},
       "--loop: the end must come after the start"},
      {{"--loop", "00:00:02:00", "--play"}, "--loop needs START END"},
      {{"--rate-percent", "2.5"}, "--rate-percent: '2.5' is out of range (-2 to 2)"},
      {{"--rate-percent", "nan"}, "--rate-percent: 'nan' is not a number"},
      {{"--preroll", "5s"}, "--preroll: '5s' is not a number of seconds"},
      {{"--ltc-out", "Desk"}, "--ltc-out: 'Desk' is not a DEVICE:CHANNEL"},
      {{"--ltc-out", "Desk:1", "--ltc-level", "1dB"},
       "--ltc-level: '1dB' is above full scale, 0dB"},
      {{"--ltc-out", "Desk:1", "--ltc-user-bits", "1234567"},
       "--ltc-user-bits: '1234567' is not a set of user bits; expected eight hexadecimal digits"},
      {{"--ltc-level", "-20dB"}, "--ltc-level needs --ltc-out"},
      {{"--ltc-in", "Desk:1", "--freewheel", "0.5"},
       "--freewheel: '0.5' is not a whole number of seconds"},
      {{"--media-fullscreen", "2", "--media", "a.mp4"},
       "--media-fullscreen contradicts --headless: it needs a display"},
      {{"--osc-port", "0"}, "--osc-port: '0' is out of range (1 to 65535)"},
      {{"--osc-target", "::1:9000"}, "--osc-target: '::1:9000' is not HOST:PORT"},
      {{"--no-such-option", "1"}, "unknown option --no-such-option (--help lists all options)"},
      {{"one", "two"}, "unexpected argument 'two'"},
      {{"--start", "00:00:00:00", "--start", "00:00:00:01"}, "--start is given more than once"},
      {{"--list", "--play"}, "--play cannot be used with --list"},
      {{"encode", "a.wav"}, "encode needs --duration SECONDS"},
  };
  const Case commands[] = {
      {{"encode", "--duration", "0", "a.wav"}, "--duration: '0' is shorter than half a sample"},
      {{"encode", "--duration", "1", "--level", "-97dB", "a.wav"},
       "--level: '-97dB' is silence at --bits 16"},
      {{"analyse"}, "analyse needs FILE, --live DEVICE:CHANNEL or --mtc PORT"},
      {{"analyse", "a.wav", "--plot", "b.wav"}, "--plot: 'b.wav' does not end in .svg"},
  };
  // What a sound file cannot hold.
  for (const Words& words : {Words{"--duration", "1", "out.mp3"},
                             Words{"--duration", "1", "--bits", "float", "out.flac"},
                             Words{"--duration", "100000", "out.wav"}}) {
    Words all = {"encode"};
    all.insert(all.end(), words.begin(), words.end());
    EXPECT_EQ(VLParseCommandLine(all).exitStatus, 2) << testing::PrintToString(words);
  }
  const auto expectRefused = [](const Words& words, const char* line) {
    const VLCommandLine result = VLParseCommandLine(words);
    EXPECT_EQ(result.output, "velor: " + std::string(line) + "\n");
    EXPECT_EQ(result.exitStatus, 2) << line;
    EXPECT_FALSE(result.options || result.encode || result.decode || result.inspect) << line;
  };
  for (const Case& each : runs) {
    expectRefused(withHeadless(each.words), each.line);
  }
  for (const Case& each : commands) {
    expectRefused(each.words, each.line);
  }
}

TEST(VLCommandLine, PointsImplyTheirModeAndAModeGoesWithoutPoints) {
  struct Case {
    Words words;
    std::optional<std::uint64_t> mode;
  };
  const Case cases[] = {
      {{}, std::nullopt},
      {{"--stop-at", "00:00:01:00"}, VLPlayModeStop},
      {{"--loop", "00:00:00:00", "00:00:02:00"}, VLPlayModeLoop},
      {{"--mode", "stop"}, VLPlayModeStop},
      {{"--mode", "loop"}, VLPlayModeLoop},
      {{"--mode", "loop", "--loop", "00:00:00:00", "00:00:02:00"}, VLPlayModeLoop},
  };
  for (const Case& each : cases) {
    const VLCommandLine line = VLParseCommandLine(withHeadless(each.words));
    ASSERT_TRUE(line.options) << line.output;
    EXPECT_EQ(line.options->playMode, each.mode);
  }
}

TEST(VLCommandLine, WhatIsTypedReachesTheOptions) {
  std::istringstream typed(
      "--headless show.velor --offset -00:00:10:00 --mtc-out a --mtc-out b --ltc-out Desk:LTC "
      "--ltc-user-bits 12345678 --ltc-level -20dB --rate-percent +1.5 --freewheel -1 --ltc-in "
      "Desk:1 --ltc-condition --osc-port 7770 --osc-allow ::1 --osc-target [::1]:9000 --keep");
  const VLCommandLine run =
      VLParseCommandLine(Words(std::istream_iterator<std::string>(typed), {}));
  ASSERT_TRUE(run.options) << run.output;
  const VLOptions& options = *run.options;
  EXPECT_EQ(options.file, "show.velor");
  EXPECT_EQ(options.mtcOut, (Words{"a", "b"}));
  EXPECT_EQ(options.ltcUserBits, 0x12345678U);
  EXPECT_FLOAT_EQ(options.ltcLevel.value_or(0), 0.1F);
  EXPECT_EQ(options.ratePercent, 1.5);
  EXPECT_EQ(options.freewheel, -1);
  EXPECT_EQ(options.ltcCondition, true);
  EXPECT_EQ(options.osc.port, 7770);
  EXPECT_EQ(options.osc.allow, Words{"::1"});
  EXPECT_EQ(options.osc.targets, (std::vector<VLOSCOptions::Target>{{"::1", 9000}}));
  EXPECT_TRUE(options.osc.keep);
  EXPECT_EQ(VLTimesFromWords(options.times, kSMPTETimeType25)->offset->mMinutes, 59)
      << "it wraps around the day";

  const VLCommandLine encode = VLParseCommandLine({"encode", "a.wav", "--duration", "1.5"});
  ASSERT_TRUE(encode.encode) << encode.output;
  EXPECT_EQ(encode.encode->duration, 1.5);
  EXPECT_EQ(encode.encode->sound.sampleRate, 48000);
}

}  // namespace
}  // namespace velor
