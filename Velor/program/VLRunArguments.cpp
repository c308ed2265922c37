// SPDX-License-Identifier: MIT
#include "Velor/program/VLRunArguments.h"

#include <CLI/CLI.hpp>

#include <cstdint>

#include "Velor/clock/VLClockStatus.h"
#include "Velor/program/VLOptionText.h"
#include "Velor/program/VLRefusal.h"

namespace velor {
namespace {

constexpr double kMaxRatePercent = 2.0;
constexpr int kMaxPort = 65535;
constexpr int kMaxFreewheel = 86400;  // seconds

// Adds options to one group of the help.
class Group {
 public:
  Group(CLI::App& app, const char* name) : mApp(app), mName(name) {}

  template <class Value>
  CLI::Option& option(const char* name, Value& value, const char* type, const char* help) {
    return *mApp.add_option(name, value, help)->type_name(type)->group(mName);
  }
  /// May be repeated.
  void list(const char* name, std::vector<std::string>& values, const char* type,
            const char* help) {
    option(name, values, type, help).allow_extra_args(false);
  }
  void flag(const char* name, bool& value, const char* help) {
    mApp.add_flag(name, value, help)->group(mName);
  }

 private:
  CLI::App& mApp;
  const char* mName;
};

// A channel that is missing may appear; a text without a channel never names one.
Expected<> checkChannel(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) {
    return failure("'" + text + "' is not a DEVICE:CHANNEL");
  }
  return {};
}

}  // namespace

VLRunArguments::VLRunArguments(CLI::App& app) {
  addClock(app);
  addMTC(app);
  addLTC(app);
  addOSC(app);
  addMedia(app);
  addDocument(app);
  addRun(app);
}

// --- the options, in the order of the help ---

void VLRunArguments::addClock(CLI::App& app) {
  Group clock(app, "Clock");
  clock.option("--format", mFormat, "FORMAT",
               "23.98, 24, 25, 29.97, 29.97df, 30, 30df (default: the document's)");
  clock.flag("--exact-drop", mIsExactDrop, "Send exact drop-frame numbers to MTC and LTC");
  clock.flag("--no-exact-drop", mIsNoExactDrop, "Switch a saved --exact-drop off");
  clock.option("--start", mGiven.times.start, "TIME", "Time to start from, HH:MM:SS:FF");
  clock.flag("--play", mGiven.play, "Start the clock");
  clock.option("--offset", mGiven.times.offset, "[-]TIME", "Time to add to the time that is sent");
  clock.option("--rate-percent", mRatePercent, "PERCENT", "Run faster or slower, -2 to 2");
  clock.option("--preroll", mPreroll, "SECONDS", "Start this much earlier, 0 to 60");
  clock.option("--mode", mMode, "MODE", "normal, stop, loop or time-of-day");
  clock.option("--stop-at", mGiven.times.stopAt, "TIME", "Time to stop at");
  clock.option("--loop", mLoop, "START END", "Go from END back to START").expected(2);
}

void VLRunArguments::addMTC(CLI::App& app) {
  Group mtc(app, "MTC");
  mtc.list("--mtc-out", mGiven.mtcOut, "PORT",
           "MIDI destination by name, full port name or id; may be repeated");
  mtc.option("--sync-source", mGiven.syncSource, "PORT",
             "MIDI source to read MTC from; also the port of --ltc-in");
  mtc.flag("--arm", mGiven.arm, "Follow the MTC of the sync source");
  mtc.flag("--auto-format", mGiven.autoFormat,
           "Change to the format of incoming MTC instead of disarming");
  mtc.flag("--ignore-loops", mGiven.ignoreLoops,
           "Keep sending to a destination whose MTC comes back");
}

void VLRunArguments::addLTC(CLI::App& app) {
  Group ltc(app, "LTC");
  ltc.list("--ltc-out", mGiven.ltcOut, "DEVICE:CHANNEL",
           "Channel to play LTC on; device by name or UID; may be repeated");
  ltc.option("--ltc-level", mLTCLevel, "LEVEL",
             "LTC output level; 0dB is full scale (default: -20dB)");
  ltc.option("--ltc-user-bits", mLTCUserBits, "DIGITS",
             "Eight hexadecimal digits, the first group last (default: 00000000)");
  ltc.option("--ltc-in", mGiven.ltcIn, "DEVICE:CHANNEL",
             "Channel to read LTC from; sends it as MTC from 'LTC Reader 1'");
  ltc.option("--freewheel", mFreewheel, "SECONDS",
             "Whole seconds of freewheel after a drop-out; -1 = forever (default: 5)");
  ltc.flag("--ltc-condition", mConditions,
           "Condition the input of --ltc-in: read noisy, dull or damaged LTC");
  ltc.flag("--no-ltc-condition", mConditionsNot, "Switch a saved --ltc-condition off");
}

void VLRunArguments::addOSC(CLI::App& app) {
  Group osc(app, "OSC");
  osc.option("--osc-port", mOSCPort, "PORT", "UDP port to receive OSC commands at, 1 to 65535");
  osc.list("--osc-allow", mOSCAllow, "ADDRESS", "Host to obey OSC commands from; may be repeated");
  osc.list("--osc-target", mOSCTargets, "HOST:PORT",
           "Target to send time and state to by OSC; may be repeated");
  osc.list("--osc-forget", mOSCForget, "HOST[:PORT]",
           "Saved OSC host or target to remove; may be repeated");
}

void VLRunArguments::addMedia(CLI::App& app) {
  Group media(app, "Media");
  media.list("--media", mMedia, "CLIP[@TIME]",
             "Clip to play in step with MTC, and when it starts; may be repeated");
  media
      .option("--media-fullscreen", mMediaFullscreen, "[SCREEN]",
              "Video of the clips alone, on a screen by name or number")
      .expected(0, 1)
      ->allow_extra_args(false);
}

void VLRunArguments::addDocument(CLI::App& app) {
  Group document(app, "Document");
  document.option("FILE", mGiven.file, "", "Document to open (default: state of the last run)");
  document.flag("--recover", mGiven.recover, "Open the state of a run that was interrupted");
  document.flag("--fresh", mGiven.fresh, "Start without the state of the last run");
  document.flag("--keep", mGiven.keep,
                "Save the devices, destinations and OSC settings that options add");
}

void VLRunArguments::addRun(CLI::App& app) {
  Group run(app, "Run");
  run.flag("--headless", mGiven.headless, "Run without a window, until SIGINT or SIGTERM");
  run.flag("--wait", mGiven.wait, "Start without a missing port or device; use it when it appears");
  run.flag("--list", mGiven.list,
           "Print MIDI ports with their ids, and audio devices with channels");
}

// --- what they mean ---

Expected<VLOptions> VLRunArguments::options() const {
  VLOptions options = mGiven;
  VLRefusal refusal;
  readClock(options, refusal);
  readPlayMode(options, refusal);
  readLTC(options, refusal);
  readOSC(options, refusal);
  readMedia(options, refusal);
  refusal.refuseIf(options.arm && options.play,
                   "--arm contradicts --play: an armed clock is started by MTC");
  refusal.refuseIf(options.file && options.recover, "FILE contradicts --recover");
  refusal.refuseIf(options.fresh && options.recover, "--fresh contradicts --recover");
  return refusal.resultOf(options);
}

void VLRunArguments::readClock(VLOptions& options, VLRefusal& refusal) const {
  if (mFormat) {
    options.format = refusal.read("--format", VLOptionText::format(*mFormat));
  }
  refusal.refuseIf(mIsExactDrop && mIsNoExactDrop, "--exact-drop contradicts --no-exact-drop");
  if (mIsExactDrop || mIsNoExactDrop) {
    options.exactDrop = mIsExactDrop;
  }
  if (!mLoop.empty()) {
    options.times.loop = {mLoop[0], mLoop[1]};
  }
  if (options.format) {
    refusal.check(VLTimesFromWords(options.times, *options.format));
  } else {
    const auto check = [&refusal](const char* option, const std::string& text) {
      refusal.check(option, VLOptionText::checkTime(text));
    };
    const VLTimeWords& times = options.times;
    if (times.start) {
      check("--start", *times.start);
    }
    if (times.offset) {
      check("--offset", times.offset->substr(times.offset->starts_with('-') ? 1 : 0));
    }
    if (times.stopAt) {
      check("--stop-at", *times.stopAt);
    }
    for (const std::string& point : mLoop) {
      check("--loop", point);
    }
  }
  if (mRatePercent) {
    options.ratePercent = refusal.read(
        "--rate-percent", VLOptionText::number(*mRatePercent, -kMaxRatePercent, kMaxRatePercent));
  }
  if (mPreroll) {
    options.preroll = refusal.read(
        "--preroll",
        VLOptionText::number(*mPreroll, 0, VLOptions::kMaxPreroll, "number of seconds"));
  }
}

void VLRunArguments::readPlayMode(VLOptions& options, VLRefusal& refusal) const {
  const bool hasStop = options.times.stopAt.has_value();
  const bool hasLoop = options.times.loop.has_value();
  refusal.refuseIf(hasStop && hasLoop, "--stop-at contradicts --loop");
  if (!mMode) {
    if (hasStop || hasLoop) {
      options.playMode = hasStop ? VLPlayModeStop : VLPlayModeLoop;
    }
    return;
  }
  const std::uint64_t mode = refusal.read("--mode", VLOptionText::playMode(*mMode));
  const bool isTimeOfDay = mode == VLPlayModeTimeOfDay;
  refusal.refuseIf(hasStop && mode != VLPlayModeStop, "--stop-at contradicts --mode " + *mMode);
  refusal.refuseIf(hasLoop && mode != VLPlayModeLoop, "--loop contradicts --mode " + *mMode);
  refusal.refuseIf(options.times.start && isTimeOfDay, "--start contradicts --mode time-of-day");
  refusal.refuseIf(options.preroll && isTimeOfDay, "--preroll contradicts --mode time-of-day");
  options.playMode = mode;
}

void VLRunArguments::readLTC(VLOptions& options, VLRefusal& refusal) const {
  for (const std::string& output : options.ltcOut) {
    refusal.check("--ltc-out", checkChannel(output));
  }
  if (options.ltcIn) {
    refusal.check("--ltc-in", checkChannel(*options.ltcIn));
  }
  refusal.refuseIf(mLTCLevel && options.ltcOut.empty(), "--ltc-level needs --ltc-out");
  refusal.refuseIf(mLTCUserBits && options.ltcOut.empty(), "--ltc-user-bits needs --ltc-out");
  refusal.refuseIf(mFreewheel && !options.ltcIn, "--freewheel needs --ltc-in");
  refusal.refuseIf(mConditions && mConditionsNot, "--ltc-condition contradicts --no-ltc-condition");
  if (mConditions || mConditionsNot) {
    refusal.refuseIf(!options.ltcIn, (mConditions ? "--ltc-condition" : "--no-ltc-condition") +
                                         std::string(" needs --ltc-in"));
    options.ltcCondition = mConditions;
  }
  if (mLTCLevel) {
    options.ltcLevel = refusal.read("--ltc-level", VLOptionText::level(*mLTCLevel));
  }
  if (mLTCUserBits) {
    const auto bytes = refusal.read("--ltc-user-bits", VLOptionText::userBits(*mLTCUserBits));
    options.ltcUserBits = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      *options.ltcUserBits |= std::uint32_t{bytes[i]} << 8 * i;
    }
  }
  if (mFreewheel) {
    options.freewheel = refusal.read(
        "--freewheel",
        VLOptionText::wholeNumber(*mFreewheel, -1, kMaxFreewheel, "whole number of seconds"));
  }
}

void VLRunArguments::readOSC(VLOptions& options, VLRefusal& refusal) const {
  VLOSCOptions& osc = options.osc;
  osc.keep = options.keep;
  if (mOSCPort) {
    osc.port = static_cast<std::uint16_t>(
        refusal.read("--osc-port", VLOptionText::wholeNumber(*mOSCPort, 1, kMaxPort, "port")));
  }
  refusal.refuseIf(!mOSCAllow.empty() && !mOSCPort, "--osc-allow needs --osc-port");
  for (const std::string& text : mOSCAllow) {
    osc.allow.push_back(refusal.read("--osc-allow", VLHostAddressFromText(text)));
  }
  for (const std::string& text : mOSCTargets) {
    osc.targets.push_back(refusal.read("--osc-target", VLOSCTargetFromText(text)));
  }
  for (const std::string& text : mOSCForget) {
    refusal.check("--osc-forget", VLOSCForgetFromText(text, osc));
  }
}

void VLRunArguments::readMedia(VLOptions& options, VLRefusal& refusal) const {
  for (const std::string& text : mMedia) {
    options.media.push_back(refusal.read("--media", VLMediaWordsFromText(text)));
  }
  if (mMediaFullscreen.empty()) {
    return;
  }
  refusal.refuseIf(options.headless,
                   "--media-fullscreen contradicts --headless: it needs a display");
  refusal.refuseIf(mMedia.empty(), "--media-fullscreen needs --media");
  options.mediaFullscreen = mMediaFullscreen.front();
}

}  // namespace velor
