// SPDX-License-Identifier: MIT
// The working state as a document: its keys, and the order in which they are written
// and read.
#include <array>

#include "Kv-Appkit/KVException.h"
#include "Velor/app/IndexSetString.h"
#include "Velor/app/VLAppDelegate.h"
#include "Velor/app/VLDocumentKeys.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/devices/VLLTCGeneratorDevice.h"
#include "Velor/devices/VLLTCReaderDevice.h"
#include "kva/MIDI/KVMIDICore.h"
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

}  // namespace

std::span<const store::KeyedClass> VLAppDelegate::documentClasses() {
  return kDocumentClasses;
}

std::optional<std::filesystem::path> VLAppDelegate::lastStateFile() const {
  const store::FolderResult folder = mFolders.createData();
  if (!folder) {
    VELOR_LOG_ERROR("failed to create application support directory %s, %s",
                    mFolders.data().c_str(), folder.error.c_str());
    return std::nullopt;
  }
  return folder.path / "laststate.velor";
}

bool VLAppDelegate::failedToSave(const std::filesystem::path& path, const std::string& why) {
  mLastStateError = why;
  VELOR_LOG_WARNING("failed to write application state to %s", path.c_str());
  VELOR_LOG_WARNING("%s", why.c_str());
  return false;
}

// --- writing

bool VLAppDelegate::saveApplicationStateToURL(const std::filesystem::path& path) {
  const auto document = documentData();
  if (!document) {
    return failedToSave(path, mLastStateError);
  }
  if (const std::string error = store::AtomicFile::write(path, *document); !error.empty()) {
    return failedToSave(path, error);
  }
  VELOR_LOG_INFO("saved application state to %s", path.c_str());
  return true;
}

std::optional<std::string> VLAppDelegate::documentData() {
  try {
    store::KeyedArchiver coder;
    encodeApplicationState(coder);
    return coder.data();
  } catch (const store::KeyedArchiveError& error) {
    mLastStateError = error.what();
    return std::nullopt;
  }
}

void VLAppDelegate::encodeApplicationState(store::KeyedArchiver& coder) const {
  encodeSmpteTime(coder, mClock.time(), Keys::kTime);
  encodeSmpteTime(coder, mClock.smpteOffset(), Keys::kOffset);
  encodeSmpteTime(coder, mClock.stopTime(), Keys::kStopTime);
  encodeSmpteTime(coder, mClock.loopStartTime(), Keys::kLoopStart);
  encodeSmpteTime(coder, mClock.loopEndTime(), Keys::kLoopEnd);
  coder.encodeInt32(static_cast<std::int32_t>(mClock.smpteFormat()), Keys::kFormat);
  coder.encodeDouble(mClock.prerollTime(), Keys::kPrerollTime);
  coder.encodeBool(mClock.preroll(), Keys::kPreroll);
  coder.encodeDouble(mClock.playRate(), Keys::kPlayRate);
  coder.encodeInt64(static_cast<std::int64_t>(mClock.playMode()), Keys::kPlayMode);
  coder.encodeString(VELOR_VERSION, Keys::kVersion);
  if (const auto source = syncSource()) {
    coder.encodeInt32(source->uniqueID(), Keys::kSyncSource);
  }
  coder.encodeArray(mMarkerController.arrangedObjects(), Keys::kMarkers);
  coder.encodeString(stringFromIndexSet(mMarkerController.selectionIndexes()), Keys::kSelection);
  VLDeviceManager::sharedManager().encodeState(coder);
  coder.encodeRemainder(mUnknownState);
}

// --- reading

bool VLAppDelegate::loadApplicationStateFromURL(const std::filesystem::path& path) {
  const auto document = store::KeyedUnarchiver::readFile(path, kDocumentClasses);
  if (!document) {
    mLastStateError = document.error;
    VELOR_LOG_WARNING("failed to load application state from %s, error: %s", path.c_str(),
                      document.error.c_str());
    return false;
  }
  VELOR_LOG_INFO("will load application state from %s", path.c_str());
  if (!decodeApplicationState(*document.coder)) {
    VELOR_LOG_WARNING("error while restoring application state, set app to default values");
    return false;
  }
  VELOR_LOG_INFO("did load application state from %s", path.c_str());
  return true;
}

bool VLAppDelegate::decodeApplicationState(store::KeyedUnarchiver& coder) {
  constexpr const char* kFailed = "exception decoding application state: %s";
  bool isWhole = false;
  try {
    decodeClock(coder);
    VLDeviceManager::sharedManager().decodeState(coder);
    mUnknownState = coder.remainder();
    isWhole = true;
  } catch (const KVException& exception) {
    mLastStateError = exception.what();
  } catch (const store::KeyedArchiveError& error) {
    mLastStateError = error.what();
  } catch (...) {
    mUndoManager.removeAllActions();
    mLastStateError = "it cannot be taken over";
    return false;
  }
  if (!isWhole) {
    VELOR_LOG_ERROR(kFailed, mLastStateError.c_str());
    setupApplicationDefaultState();
  }
  mUndoManager.removeAllActions();
  return isWhole;
}

// The format first: every later time must fit it.
void VLAppDelegate::decodeClock(store::KeyedUnarchiver& coder) {
  mClock.setSmpteFormat(static_cast<std::uint32_t>(coder.decodeInt32(Keys::kFormat).value_or(0)));
  mClock.setPreroll(coder.decodeBool(Keys::kPreroll).value_or(false));
  mClock.setPrerollTime(coder.decodeDouble(Keys::kPrerollTime).value_or(0));
  const std::int64_t playMode = coder.decodeInt64(Keys::kPlayMode).value_or(0);
  mClock.setPlayMode(playMode != 0 ? static_cast<std::uint64_t>(playMode) : VLPlayModeNormal);
  decodeMarkers(coder);
  mClock.setLoopStartTime(decodeSmpteTimeForKey(coder, Keys::kLoopStart));
  mClock.setLoopEndTime(decodeSmpteTimeForKey(coder, Keys::kLoopEnd));

  const auto time = KVSMPTETime::smpteTimeWithTime(decodeSmpteTimeForKey(coder, Keys::kTime));
  if (!ltc_is_valid_type(time->type())) {
    throw store::KeyedArchiveError(std::string(Keys::kTime), "its format is none");
  }
  time->setType(mClock.smpteFormat());
  setCurrentTime(time);
  mClock.setSmpteOffset(decodeSmpteTimeForKey(coder, Keys::kOffset));
  mClock.setStopTime(decodeSmpteTimeForKey(coder, Keys::kStopTime));
  if (coder.containsValue(Keys::kSyncSource)) {
    const std::int32_t uniqueID = coder.decodeInt32(Keys::kSyncSource).value_or(0);
    setSyncSource(KVMIDICore::sharedCore().sourceWithUniqueId(uniqueID));
  } else {
    const double rate = coder.decodeDouble(Keys::kPlayRate).value_or(0);
    mClock.setPlayRate(rate != 0 ? rate : 1.0);
  }
}

void VLAppDelegate::decodeMarkers(store::KeyedUnarchiver& coder) {
  auto markers = coder.decodeArray<VLMarker>(Keys::kMarkers);
  if (!markers) {
    return;
  }
  std::erase(*markers, nullptr);
  const auto selection = coder.decodeString(Keys::kSelection).value_or("");
  // A clock that runs keeps its format, and the markers must be of it.
  for (const auto& marker : *markers) {
    if (marker->isValid()) {
      marker->time()->setType(mClock.smpteFormat());
    }
  }
  willChangeValueForKey("markers");
  mMarkers = std::move(*markers);
  mMarkerController.contentChanged();
  didChangeValueForKey("markers");
  mMarkerController.setSelectionIndexes(indexSetFromString(selection, mMarkers.size()));
}

void VLAppDelegate::setupApplicationDefaultState() {
  mClock.setSmpteFormat(kSMPTETimeType25);
}

// --- by the user's panels

void VLAppDelegate::saveDocument() {
  window->beginSavePanel(kFileType, [weak = weak_from_this()](const std::filesystem::path& path) {
    const auto self = weak.lock();
    if (self != nullptr && !path.empty() && !self->saveApplicationStateToURL(path)) {
      self->window->presentError(self->mLastStateError);
    }
  });
}

void VLAppDelegate::openDocument() {
  window->beginOpenPanel(kFileType, [weak = weak_from_this()](const std::filesystem::path& path) {
    const auto self = weak.lock();
    if (self != nullptr && !path.empty() && !self->loadApplicationStateFromURL(path)) {
      self->window->presentError(self->mLastStateError);
    }
  });
}

}  // namespace velor
