// SPDX-License-Identifier: MIT
#include "Velor/program/VLDecodeArguments.h"

#include <CLI/CLI.hpp>

#include <limits>

#include "Velor/program/VLOptionText.h"
#include "Velor/program/VLUsageError.h"

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

VLDecodeOptions VLDecodeArguments::options() const {
  VLDecodeOptions options;
  options.file = mFile;
  VLRefuseIf(mCSV && mJSON, "--csv contradicts --json");
  options.channel = VLReadOption("--channel", [&] {
    return VLOptionText::wholeNumber(mChannel, 1, std::numeric_limits<int>::max());
  });
  options.isPlain = mIsPlain;
  options.form = mCSV    ? VLDecodeOptions::Form::csv
                 : mJSON ? VLDecodeOptions::Form::json
                         : VLDecodeOptions::Form::text;
  return options;
}

}  // namespace velor
