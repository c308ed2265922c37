// SPDX-License-Identifier: MIT
#include "Velor/program/VLInspectedItem.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <optional>

#include "Kv-Appkit/KVDecibelTransformer.h"
#include "Velor/app/VLMarker.h"
#include "Velor/devices/VLLTCGeneratorDevice.h"
#include "Velor/devices/VLLTCReaderDevice.h"
#include "Velor/media/VLMediaBookmark.h"
#include "Velor/media/VLMediaPlaybackWindowState.h"
#include "kvtimecode/SMPTEString.h"
#include "platform/store/Printable.h"

namespace velor {
namespace {

using Item = VLInspectedItem;
using Value = Item::Value;
using store::KeyedUnarchiver;

// --- the keys of the classes

template <auto decode, class Stored>
Value decoded(KeyedUnarchiver& coder, std::string_view key) {
  const auto value = (coder.*decode)(key);
  return value ? Value(static_cast<Stored>(*value)) : Value();
}
constexpr auto kBool = &decoded<&KeyedUnarchiver::decodeBool, bool>;
constexpr auto kInt32 = &decoded<&KeyedUnarchiver::decodeInt32, std::int64_t>;
constexpr auto kInt64 = &decoded<&KeyedUnarchiver::decodeInt64, std::int64_t>;
constexpr auto kDouble = &decoded<&KeyedUnarchiver::decodeDouble, double>;
constexpr auto kString = &decoded<&KeyedUnarchiver::decodeString, std::string>;
constexpr auto kBytes = &decoded<&KeyedUnarchiver::decodeBytes, std::vector<std::uint8_t>>;

Value decodedTime(KeyedUnarchiver& coder, std::string_view key) {
  return decodeSmpteTimeForKey(coder, key);
}

template <class Class>
Value decodedItem(KeyedUnarchiver& coder, std::string_view key) {
  return std::shared_ptr<Item>(coder.decodeObject<Class>(key));
}

// --- what is wrong with a value of the right kind

using Problem = std::optional<std::string>;

template <class Number>
Number numberOf(const Value& value) {
  const auto* number = std::get_if<Number>(&value);
  return number != nullptr ? *number : Number{};
}

Problem missingID(const Value& value) {
  return numberOf<std::int64_t>(value) == 0 ? Problem("no id") : std::nullopt;
}
Problem missingDevice(const Value& value) {
  return std::holds_alternative<std::monostate>(value) ? Problem("no audio device") : std::nullopt;
}
Problem wrongLevel(const Value& value) {
  const auto level = numberOf<double>(value);
  if (level >= 0 && level <= 1) {
    return std::nullopt;
  }
  char text[64];
  std::snprintf(text, sizeof text, "%g is not a level from 0 to 1", level);
  return text;
}
Problem wrongMap(const Value& value) {
  const auto* map = std::get_if<std::vector<std::uint8_t>>(&value);
  return map != nullptr && map->size() % sizeof(std::int32_t) != 0
             ? Problem("expected entries of 4 bytes, found " + std::to_string(map->size()) +
                       " bytes")
             : std::nullopt;
}
Problem wrongChannel(const Value& value) {
  const auto channel = numberOf<std::int64_t>(value);
  return channel < 0 || channel > VLLTCReader::kNoChannel
             ? Problem(std::to_string(channel) + " is not a channel")
             : std::nullopt;
}

struct Row {
  std::string_view className;
  std::string_view key;
  Value (*decode)(KeyedUnarchiver& coder, std::string_view key);
  Problem (*problem)(const Value& value) = nullptr;
};

using Destination = VLTimecodeDestinationDevice;
using Generator = VLLTCGeneratorDevice;
using Reader = VLLTCReaderDevice;
using MediaWindow = VLMediaPlaybackWindowState;

constexpr Row kRows[] = {
    {KVSMPTETime::kClassName, KVSMPTETime::kTimestampKey, &decodedTime},
    {VLMarker::kClassName, VLMarker::kUUIDKey, kString},
    {VLMarker::kClassName, VLMarker::kNameKey, kString},
    {VLMarker::kClassName, VLMarker::kTimeKey, &decodedItem<VLInspected<KVSMPTETime>>},
    {KVMIDIEndpoint::kClassName, KVMIDIEndpoint::kUniqueIDKey, kInt32, &missingID},
    {KVMIDIEndpoint::kClassName, KVMIDIEndpoint::kDisplayNameKey, kString},
    {VLMIDIEndpointDevice::kClassName, VLMIDIEndpointDevice::kEndpointKey,
     &decodedItem<VLInspected<KVMIDIEndpoint>>},
    {VLReaderDevice::kClassName, VLReaderDevice::kEndpointKey,
     &decodedItem<VLInspected<KVMIDIEndpoint>>},
    {Destination::kClassName, Destination::kEnableKey, kBool},
    {Destination::kClassName, Destination::kDeviceKey, &decodedItem<VLInspectedDevice>},
    {Generator::kClassName, Generator::kEnableKey, kBool},
    {Generator::kClassName, Generator::kDeviceKey, &decodedItem<VLInspectedDevice>},
    {Generator::kClassName, Generator::kNameKey, kString},
    {Generator::kClassName, Generator::kUniqueIDKey, kInt32},
    {Generator::kClassName, Generator::kGeneratorKey, &decodedItem<VLInspected<KVLTCGenerator>>},
    {KVLTCGenerator::kClassName, KVLTCGenerator::kDeviceKey, kString},
    {KVLTCGenerator::kClassName, KVLTCGenerator::kChannelMapKey, kBytes, &wrongMap},
    {KVLTCGenerator::kClassName, KVLTCGenerator::kLevelKey, kDouble, &wrongLevel},
    {KVLTCGenerator::kClassName, KVLTCGenerator::kUserBitsKey, kInt32},
    {Reader::kClassName, Reader::kNameKey, kString},
    {Reader::kClassName, Reader::kReaderKey, &decodedItem<VLInspected<VLLTCReader>>},
    {Reader::kClassName, Reader::kFreewheelTimeKey, kInt32},
    {Reader::kClassName, Reader::kUniqueIDKey, kInt32},
    // Kept of the base class, and of no use.
    {Reader::kClassName, Reader::kEndpointKey, &decodedItem<VLInspected<KVMIDIEndpoint>>},
    {VLLTCReader::kClassName, VLLTCReader::kDeviceKey, kString, &missingDevice},
    {VLLTCReader::kClassName, VLLTCReader::kChannelKey, kInt64, &wrongChannel},
    {VLLTCReader::kClassName, VLLTCReader::kConditionKey, kBool},
    {MediaWindow::kClassName, MediaWindow::kBookmarkKey, kBytes},
    {MediaWindow::kClassName, MediaWindow::kStartTimeKey, &decodedItem<VLInspected<KVSMPTETime>>},
    {MediaWindow::kClassName, MediaWindow::kAudioSumModeKey, kInt32},
    {MediaWindow::kClassName, MediaWindow::kControlMasterClockKey, kBool},
    {MediaWindow::kClassName, MediaWindow::kOnlineKey, kBool},
    {MediaWindow::kClassName, MediaWindow::kVolumeKey, kDouble, &wrongLevel},
    {MediaWindow::kClassName, MediaWindow::kAdjustSpeedKey, kBool},
};

constexpr std::array<store::KeyedClass, 11> kClasses{
    store::KeyedClass::of<VLInspected<KVSMPTETime>>(),
    store::KeyedClass::of<VLInspected<VLMarker>>(),
    store::KeyedClass::of<VLInspected<KVMIDIEndpoint>>(),
    store::KeyedClass::of<VLInspectedEndpointDevice>(),
    store::KeyedClass::of<VLInspectedReaderDevice>(),
    store::KeyedClass::of<VLInspectedDestination>(),
    store::KeyedClass::of<VLInspected<KVLTCGenerator>>(),
    store::KeyedClass::of<VLInspected<VLLTCGeneratorDevice, VLInspectedDestination>>(),
    store::KeyedClass::of<VLInspected<VLLTCReader>>(),
    store::KeyedClass::of<VLInspected<VLLTCReaderDevice, VLInspectedReaderDevice>>(),
    store::KeyedClass::of<VLInspected<VLMediaPlaybackWindowState>>()};

std::string quoted(const std::string& name) {
  return "\"" + store::printable(name) + "\"";
}

// A place a channel of the device, which has what plays there; -1 for nothing.
std::string channelsOf(const std::vector<std::uint8_t>& map) {
  std::string channels;
  for (std::size_t i = 0; i < map.size() / sizeof(std::int32_t); ++i) {
    std::int32_t played = -1;
    std::memcpy(&played, map.data() + i * sizeof played, sizeof played);
    if (played >= 0) {
      channels += " " + std::to_string(i + 1);
    }
  }
  return channels.empty() ? "on no channel" : "channels" + channels;
}

}  // namespace

// --- findings

bool VLInspectFindings::check(KeyedUnarchiver& coder) {
  const auto values = coder.check();
  if (!values) {
    mProblems.push_back(values.error().text);
  }
  return values.has_value();
}

void VLInspectFindings::add(const std::string& path, const std::string& problem) {
  mProblems.push_back(path + ": " + problem);
}

void VLInspectFindings::takeOver(const VLInspectFindings& inner) {
  mProblems.insert(mProblems.end(), inner.mProblems.begin(), inner.mProblems.end());
  mUnknown.insert(mUnknown.end(), inner.mUnknown.begin(), inner.mUnknown.end());
}

void VLInspectFindings::addUnknown(const KeyedUnarchiver& coder) {
  for (const std::string& key : coder.remainder().keys()) {
    mUnknown.push_back(coder.pathOf(key));
  }
}

// --- items

std::span<const store::KeyedClass> VLInspectedItem::classes() {
  return kClasses;
}

void VLInspectedItem::read(KeyedUnarchiver& coder, std::string_view className) {
  mClassName = className;
  for (const Row& row : kRows) {
    if (row.className != className) {
      continue;
    }
    Cell& cell = mCells[row.key];
    cell.path = coder.pathOf(row.key);
    Value value = row.decode(coder, row.key);
    cell.isRead = mFindings.check(coder);
    if (!cell.isRead) {
      continue;
    }
    cell.value = std::move(value);
    if (const auto problem = row.problem != nullptr ? row.problem(cell.value) : std::nullopt) {
      mFindings.add(cell.path, *problem);
    }
    if (const auto inner = item(row.key)) {
      mFindings.takeOver(inner->mFindings);
    }
  }
  mFindings.addUnknown(coder);
}

// --- texts

std::string VLInspectedItem::text() const {
  if (mClassName == KVMIDIEndpoint::kClassName) {
    const std::string id =
        mCells.at(KVMIDIEndpoint::kUniqueIDKey).isRead
            ? " [" + std::to_string(value<std::int64_t>(KVMIDIEndpoint::kUniqueIDKey)) + "]"
            : "";
    return mCells.at(KVMIDIEndpoint::kDisplayNameKey).isRead
               ? quoted(value<std::string>(KVMIDIEndpoint::kDisplayNameKey)) + id
               : id;
  }
  if (mClassName == Generator::kClassName) {
    const auto generator = item(Generator::kGeneratorKey);
    return "LTC generator " + quoted(value<std::string>(Generator::kNameKey)) + " [" +
           std::to_string(value<std::int64_t>(Generator::kUniqueIDKey)) + "]" +
           (generator != nullptr ? generator->generatorText() : "") +
           (value<bool>(Generator::kEnableKey) ? ", on" : ", off");
  }
  if (mClassName == Reader::kClassName) {
    const auto reader = item(Reader::kReaderKey);
    const auto seconds = value<std::int64_t>(Reader::kFreewheelTimeKey);
    return "LTC reader " + quoted(value<std::string>(Reader::kNameKey)) +
           (reader != nullptr ? reader->readerText() : "") + ", freewheels " +
           (seconds < 0 ? "without end" : "for " + std::to_string(seconds) + " s");
  }
  if (mClassName == Destination::kClassName) {
    const auto device = item(Destination::kDeviceKey);
    return device != nullptr ? device->text() : "a destination without a device";
  }
  if (mClassName == MediaWindow::kClassName) {
    return mediaWindowText();
  }
  const auto endpoint = item(VLMIDIEndpointDevice::kEndpointKey);
  return (mClassName == VLReaderDevice::kClassName ? "reader " : "MIDI endpoint ") +
         (endpoint != nullptr ? endpoint->text() : "that is not known");
}

// Each detail behind a comma; one that cannot be read is left out.
std::string VLInspectedItem::generatorText() const {
  std::string text;
  if (const Cell& device = mCells.at(KVLTCGenerator::kDeviceKey); device.isRead) {
    const auto* uid = std::get_if<std::string>(&device.value);
    text += ", " + (uid != nullptr ? "audio device " + quoted(*uid) : "the default audio device");
  }
  if (const auto* map = std::get_if<std::vector<std::uint8_t>>(
          &mCells.at(KVLTCGenerator::kChannelMapKey).value)) {
    text += ", " + channelsOf(*map);
  }
  if (mCells.at(KVLTCGenerator::kLevelKey).isRead) {
    text += ", level " +
            KVDecibelTransformer::transformedValue(value<double>(KVLTCGenerator::kLevelKey));
  }
  if (mCells.at(KVLTCGenerator::kUserBitsKey).isRead) {
    char bits[32];
    std::snprintf(bits, sizeof bits, ", user bits %08x",
                  static_cast<unsigned>(value<std::int64_t>(KVLTCGenerator::kUserBitsKey)));
    text += bits;
  }
  return text;
}

std::string VLInspectedItem::readerText() const {
  std::string text;
  if (mCells.at(VLLTCReader::kDeviceKey).isRead) {
    text += ", audio device " + quoted(value<std::string>(VLLTCReader::kDeviceKey));
  }
  if (mCells.at(VLLTCReader::kChannelKey).isRead) {
    const auto channel = value<std::int64_t>(VLLTCReader::kChannelKey);
    text += channel == VLLTCReader::kNoChannel ? ", no channel"
                                               : ", channel " + std::to_string(channel + 1);
  }
  return text + (value<bool>(VLLTCReader::kConditionKey) ? ", input conditioned" : "");
}

std::string VLInspectedItem::mediaWindowText() const {
  const auto data = value<std::vector<std::uint8_t>>(MediaWindow::kBookmarkKey);
  const auto clip = VLMediaBookmark::fromData(data).absolute.string();
  const auto start = item(MediaWindow::kStartTimeKey);
  return (clip.empty() ? "a window without a clip" : "clip " + quoted(clip)) +
         (start != nullptr
              ? " at " + stringFromSMPTETime(start->value<SMPTETime>(KVSMPTETime::kTimestampKey))
              : "") +
         (value<bool>(MediaWindow::kOnlineKey) ? ", on line" : ", off line") +
         (value<bool>(MediaWindow::kControlMasterClockKey) ? ", controls the master clock" : "");
}

}  // namespace velor
