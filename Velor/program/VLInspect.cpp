// SPDX-License-Identifier: MIT
#include "Velor/program/VLInspect.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <set>

#include "Velor/app/IndexSetString.h"
#include "Velor/app/VLApplicationState.h"
#include "Velor/app/VLDocumentKeys.h"
#include "Velor/app/VLMarker.h"
#include "Velor/clock/VLClock.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/media/VLMediaPlaybackWindowState.h"
#include "Velor/program/VLInspectedItem.h"
#include "Velor/program/VLOptionText.h"
#include "Velor/program/VLOptions.h"
#include "Velor/program/VLStandardOutput.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/store/AtomicFile.h"
#include "platform/store/KeyedArchiveLimits.h"
#include "platform/store/KeyedUnarchiver.h"
#include "platform/store/Printable.h"

namespace velor {
namespace {

using store::KeyedUnarchiver;

template <class... Arguments>
std::string line(const char* form, Arguments... arguments) {
  std::array<char, 256> text{};
  std::snprintf(text.data(), text.size(), form, arguments...);
  return text.data();
}

std::string quoted(const std::string& name) {
  return "\"" + store::printable(name) + "\"";
}

// --- the document

class Inspecting {
 public:
  explicit Inspecting(KeyedUnarchiver& coder) : mCoder(coder) {}

  VLInspection run() {
    readClock();
    readMarkers();
    readDevices();
    readMediaWindows();
    readRest();
    return {std::move(mText), std::move(mFindings.problems())};
  }

 private:
  using Keys = VLDocumentKeys;

  void tell(const char* what, const std::string& text) {
    mText += line("%-14s", what) + text + "\n";
  }

  // The value under the key, or `other` where there is none, or one of another kind.
  template <class Value>
  Value value(std::optional<Value> (KeyedUnarchiver::*decode)(std::string_view),
              std::string_view key, Value other) {
    const auto found = (mCoder.*decode)(key);
    return mFindings.check(mCoder) ? found.value_or(other) : other;
  }

  std::string textOf(const SMPTETime& time) const {
    return stringFromSMPTETime(time) + (!ltc_is_valid(time) || time.mType == mFormat
                                            ? ""
                                            : std::string(" at ") + VLFormatName(time.mType));
  }

  void checkTime(const SMPTETime& time, const std::string& path) {
    if (!ltc_is_valid(time) || !ltc_is_valid_type(time.mType)) {
      mFindings.add(path, "not a valid time");
      return;
    }
    if (time.mType != mFormat) {
      mFindings.add(path, std::string("its format is ") + VLFormatName(time.mType) +
                              ", that of the document " + VLFormatName(mFormat));
    }
    SMPTETime normal = time;
    ltc_normalize(normal);
    if (!ltc_same_time(normal, time)) {
      mFindings.add(path,
                    "not a time of its format; it would become " + stringFromSMPTETime(normal));
    }
  }

  SMPTETime time(std::string_view key) {
    const SMPTETime time = decodeSmpteTimeForKey(mCoder, key);
    if (!mFindings.check(mCoder)) {
      return {};
    }
    checkTime(time, mCoder.pathOf(key));
    return time;
  }

  void readClock() {
    const std::string version =
        value(&KeyedUnarchiver::decodeString, Keys::kVersion, std::string());
    tell("Written by", version.empty() ? "unknown" : "velor " + store::printable(version));
    mFormat = static_cast<std::uint32_t>(value(&KeyedUnarchiver::decodeInt32, Keys::kFormat, 0));
    if (!ltc_is_valid_type(mFormat)) {
      mFindings.add(std::string(Keys::kFormat), std::to_string(mFormat) + " is not a format");
    }
    tell("Format", VLFormatName(mFormat));
    if (value(&KeyedUnarchiver::decodeBool, Keys::kExactDrop, false)) {
      tell("Drop frames", "exact numbers");
    }
    tell("Time", textOf(time(Keys::kTime)));
    tell("Offset", textOf(time(Keys::kOffset)));
    tell("Stop time", textOf(time(Keys::kStopTime)));
    const SMPTETime start = time(Keys::kLoopStart);
    const SMPTETime end = time(Keys::kLoopEnd);
    if (!loopStands(start, end)) {
      mFindings.add(std::string(Keys::kLoopEnd), "it is before the start of the loop");
    }
    tell("Loop", textOf(start) + " to " + textOf(end));
    readPlaying();
  }

  // Points in the wrong order are not taken over as they are, but for those that the clock
  // has itself moved apart over midnight.
  static bool loopStands(const SMPTETime& start, const SMPTETime& end) {
    if (!ltc_cancompare(start, end) || ltc_compare(start, end) != 1) {
      return true;
    }
    SMPTETime movedStart = end;
    ltc_add_seconds(movedStart, -VLClock::kLoopCorrection);
    SMPTETime movedEnd = start;
    ltc_add_seconds(movedEnd, VLClock::kLoopCorrection);
    return ltc_same_time(start, movedStart) || ltc_same_time(end, movedEnd);
  }

  void readPlaying() {
    const std::int64_t mode =
        value(&KeyedUnarchiver::decodeInt64, Keys::kPlayMode, std::int64_t{0});
    const auto row =
        std::find_if(kVLPlayModes.begin(), kVLPlayModes.end(), [mode](const auto& each) {
          return each.playMode == (mode != 0 ? static_cast<std::uint64_t>(mode) : VLPlayModeNormal);
        });
    if (row == kVLPlayModes.end()) {
      mFindings.add(std::string(Keys::kPlayMode), std::to_string(mode) + " is not a play mode");
    }
    tell("Play mode", row != kVLPlayModes.end() ? std::string(row->title) : "?");

    const double rate = value(&KeyedUnarchiver::decodeDouble, Keys::kPlayRate, 0.0);
    if (!(rate >= VLApplicationState::kLeastPlayRate &&
          rate <= VLApplicationState::kMostPlayRate)) {
      mFindings.add(std::string(Keys::kPlayRate), line("%g is not a rate", rate));
    }
    tell("Rate", line("%+.3f %%", (rate - 1) * 100));

    const double preroll = value(&KeyedUnarchiver::decodeDouble, Keys::kPrerollTime, 0.0);
    if (!(preroll >= 0 && preroll <= VLOptions::kMaxPreroll &&
          (preroll == 0 || std::isnormal(preroll)))) {
      mFindings.add(std::string(Keys::kPrerollTime),
                    line("%g is out of range (0 to %g)", preroll, VLOptions::kMaxPreroll));
    }
    const bool isOn = value(&KeyedUnarchiver::decodeBool, Keys::kPreroll, false);
    tell("Pre-roll", line("%g s, %s", preroll, isOn ? "on" : "off"));

    const bool hasSource = mCoder.containsValue(Keys::kSyncSource);
    const std::int32_t source = value(&KeyedUnarchiver::decodeInt32, Keys::kSyncSource, 0);
    tell("Sync source", hasSource ? "[" + std::to_string(source) + "]" : "none");
  }

  template <class Object>
  std::vector<std::shared_ptr<Object>> objects(std::string_view key) {
    std::vector<std::shared_ptr<Object>> objects;
    if (auto found = mCoder.decodeArray<Object>(key)) {
      objects = *std::move(found);
    }
    mFindings.check(mCoder);
    for (std::size_t i = 0; i < objects.size(); ++i) {
      if (objects[i] != nullptr) {
        mFindings.takeOver(objects[i]->findings());
      } else {
        mFindings.add(std::string(key) + "[" + std::to_string(i) + "]",
                      "empty; it will be left out");
      }
    }
    std::erase(objects, nullptr);
    return objects;
  }

  // Its flags are set again when it is read.
  static SMPTETime timeOf(const VLInspectedItem& marker) {
    const auto item = marker.item(VLMarker::kTimeKey);
    if (item == nullptr) {
      return {};
    }
    auto time = item->value<SMPTETime>(KVSMPTETime::kTimestampKey);
    time.mFlags |= kSMPTETimeValid;
    return time;
  }

  void readMarkers() {
    const auto markers = objects<VLInspected<VLMarker>>(Keys::kMarkers);
    const std::string selection =
        value(&KeyedUnarchiver::decodeString, Keys::kSelection, std::string());
    const auto selected = IndexSetString::indexesOf(selection, markers.size());
    if (IndexSetString::fromIndexes(selected) != selection) {
      mFindings.add(std::string(Keys::kSelection),
                    quoted(selection) + " are not indexes of these markers");
    }
    tell("Markers", std::to_string(markers.size()));
    std::set<std::string> uuids;
    for (std::size_t i = 0; i < markers.size(); ++i) {
      const VLInspectedItem& marker = *markers[i];
      const SMPTETime time = timeOf(marker);
      checkTime(time, marker.path(VLMarker::kTimeKey));
      const auto uuid = marker.value<std::string>(VLMarker::kUUIDKey);
      if (!uuid.empty() && !uuids.insert(uuid).second) {
        mFindings.add(marker.path(VLMarker::kUUIDKey), "another marker has this id");
      }
      mText += line("%3s ", selected.contains(i) ? "*" : "") + textOf(time) + "  " +
               store::printable(marker.value<std::string>(VLMarker::kNameKey)) + "\n";
    }
  }

  void readDevices() {
    const auto devices = objects<VLInspectedDevice>(VLDeviceManager::kDevicesKey);
    if (const auto room = VLDeviceManager::checkDeviceCount(devices.size()); !room) {
      mFindings.add(std::string(VLDeviceManager::kDevicesKey), room.error().text);
    }
    tell("Devices", std::to_string(devices.size()));
    for (const auto& device : devices) {
      mText += "    " + device->text() + "\n";
    }
    const auto destinations = objects<VLInspectedDestination>(VLDeviceManager::kDestinationsKey);
    tell("Destinations", std::to_string(destinations.size()));
    for (const auto& destination : destinations) {
      mText +=
          std::string("    ") +
          (destination->value<bool>(VLTimecodeDestinationDevice::kEnableKey) ? "on   " : "off  ") +
          destination->text() + "\n";
    }
  }

  void readMediaWindows() {
    const auto windows = objects<VLInspected<VLMediaPlaybackWindowState>>(Keys::kMediaWindows);
    tell("Media windows", std::to_string(windows.size()));
    for (const auto& window : windows) {
      mText += "    " + window->text() + "\n";
    }
  }

  void readRest() {
    mFindings.addUnknown(mCoder);
    for (const std::string& path : mFindings.unknown()) {
      tell("Unknown", store::printable(path) + " (kept)");
    }
  }

  KeyedUnarchiver& mCoder;
  VLInspectFindings mFindings;
  std::string mText;
  std::uint32_t mFormat = 0;
};

}  // namespace

Expected<VLInspection> VLInspectDocument(std::string_view document) {
  auto coder = KeyedUnarchiver::read(document, VLInspectedItem::classes());
  if (!coder) {
    return tl::unexpected(coder.error());
  }
  return Inspecting(*coder).run();
}

int VLInspectRun(const std::string& file) {
  const auto fail = [](const std::string& error) {
    std::fprintf(stderr, "velor: --inspect: %s\n", store::printable(error).c_str());
    return 1;
  };
  const auto contents = store::AtomicFile::read(file, store::KeyedArchiveLimits::kBytes);
  if (!contents) {
    return fail(contents.error().text);
  }
  const auto found = VLInspectDocument(*contents);
  if (!found) {
    return fail(file + ": " + found.error().text);
  }
  std::fputs(found->text.c_str(), stdout);
  std::printf("%-14s%zu\n", "Problems", found->problems.size());
  for (const std::string& problem : found->problems) {
    std::printf("    %s\n", store::printable(problem).c_str());
  }
  if (!VLStandardOutput::hasTaken()) {
    return fail(VLStandardOutput::kRefusal);
  }
  return found->problems.empty() ? 0 : 1;
}

}  // namespace velor
