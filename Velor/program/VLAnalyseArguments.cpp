// SPDX-License-Identifier: MIT
#include "Velor/program/VLAnalyseArguments.h"

#include <CLI/CLI.hpp>

#include <limits>

#include "Velor/program/VLOptionText.h"
#include "Velor/program/VLRefusal.h"

namespace velor {

VLAnalyseArguments::VLAnalyseArguments(CLI::App& app)
    : mCommand(*app.add_subcommand("analyse", "Measure LTC or MTC and the line it comes over")) {
  mCommand.add_option("FILE", mGiven.file, "Sound file with LTC: WAV, W64 or FLAC")->type_name("");
  mCommand.add_option("--channel", mChannel, "Channel that holds the LTC, from 1 (default: 1)")
      ->type_name("CHANNEL");
  mCommand.add_option("--live", mGiven.live, "Audio input to listen to, until Ctrl-C")
      ->type_name("DEVICE:CHANNEL");
  mCommand.add_option("--mtc", mGiven.mtc, "MIDI source of MTC to listen to, until Ctrl-C")
      ->type_name("PORT");
  mCommand.add_flag("--json", mGiven.isJSON, "Print one JSON object");
  mCommand.add_option("--plot", mGiven.plot, "Picture to write: rate, level, jitter, drop-outs")
      ->type_name("FILE.svg");
}

Expected<VLAnalyseOptions> VLAnalyseArguments::options() const {
  VLAnalyseOptions options = mGiven;
  VLRefusal refusal;
  const int sources = (options.file ? 1 : 0) + (options.live ? 1 : 0) + (options.mtc ? 1 : 0);
  refusal.refuseIf(sources == 0, "analyse needs FILE, --live DEVICE:CHANNEL or --mtc PORT");
  refusal.refuseIf(sources > 1, "analyse takes one of FILE, --live and --mtc");
  refusal.refuseIf(mChannel && !options.file, "--channel needs FILE");
  if (mChannel) {
    options.channel = refusal.read(
        "--channel", VLOptionText::wholeNumber(*mChannel, 1, std::numeric_limits<int>::max()));
  }
  // The picture must not replace a sound file by mistake.
  refusal.refuseIf(options.plot && !options.plot->ends_with(".svg"),
                   "--plot: '" + options.plot.value_or("") + "' does not end in .svg");
  return refusal.resultOf(options);
}

}  // namespace velor
