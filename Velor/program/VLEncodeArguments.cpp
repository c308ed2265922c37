// SPDX-License-Identifier: MIT
#include "Velor/program/VLEncodeArguments.h"

#include <CLI/CLI.hpp>

#include "Velor/program/VLOptionText.h"
#include "Velor/program/VLUsageError.h"
#include "platform/audio/file/SoundFileWriter.h"

namespace velor {
namespace {

constexpr double kMaxDuration = 7 * 24 * 3600.0;

}  // namespace

VLEncodeArguments::VLEncodeArguments(CLI::App& app)
    : mCommand(*app.add_subcommand("encode", "Write LTC to a sound file")) {
  const auto add = [this](const char* name, std::string& value, const char* type,
                          const char* help) {
    return mCommand.add_option(name, value, help)->type_name(type);
  };
  add("FILE", mFile, "", "Sound file to write: .wav, .w64 or .flac")->required();
  add("--duration", mDuration, "SECONDS", "Length of the file; its last frame may be cut")
      ->required();
  add("--format", mFormat, "FORMAT", "23.98, 24, 25, 29.97, 29.97df, 30 or 30df (default: 25)");
  add("--start", mStart, "TIME", "Time of the first frame, HH:MM:SS:FF (default: 00:00:00:00)");
  add("--rate", mRate, "HERTZ", "Samples a second (default: 48000)");
  add("--level", mLevel, "LEVEL", "LTC output level; 0dB is full scale (default: -20dB)");
  add("--user-bits", mUserBits, "DIGITS",
      "Eight hexadecimal digits, the first group last (default: 00000000)");
  add("--bits", mBits, "BITS", "Bits of a sample: 16, 24 or float (default: 16)");
  mCommand.add_flag("--force", mForce, "Replace a file that exists");
}

VLEncodeOptions VLEncodeArguments::options() const {
  VLEncodeOptions options;
  options.file = mFile;
  options.force = mForce;
  const auto format = VLReadOption("--format", [&] { return VLOptionText::format(mFormat); });
  options.start = VLReadOption("--start", [&] { return VLOptionText::time(mStart, format); });
  options.duration = VLReadOption("--duration", [&] {
    return VLOptionText::number(mDuration, 0, kMaxDuration, "number of seconds");
  });
  options.level = VLReadOption("--level", [&] { return VLOptionText::level(mLevel); });
  options.userBits = VLReadOption("--user-bits", [&] { return VLOptionText::userBits(mUserBits); });
  options.sound.sampleRate = VLReadOption("--rate", [&] {
    return VLOptionText::wholeNumber(mRate, VLEncodeOptions::kMinSampleRate,
                                     audio::SoundFormat::kMaxSampleRate,
                                     "whole number of samples a second");
  });
  options.sound.encoding = VLReadOption("--bits", [&] { return VLOptionText::encoding(mBits); });
  const std::string refusal =
      audio::SoundFileWriter::refusal(mFile, options.sound, VLEncodeLength(options));
  VLRefuseIf(!refusal.empty(), refusal);
  VLRefuseIf(VLEncodeLength(options) == 0,
             "--duration: '" + mDuration + "' is shorter than half a sample");
  VLRefuseIf(audio::SoundFileWriter::isSilent(options.level, options.sound.encoding),
             "--level: '" + mLevel + "' is silence at --bits " + mBits);
  return options;
}

}  // namespace velor
