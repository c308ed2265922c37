// SPDX-License-Identifier: MIT
#include "Velor/program/VLDecodeArguments.h"

#include <CLI/CLI.hpp>

#include <limits>

#include "Velor/program/VLOptionText.h"
#include "Velor/program/VLRefusal.h"

namespace velor {

VLDecodeArguments::VLDecodeArguments(CLI::App& app)
    : mCommand(*app.add_subcommand("decode", "Print the LTC of a sound file, frame by frame")) {
  mCommand.add_option("FILE", mFile, "Sound file to read: WAV, W64 or FLAC")
      ->type_name("")
      ->required();
  mCommand.add_option("--channel", mChannel, "Channel that holds the LTC, from 1 (default: 1)")
      ->type_name("CHANNEL");
  mCommand.add_flag("--csv", mCSV, "Print comma-separated values with a header");
  mCommand.add_flag("--json", mJSON, "Print one JSON object per line");
  mCommand.add_flag("--plain", mIsPlain, "Read as LTC readers do: forwards, without a filter");
}

Expected<VLDecodeOptions> VLDecodeArguments::options() const {
  VLDecodeOptions options;
  VLRefusal refusal;
  options.file = mFile;
  refusal.refuseIf(mCSV && mJSON, "--csv contradicts --json");
  options.channel = refusal.read(
      "--channel", VLOptionText::wholeNumber(mChannel, 1, std::numeric_limits<int>::max()));
  options.isPlain = mIsPlain;
  options.form = mCSV    ? VLDecodeOptions::Form::csv
                 : mJSON ? VLDecodeOptions::Form::json
                         : VLDecodeOptions::Form::text;
  return refusal.resultOf(options);
}

}  // namespace velor
