// SPDX-License-Identifier: MIT
#include "Velor/program/VLEncodeArguments.h"

#include <CLI/CLI.hpp>

#include "Velor/program/VLOptionText.h"
#include "Velor/program/VLRefusal.h"
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

Expected<VLEncodeOptions> VLEncodeArguments::options() const {
  VLEncodeOptions options;
  VLRefusal refusal;
  options.file = mFile;
  options.force = mForce;
  const auto format = refusal.read("--format", VLOptionText::format(mFormat));
  options.start = refusal.read("--start", VLOptionText::time(mStart, format));
  options.duration = refusal.read(
      "--duration", VLOptionText::number(mDuration, 0, kMaxDuration, "number of seconds"));
  options.level = refusal.read("--level", VLOptionText::level(mLevel));
  options.userBits = refusal.read("--user-bits", VLOptionText::userBits(mUserBits));
  options.sound.sampleRate =
      refusal.read("--rate", VLOptionText::wholeNumber(mRate, VLEncodeOptions::kMinSampleRate,
                                                       audio::SoundFormat::kMaxSampleRate,
                                                       "whole number of samples a second"));
  options.sound.encoding = refusal.read("--bits", VLOptionText::encoding(mBits));
  if (refusal.isRefused()) {
    return refusal.resultOf(options);
  }
  const auto possible =
      audio::SoundFileWriter::check(mFile, options.sound, VLEncodeLength(options));
  if (!possible) {
    refusal.refuseIf(true, possible.error().text);
  }
  refusal.refuseIf(VLEncodeLength(options) == 0,
                   "--duration: '" + mDuration + "' is shorter than half a sample");
  refusal.refuseIf(audio::SoundFileWriter::isSilent(options.level, options.sound.encoding),
                   "--level: '" + mLevel + "' is silence at --bits " + mBits);
  return refusal.resultOf(options);
}

}  // namespace velor
