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
#include "kva/MIDI/KVMIDICore.h"
#include "kvtimecode/ltc_two_frames.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Log.h"
#include "platform/store/AtomicFile.h"
#include "platform/store/KeyedArchiveError.h"

namespace velor {
namespace {

using Keys = VLDocumentKeys;

constexpr std::array<store::KeyedClass, 10> kDocumentClasses{
    store::KeyedClass::of<KVMIDIEndpoint>(),
    store::KeyedClass::of<VLMIDIEndpointDevice>(),
    store::KeyedClass::of<VLReaderDevice>(),
    store::KeyedClass::of<VLTimecodeDestinationDevice>(),
    store::KeyedClass::of<VLLTCGeneratorDevice>(),
    store::KeyedClass::of<KVLTCGenerator>(),
    store::KeyedClass::of<VLLTCReaderDevice>(),
    store::KeyedClass::of<VLLTCReader>(),
    store::KeyedClass::of<KVSMPTETime>(),
    store::KeyedClass::of<VLMarker>()};

// Adds the place to the error of a value that the clock refuses.
template <class Set>
void take(const store::KeyedUnarchiver& coder, std::string_view key, Set set) {
  try {
    set();
  } catch (const KVException& exception) {
    throw store::KeyedArchiveError(coder.pathOf(key), exception.what());
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

bool VLApplicationState::failedToSave(const std::filesystem::path& path, const std::string& why) {
  mError = why;
  VELOR_LOG_WARNING("failed to write application state to %s", path.c_str());
  VELOR_LOG_WARNING("%s", why.c_str());
  return false;
}

// --- writing

bool VLApplicationState::saveToURL(const std::filesystem::path& path) {
  const auto document = data();
  if (!document) {
    return failedToSave(path, mError);
  }
  if (const std::string error = store::AtomicFile::write(path, *document); !error.empty()) {
    return failedToSave(path, error);
  }
  VELOR_LOG_INFO("saved application state to %s", path.c_str());
  return true;
}

std::optional<std::string> VLApplicationState::data() {
  try {
    store::KeyedArchiver coder;
    encode(coder);
    return coder.data();
  } catch (const store::KeyedArchiveError& error) {
    mError = error.what();
    return std::nullopt;
  }
}

void VLApplicationState::encode(store::KeyedArchiver& coder) const {
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
  coder.encodeRemainder(mRemainder);
}

// --- reading

bool VLApplicationState::loadFromURL(const std::filesystem::path& path) {
  auto document = store::KeyedUnarchiver::readFile(path, kDocumentClasses);
  if (!document) {
    mError = document.error;
    VELOR_LOG_WARNING("failed to load application state from %s, error: %s", path.c_str(),
                      document.error.c_str());
    return false;
  }
  VELOR_LOG_INFO("will load application state from %s", path.c_str());
  if (!decode(*document.coder)) {
    mError = path.string() + ": " + mError;
    VELOR_LOG_WARNING("error while restoring application state, set app to default values");
    return false;
  }
  VELOR_LOG_INFO("did load application state from %s", path.c_str());
  const std::string devices = VLDeviceManager::sharedManager().decodeError();
  mError = devices.empty() ? "" : path.string() + ": " + devices;
  return true;
}

bool VLApplicationState::decode(store::KeyedUnarchiver& coder) {
  constexpr const char* kFailed = "exception decoding application state: %s";
  bool isWhole = false;
  try {
    decodeClock(coder);
    VLDeviceManager::sharedManager().decodeState(coder);
    mRemainder = coder.remainder();
    isWhole = true;
  } catch (const KVException& exception) {
    mError = exception.what();
  } catch (const store::KeyedArchiveError& error) {
    mError = error.what();
  } catch (...) {
    mApp.undoManager().removeAllActions();
    mError = "it cannot be loaded";
    return false;
  }
  if (!isWhole) {
    VELOR_LOG_ERROR(kFailed, mError.c_str());
    mApp.setupApplicationDefaultState();
  }
  mApp.undoManager().removeAllActions();
  return isWhole;
}

// The format first: every later time must fit it.
void VLApplicationState::decodeClock(store::KeyedUnarchiver& coder) {
  VLClock& clock = mApp.clock();
  const auto format = static_cast<std::uint32_t>(coder.decodeInt32(Keys::kFormat).value_or(0));
  if (!ltc_is_valid_type(format)) {
    warn(coder, Keys::kFormat, std::to_string(format) + " is not a format");
  }
  clock.setSmpteFormat(format);
  ltc_set_exact_drop(coder.decodeBool(Keys::kExactDrop).value_or(false));
  clock.setPreroll(coder.decodeBool(Keys::kPreroll).value_or(false));
  take(coder, Keys::kPrerollTime,
       [&] { clock.setPrerollTime(coder.decodeDouble(Keys::kPrerollTime).value_or(0)); });
  decodePlayMode(coder);
  decodeMarkers(coder);
  clock.setLoopStartTime(decodeTime(coder, Keys::kLoopStart));
  clock.setLoopEndTime(decodeTime(coder, Keys::kLoopEnd));

  const auto time = KVSMPTETime::smpteTimeWithTime(decodeTime(coder, Keys::kTime));
  if (!ltc_is_valid_type(time->type())) {
    throw store::KeyedArchiveError(coder.pathOf(Keys::kTime), "it has no format");
  }
  time->setType(clock.smpteFormat());
  mApp.setCurrentTime(time);
  take(coder, Keys::kOffset, [&] { clock.setSmpteOffset(decodeTime(coder, Keys::kOffset)); });
  clock.setStopTime(decodeTime(coder, Keys::kStopTime));
  if (coder.containsValue(Keys::kSyncSource)) {
    const std::int32_t uniqueID = coder.decodeInt32(Keys::kSyncSource).value_or(0);
    mApp.setSyncSource(KVMIDICore::sharedCore().sourceWithUniqueId(uniqueID));
  } else {
    const double rate = coder.decodeDouble(Keys::kPlayRate).value_or(0);
    if (rate != 0 && !(rate >= kLeastPlayRate && rate <= kMostPlayRate)) {
      throw store::KeyedArchiveError(coder.pathOf(Keys::kPlayRate), "it is not a rate");
    }
    clock.setPlayRate(rate != 0 ? rate : 1.0);
  }
}

void VLApplicationState::decodePlayMode(store::KeyedUnarchiver& coder) {
  const auto stored = static_cast<std::uint64_t>(coder.decodeInt64(Keys::kPlayMode).value_or(0));
  const std::uint64_t playMode = stored != 0 ? stored : VLPlayModeNormal;
  if (std::none_of(kVLPlayModes.begin(), kVLPlayModes.end(),
                   [playMode](const auto& row) { return row.playMode == playMode; })) {
    warn(coder, Keys::kPlayMode, std::to_string(playMode) + " is not a play mode");
  }
  mApp.clock().setPlayMode(playMode);
}

void VLApplicationState::decodeMarkers(store::KeyedUnarchiver& coder) {
  auto markers = coder.decodeArray<VLMarker>(Keys::kMarkers);
  if (!markers) {
    return;
  }
  std::erase(*markers, nullptr);
  const auto selection = coder.decodeString(Keys::kSelection).value_or("");
  const std::size_t count = markers->size();
  mApp.letGo(std::make_shared<VLMarkerList::Markers>(mApp.markers().markers()));
  mApp.markers().setMarkers(std::move(*markers));
  mApp.markers().controller().setSelectionIndexes(IndexSetString::indexesOf(selection, count));
}

}  // namespace velor
