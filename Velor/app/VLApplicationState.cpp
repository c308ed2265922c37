// SPDX-License-Identifier: MIT
#include "Velor/app/VLApplicationState.h"

#include <algorithm>
#include <array>

#include "Kv-Appkit/KVException.h"
#include "Velor/app/IndexSetString.h"
#include "Velor/app/VLAppDelegate.h"
#include "Velor/app/VLDocumentKeys.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/devices/VLLTCGeneratorDevice.h"
#include "Velor/devices/VLLTCReaderDevice.h"
#include "Velor/media/VLMediaPlaybackWindowState.h"
#include "kva/MIDI/KVMIDICore.h"
#include "kvtimecode/ltc_two_frames.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Log.h"
#include "platform/store/AtomicFile.h"

namespace velor {
namespace {

using Keys = VLDocumentKeys;

constexpr std::array<store::KeyedClass, 11> kDocumentClasses{
    store::KeyedClass::of<KVMIDIEndpoint>(),
    store::KeyedClass::of<VLMIDIEndpointDevice>(),
    store::KeyedClass::of<VLReaderDevice>(),
    store::KeyedClass::of<VLTimecodeDestinationDevice>(),
    store::KeyedClass::of<VLLTCGeneratorDevice>(),
    store::KeyedClass::of<KVLTCGenerator>(),
    store::KeyedClass::of<VLLTCReaderDevice>(),
    store::KeyedClass::of<VLLTCReader>(),
    store::KeyedClass::of<KVSMPTETime>(),
    store::KeyedClass::of<VLMarker>(),
    store::KeyedClass::of<VLMediaPlaybackWindowState>()};

// Applies a value, unless the coder has an error already: from there on the state stays.
template <class Value, class Apply>
void apply(store::KeyedUnarchiver& coder, std::string_view key, const Value& value, Apply apply) {
  if (coder.failed()) {
    return;
  }
  try {
    apply(value);
  } catch (const KVException& exception) {
    coder.refuse(key, exception.what());
  }
}

// For a value that is applied all the same: a later version may know it.
void warn(const store::KeyedUnarchiver& coder, std::string_view key, const std::string& what) {
  VELOR_LOG_WARNING("%s: %s", coder.pathOf(key).c_str(), what.c_str());
}

// A point may have been typed as a frame number that its drop format skips. The clock would
// count on from it, so the excess is carried.
SMPTETime decodeTime(store::KeyedUnarchiver& coder, std::string_view key) {
  const SMPTETime time = decodeSmpteTimeForKey(coder, key);
  SMPTETime normal = time;
  return ltc_is_valid(time) && ltc_normalize(normal) == 0 ? normal : time;
}

}  // namespace

std::span<const store::KeyedClass> VLApplicationState::classes() {
  return kDocumentClasses;
}

// --- writing

Expected<> VLApplicationState::saveToURL(const std::filesystem::path& path) {
  auto written =
      data(path.parent_path()).and_then([&path](const std::string& document) -> Expected<> {
        return store::AtomicFile::write(path, document);
      });
  if (!written) {
    VELOR_LOG_WARNING("failed to write application state to %s", path.c_str());
    VELOR_LOG_WARNING("%s", written.error().text.c_str());
    return written;
  }
  VELOR_LOG_INFO("saved application state to %s", path.c_str());
  return written;
}

Expected<std::string> VLApplicationState::data(const std::filesystem::path& folder) const {
  store::KeyedArchiver coder;
  encode(coder, folder);
  return coder.data();
}

void VLApplicationState::encode(store::KeyedArchiver& coder,
                                const std::filesystem::path& folder) const {
  encodeSmpteTime(coder, mApp.clock().time(), Keys::kTime);
  encodeSmpteTime(coder, mApp.clock().smpteOffset(), Keys::kOffset);
  encodeSmpteTime(coder, mApp.clock().stopTime(), Keys::kStopTime);
  encodeSmpteTime(coder, mApp.clock().loopStartTime(), Keys::kLoopStart);
  encodeSmpteTime(coder, mApp.clock().loopEndTime(), Keys::kLoopEnd);
  coder.encodeInt32(static_cast<std::int32_t>(mApp.clock().smpteFormat()), Keys::kFormat);
  coder.encodeDouble(mApp.clock().prerollTime(), Keys::kPrerollTime);
  coder.encodeBool(mApp.clock().preroll(), Keys::kPreroll);
  coder.encodeDouble(mApp.clock().playRate(), Keys::kPlayRate);
  coder.encodeInt64(static_cast<std::int64_t>(mApp.clock().playMode()), Keys::kPlayMode);
  coder.encodeString(VELOR_VERSION, Keys::kVersion);
  if (const auto source = mApp.syncSourceAfterStop()) {
    coder.encodeInt32(source->uniqueID(), Keys::kSyncSource);
  }
  coder.encodeArray(mApp.markers().controller().arrangedObjects(), Keys::kMarkers);
  coder.encodeString(IndexSetString::fromIndexes(mApp.markers().controller().selectionIndexes()),
                     Keys::kSelection);
  if (ltc_exact_drop()) {
    coder.encodeBool(true, Keys::kExactDrop);
  }
  VLDeviceManager::sharedManager().encodeState(coder);
  coder.encodeArray(mApp.mediaWindows().encodedStates(folder), Keys::kMediaWindows);
  coder.encodeRemainder(mRemainder);
}

// --- reading

Expected<VLApplicationState::Unrestored> VLApplicationState::loadFromURL(
    const std::filesystem::path& path) {
  auto document = store::KeyedUnarchiver::readFile(path, kDocumentClasses);
  if (!document) {
    VELOR_LOG_WARNING("failed to load application state from %s, error: %s", path.c_str(),
                      document.error().text.c_str());
    return failure(document.error().text);
  }
  VELOR_LOG_INFO("will load application state from %s", path.c_str());
  auto decoded = decode(*document, path.parent_path());
  if (!decoded) {
    VELOR_LOG_WARNING("error while restoring application state, set app to default values");
    return failure(path.string() + ": " + decoded.error().text);
  }
  VELOR_LOG_INFO("did load application state from %s", path.c_str());
  if (*decoded) {
    (*decoded)->text.insert(0, path.string() + ": ");
  }
  return decoded;
}

Expected<VLApplicationState::Unrestored> VLApplicationState::decode(
    store::KeyedUnarchiver& coder, const std::filesystem::path& folder) {
  constexpr const char* kFailed = "exception decoding application state: %s";
  Unrestored unrestored;
  Expected<> values;
  try {
    decodeClock(coder);
    // The input of the media windows before the devices, so that a stored route finds it.
    const auto windows = coder.decodeArray<VLMediaPlaybackWindowState>(Keys::kMediaWindows);
    if (windows && !coder.failed()) {
      VLMediaWindows::prepareFor(*windows);
    }
    if (!coder.failed()) {
      if (const auto devices = VLDeviceManager::sharedManager().decodeState(coder); !devices) {
        unrestored = devices.error();
      }
      mRemainder = coder.remainder();
    }
    if (windows && !coder.failed()) {
      mApp.mediaWindows().restore(*windows, folder);
    }
    values = coder.check();
  } catch (const KVException& exception) {
    values = failure(exception.what());
  } catch (...) {
    mApp.undoManager().removeAllActions();
    return failure("it cannot be loaded");
  }
  if (!values) {
    VELOR_LOG_ERROR(kFailed, values.error().text.c_str());
    mApp.setupApplicationDefaultState();
  }
  mApp.undoManager().removeAllActions();
  return values.map([&unrestored] { return unrestored; });
}

// The format first: every later time must fit it.
void VLApplicationState::decodeClock(store::KeyedUnarchiver& coder) {
  VLClock& clock = mApp.clock();
  apply(coder, Keys::kFormat, coder.decodeInt32(Keys::kFormat).value_or(0), [&](auto stored) {
    const auto format = static_cast<std::uint32_t>(stored);
    if (!ltc_is_valid_type(format)) {
      warn(coder, Keys::kFormat, std::to_string(format) + " is not a format");
    }
    clock.setSmpteFormat(format);
  });
  apply(coder, Keys::kExactDrop, coder.decodeBool(Keys::kExactDrop).value_or(false),
        [](bool isExact) { ltc_set_exact_drop(isExact); });
  apply(coder, Keys::kPreroll, coder.decodeBool(Keys::kPreroll).value_or(false),
        [&](bool preroll) { clock.setPreroll(preroll); });
  apply(coder, Keys::kPrerollTime, coder.decodeDouble(Keys::kPrerollTime).value_or(0),
        [&](double seconds) { clock.setPrerollTime(seconds); });
  decodePlayMode(coder);
  decodeMarkers(coder);
  apply(coder, Keys::kLoopStart, decodeTime(coder, Keys::kLoopStart),
        [&](const SMPTETime& time) { clock.setLoopStartTime(time); });
  apply(coder, Keys::kLoopEnd, decodeTime(coder, Keys::kLoopEnd),
        [&](const SMPTETime& time) { clock.setLoopEndTime(time); });
  apply(coder, Keys::kTime, decodeTime(coder, Keys::kTime), [&](const SMPTETime& stored) {
    const auto time = KVSMPTETime::smpteTimeWithTime(stored);
    if (!ltc_is_valid_type(time->type())) {
      coder.refuse(Keys::kTime, "it has no format");
      return;
    }
    time->setType(clock.smpteFormat());
    mApp.setCurrentTime(time);
  });
  apply(coder, Keys::kOffset, decodeTime(coder, Keys::kOffset),
        [&](const SMPTETime& time) { clock.setSmpteOffset(time); });
  apply(coder, Keys::kStopTime, decodeTime(coder, Keys::kStopTime),
        [&](const SMPTETime& time) { clock.setStopTime(time); });
  decodeSource(coder);
}

void VLApplicationState::decodeSource(store::KeyedUnarchiver& coder) {
  if (coder.containsValue(Keys::kSyncSource)) {
    apply(coder, Keys::kSyncSource, coder.decodeInt32(Keys::kSyncSource).value_or(0),
          [&](std::int32_t uniqueID) {
            mApp.setSyncSource(KVMIDICore::sharedCore().sourceWithUniqueId(uniqueID));
          });
    return;
  }
  apply(coder, Keys::kPlayRate, coder.decodeDouble(Keys::kPlayRate).value_or(0), [&](double rate) {
    if (rate != 0 && !(rate >= kLeastPlayRate && rate <= kMostPlayRate)) {
      coder.refuse(Keys::kPlayRate, "it is not a rate");
      return;
    }
    mApp.clock().setPlayRate(rate != 0 ? rate : 1.0);
  });
}

void VLApplicationState::decodePlayMode(store::KeyedUnarchiver& coder) {
  const auto stored = static_cast<std::uint64_t>(coder.decodeInt64(Keys::kPlayMode).value_or(0));
  apply(coder, Keys::kPlayMode, stored != 0 ? stored : VLPlayModeNormal, [&](auto playMode) {
    if (std::none_of(kVLPlayModes.begin(), kVLPlayModes.end(),
                     [playMode](const auto& row) { return row.playMode == playMode; })) {
      warn(coder, Keys::kPlayMode, std::to_string(playMode) + " is not a play mode");
    }
    mApp.clock().setPlayMode(playMode);
  });
}

void VLApplicationState::decodeMarkers(store::KeyedUnarchiver& coder) {
  auto markers = coder.decodeArray<VLMarker>(Keys::kMarkers);
  const auto selection = coder.decodeString(Keys::kSelection).value_or("");
  if (!markers || coder.failed()) {
    return;
  }
  std::erase(*markers, nullptr);
  const std::size_t count = markers->size();
  mApp.letGo(std::make_shared<VLMarkerList::Markers>(mApp.markers().markers()));
  mApp.markers().setMarkers(std::move(*markers));
  mApp.markers().controller().setSelectionIndexes(IndexSetString::indexesOf(selection, count));
}

}  // namespace velor
