// SPDX-License-Identifier: MIT
#include "Velor/program/VLInspect.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <optional>
#include <set>

#include "Kv-Appkit/KVDecibelTransformer.h"
#include "Velor/app/IndexSetString.h"
#include "Velor/app/VLApplicationState.h"
#include "Velor/app/VLDocumentKeys.h"
#include "Velor/app/VLMarker.h"
#include "Velor/clock/VLClock.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/devices/VLLTCGeneratorDevice.h"
#include "Velor/devices/VLLTCReaderDevice.h"
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

// --- what stands in a document, under the names of the classes that it becomes

// Reads on after a value that cannot be used.
class Findings {
 public:
  template <class Read>
  void read(KeyedUnarchiver& coder, Read read) {
    read();
    if (const auto values = coder.check(); !values) {
      mProblems.push_back(values.error().text);
    }
  }
  void add(const std::string& path, const std::string& problem) {
    mProblems.push_back(path + ": " + problem);
  }
  void takeOver(const Findings& inner) {
    mProblems.insert(mProblems.end(), inner.mProblems.begin(), inner.mProblems.end());
    mUnknown.insert(mUnknown.end(), inner.mUnknown.begin(), inner.mUnknown.end());
  }
  // When all that is known has been asked for.
  void addUnknown(const KeyedUnarchiver& coder) {
    for (const std::string& key : coder.remainder().keys()) {
      mUnknown.push_back(coder.pathOf(key));
    }
  }

  std::vector<std::string>& problems() noexcept { return mProblems; }
  const std::vector<std::string>& unknown() const noexcept { return mUnknown; }

 private:
  std::vector<std::string> mProblems;
  std::vector<std::string> mUnknown;  // paths
};

// An object that is there to be told of.
class Passive : public store::KeyedCoding {
 public:
  void encodeWithCoder(store::KeyedArchiver& /*coder*/) const override {}

  Findings findings;

 protected:
  // One inside it, which may be missing.
  template <class Inner>
  std::shared_ptr<Inner> inner(KeyedUnarchiver& coder, std::string_view key) {
    std::shared_ptr<Inner> object;
    findings.read(coder, [&] { object = coder.decodeObject<Inner>(key); });
    if (object != nullptr) {
      findings.takeOver(object->findings);
    }
    return object;
  }
};

// Is read where an object of `Class` stands; has `read(coder)`, which asks for all its keys.
template <class Self, class Class, class Base = Passive>
class StandsFor : public Base {
 public:
  static constexpr std::string_view kClassName = Class::kClassName;

  static std::shared_ptr<Self> initWithCoder(KeyedUnarchiver& coder) {
    auto object = std::make_shared<Self>();
    object->read(coder);
    object->findings.addUnknown(coder);
    return object;
  }
  std::string_view archiveClassName() const override { return kClassName; }
};

std::string quoted(const std::string& name) {
  return "\"" + store::printable(name) + "\"";
}

// Behind the name of a device.
class Details {
 public:
  void add(const std::string& detail) { mText += (mText.empty() ? "" : ", ") + detail; }
  std::string text() const { return mText; }

 private:
  std::string mText;
};

struct Time final : StandsFor<Time, KVSMPTETime> {
  void read(KeyedUnarchiver& coder) {
    findings.read(coder, [&] { time = decodeSmpteTimeForKey(coder, KVSMPTETime::kTimestampKey); });
  }
  SMPTETime time{};
};

struct Marker final : StandsFor<Marker, VLMarker> {
  void read(KeyedUnarchiver& coder) {
    timePath = coder.pathOf(VLMarker::kTimeKey);
    uuidPath = coder.pathOf(VLMarker::kUUIDKey);
    findings.read(coder, [&] { uuid = coder.decodeString(VLMarker::kUUIDKey).value_or(""); });
    findings.read(coder, [&] { name = coder.decodeString(VLMarker::kNameKey).value_or(""); });
    if (const auto object = inner<Time>(coder, VLMarker::kTimeKey)) {
      time = object->time;
      // Its flags are set anew when it is read.
      time.mFlags |= kSMPTETimeValid;
    }
  }
  std::string timePath;
  std::string uuidPath;
  std::string uuid;
  std::string name;
  SMPTETime time{};
};

struct Endpoint final : StandsFor<Endpoint, KVMIDIEndpoint> {
  void read(KeyedUnarchiver& coder) {
    findings.read(coder, [&] {
      const auto id = coder.decodeInt32(KVMIDIEndpoint::kUniqueIDKey);
      if (coder.failed()) {
        return;
      }
      if (!id || *id == 0) {
        findings.add(coder.pathOf(KVMIDIEndpoint::kUniqueIDKey), "no id");
      }
      text = " [" + std::to_string(id.value_or(0)) + "]";
    });
    findings.read(coder, [&] {
      const auto name = coder.decodeString(KVMIDIEndpoint::kDisplayNameKey);
      text = coder.failed() ? text : quoted(name.value_or("")) + text;
    });
  }
  std::string text;
};

struct Device : Passive {
  static constexpr std::string_view kClassName = VLDevice::kClassName;

  // "LTC generator", what it is called, and more.
  virtual std::string text() const = 0;
};

struct EndpointDevice : StandsFor<EndpointDevice, VLMIDIEndpointDevice, Device> {
  void read(KeyedUnarchiver& coder) {
    endpoint = inner<Endpoint>(coder, VLMIDIEndpointDevice::kEndpointKey);
  }
  std::string text() const override {
    return "MIDI endpoint " + (endpoint != nullptr ? endpoint->text : "that is not known");
  }
  std::shared_ptr<Endpoint> endpoint;
};

struct ReaderDevice : StandsFor<ReaderDevice, VLReaderDevice, EndpointDevice> {
  std::string text() const override {
    return "reader " + (endpoint != nullptr ? endpoint->text : "that is not known");
  }
};

struct DestinationDevice : StandsFor<DestinationDevice, VLTimecodeDestinationDevice, Device> {
  void read(KeyedUnarchiver& coder) {
    findings.read(coder, [&] {
      isOn = coder.decodeBool(VLTimecodeDestinationDevice::kEnableKey).value_or(false);
    });
    device = inner<Device>(coder, VLTimecodeDestinationDevice::kDeviceKey);
  }
  std::string text() const override {
    return device != nullptr ? device->text() : "a destination without a device";
  }
  bool isOn = false;
  std::shared_ptr<Device> device;
};

struct Generator final : StandsFor<Generator, KVLTCGenerator> {
  void read(KeyedUnarchiver& coder) {
    findings.read(coder, [&] {
      const auto uid = coder.decodeString(KVLTCGenerator::kDeviceKey);
      if (coder.failed()) {
        return;
      }
      details.add(uid ? "audio device " + quoted(*uid) : "the default audio device");
    });
    findings.read(coder, [&] { readChannels(coder); });
    findings.read(coder, [&] {
      const double level = coder.decodeDouble(KVLTCGenerator::kLevelKey).value_or(0);
      if (coder.failed()) {
        return;
      }
      if (!(level >= 0 && level <= 1)) {
        findings.add(coder.pathOf(KVLTCGenerator::kLevelKey),
                     line("%g is not a level from 0 to 1", level));
      }
      details.add("level " + KVDecibelTransformer::transformedValue(level));
    });
    findings.read(coder, [&] {
      const auto bits = coder.decodeInt32(KVLTCGenerator::kUserBitsKey).value_or(0);
      if (coder.failed()) {
        return;
      }
      details.add(line("user bits %08" PRIx32, static_cast<std::uint32_t>(bits)));
    });
  }
  Details details;

 private:
  // A place a channel of the device, which has what plays there; -1 for nothing.
  void readChannels(KeyedUnarchiver& coder) {
    const auto map = coder.decodeBytes(KVLTCGenerator::kChannelMapKey);
    if (!map) {
      return;
    }
    if (map->size() % sizeof(std::int32_t) != 0) {
      findings.add(coder.pathOf(KVLTCGenerator::kChannelMapKey),
                   "expected entries of 4 bytes, found " + std::to_string(map->size()) + " bytes");
    }
    std::string channels;
    for (std::size_t i = 0; i < map->size() / sizeof(std::int32_t); ++i) {
      std::int32_t played = -1;
      std::memcpy(&played, map->data() + i * sizeof played, sizeof played);
      if (played >= 0) {
        channels += " " + std::to_string(i + 1);
      }
    }
    details.add(channels.empty() ? "on no channel" : "channels" + channels);
  }
};

struct GeneratorDevice final : StandsFor<GeneratorDevice, VLLTCGeneratorDevice, DestinationDevice> {
  void read(KeyedUnarchiver& coder) {
    DestinationDevice::read(coder);
    findings.read(coder,
                  [&] { name = coder.decodeString(VLLTCGeneratorDevice::kNameKey).value_or(""); });
    findings.read(coder,
                  [&] { id = coder.decodeInt32(VLLTCGeneratorDevice::kUniqueIDKey).value_or(0); });
    generator = inner<Generator>(coder, VLLTCGeneratorDevice::kGeneratorKey);
  }
  std::string text() const override {
    return "LTC generator " + quoted(name) + " [" + std::to_string(id) + "]" +
           (generator != nullptr ? ", " + generator->details.text() : "") +
           (isOn ? ", on" : ", off");
  }
  std::string name;
  std::int32_t id = 0;
  std::shared_ptr<Generator> generator;
};

struct Reader final : StandsFor<Reader, VLLTCReader> {
  void read(KeyedUnarchiver& coder) {
    findings.read(coder, [&] {
      const auto uid = coder.decodeString(VLLTCReader::kDeviceKey);
      if (coder.failed()) {
        return;
      }
      if (!uid) {
        findings.add(coder.pathOf(VLLTCReader::kDeviceKey), "no audio device");
      }
      details.add("audio device " + quoted(uid.value_or("")));
    });
    findings.read(coder, [&] {
      const auto channel = coder.decodeInt64(VLLTCReader::kChannelKey).value_or(0);
      if (coder.failed()) {
        return;
      }
      if (channel < 0 || channel > VLLTCReader::kNoChannel) {
        findings.add(coder.pathOf(VLLTCReader::kChannelKey),
                     line("%" PRId64 " is not a channel", channel));
      }
      details.add(channel == VLLTCReader::kNoChannel
                      ? "no channel"
                      : line("channel %" PRIu64, static_cast<std::uint64_t>(channel) + 1));
    });
    findings.read(coder, [&] {
      if (coder.decodeBool(VLLTCReader::kConditionKey).value_or(false)) {
        details.add("input conditioned");
      }
    });
  }
  Details details;
};

struct LTCReaderDevice final : StandsFor<LTCReaderDevice, VLLTCReaderDevice, ReaderDevice> {
  void read(KeyedUnarchiver& coder) {
    findings.read(coder,
                  [&] { name = coder.decodeString(VLLTCReaderDevice::kNameKey).value_or(""); });
    reader = inner<Reader>(coder, VLLTCReaderDevice::kReaderKey);
    findings.read(coder, [&] {
      seconds = coder.decodeInt32(VLLTCReaderDevice::kFreewheelTimeKey).value_or(0);
    });
    findings.read(coder,
                  [&] { id = coder.decodeInt32(VLLTCReaderDevice::kUniqueIDKey).value_or(0); });
    // Kept of the base class, and of no use.
    ReaderDevice::read(coder);
  }
  std::string text() const override {
    return "LTC reader " + quoted(name) + (reader != nullptr ? ", " + reader->details.text() : "") +
           ", freewheels " +
           (seconds < 0 ? "without end" : "for " + std::to_string(seconds) + " s");
  }
  std::string name;
  std::shared_ptr<Reader> reader;
  int seconds = 0;
  std::int32_t id = 0;
};

constexpr std::array<store::KeyedClass, 10> kPassiveClasses{
    store::KeyedClass::of<Time>(),         store::KeyedClass::of<Marker>(),
    store::KeyedClass::of<Endpoint>(),     store::KeyedClass::of<EndpointDevice>(),
    store::KeyedClass::of<ReaderDevice>(), store::KeyedClass::of<DestinationDevice>(),
    store::KeyedClass::of<Generator>(),    store::KeyedClass::of<GeneratorDevice>(),
    store::KeyedClass::of<Reader>(),       store::KeyedClass::of<LTCReaderDevice>()};

// --- the document

class Inspecting {
 public:
  explicit Inspecting(KeyedUnarchiver& coder) : mCoder(coder) {}

  VLInspection run() {
    readClock();
    readMarkers();
    readDevices();
    readRest();
    return {std::move(mText), std::move(mFindings.problems()), {}};
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
    mFindings.read(mCoder, [&] { other = (mCoder.*decode)(key).value_or(other); });
    return other;
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
    SMPTETime time{};
    mFindings.read(mCoder, [&] {
      time = decodeSmpteTimeForKey(mCoder, key);
      if (!mCoder.failed()) {
        checkTime(time, mCoder.pathOf(key));
      }
    });
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
    mFindings.read(mCoder, [&] {
      if (auto found = mCoder.decodeArray<Object>(key)) {
        objects = *std::move(found);
      }
    });
    for (std::size_t i = 0; i < objects.size(); ++i) {
      if (objects[i] != nullptr) {
        mFindings.takeOver(objects[i]->findings);
      } else {
        mFindings.add(std::string(key) + "[" + std::to_string(i) + "]",
                      "empty; it will be left out");
      }
    }
    std::erase(objects, nullptr);
    return objects;
  }

  void readMarkers() {
    const auto markers = objects<Marker>(Keys::kMarkers);
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
      const Marker& marker = *markers[i];
      checkTime(marker.time, marker.timePath);
      if (!marker.uuid.empty() && !uuids.insert(marker.uuid).second) {
        mFindings.add(marker.uuidPath, "another marker has this id");
      }
      mText += line("%3s ", selected.contains(i) ? "*" : "") + textOf(marker.time) + "  " +
               store::printable(marker.name) + "\n";
    }
  }

  void readDevices() {
    const auto devices = objects<Device>(VLDeviceManager::kDevicesKey);
    if (const auto problem = VLDeviceManager::tooManyDevices(devices.size()); !problem.empty()) {
      mFindings.add(std::string(VLDeviceManager::kDevicesKey), problem);
    }
    tell("Devices", std::to_string(devices.size()));
    for (const auto& device : devices) {
      mText += "    " + device->text() + "\n";
    }
    const auto destinations = objects<DestinationDevice>(VLDeviceManager::kDestinationsKey);
    tell("Destinations", std::to_string(destinations.size()));
    for (const auto& destination : destinations) {
      mText += std::string("    ") + (destination->isOn ? "on   " : "off  ") + destination->text() +
               "\n";
    }
  }

  void readRest() {
    mFindings.addUnknown(mCoder);
    for (const std::string& path : mFindings.unknown()) {
      tell("Unknown", store::printable(path) + " (kept)");
    }
  }

  KeyedUnarchiver& mCoder;
  Findings mFindings;
  std::string mText;
  std::uint32_t mFormat = 0;
};

}  // namespace

VLInspection VLInspectDocument(std::string_view document) {
  auto coder = KeyedUnarchiver::read(document, kPassiveClasses);
  return coder ? Inspecting(*coder).run() : VLInspection{{}, {}, coder.error().text};
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
  const VLInspection found = VLInspectDocument(*contents);
  if (!found.error.empty()) {
    return fail(file + ": " + found.error);
  }
  std::fputs(found.text.c_str(), stdout);
  std::printf("%-14s%zu\n", "Problems", found.problems.size());
  for (const std::string& problem : found.problems) {
    std::printf("    %s\n", store::printable(problem).c_str());
  }
  if (!VLStandardOutput::hasTaken()) {
    return fail(VLStandardOutput::kRefusal);
  }
  return found.problems.empty() ? 0 : 1;
}

}  // namespace velor
