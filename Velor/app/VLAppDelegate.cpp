// SPDX-License-Identifier: MIT
#include "Velor/app/VLAppDelegate.h"

#include <algorithm>
#include <array>
#include <utility>

#include "Kv-Appkit/KVAssert.h"
#include "Kv-Appkit/KVNotificationCenter.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/devices/VLTimecodeDestinationDevice.h"
#include "Velor/osc/VLOSCClientDispatcher.h"
#include "kva/MIDI/KVMIDICore.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_two_frames.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Host.h"
#include "platform/host/Log.h"

namespace velor {
namespace {

using Image = VLMainWindowOutlet::Image;

// In the order of the menus. 23.98 is for decoding alone.
constexpr std::array<std::uint32_t, 6> kOfferedFormats{kSMPTETimeType24,   kSMPTETimeType25,
                                                       kSMPTETimeType2997, kSMPTETimeType2997Drop,
                                                       kSMPTETimeType30,   kSMPTETimeType30Drop};

// What a control's tag or segment stands for.
enum WhichMarker {
  kPrevSegment = 0,
  kAddSegment = 1,
  kNextSegment = 2,
  kPrevTag = 99,
  kNextTag = 101
};

constexpr Image kArmedImage{"clockTemplate", Image::Tint::blue};
constexpr Image kDisarmedImage{"clockTemplate", Image::Tint::none};
constexpr Image kActivePlayImage{"playTemplate", Image::Tint::green};
constexpr Image kInactivePlayImage{"playTemplate", Image::Tint::black};
constexpr Image kActiveStopImage{"stopTemplate", Image::Tint::red};
constexpr Image kInactiveStopImage{"stopTemplate", Image::Tint::black};

std::string displayName(const std::shared_ptr<KVMIDIEndpoint>& endpoint) {
  return endpoint != nullptr ? endpoint->displayName().value_or("") : "";
}

bool isInSystem(const std::shared_ptr<KVMIDIEndpoint>& source) {
  const KVMIDICore::Endpoints sources = KVMIDICore::sharedCore().sources();
  return source != nullptr &&
         std::any_of(sources.begin(), sources.end(),
                     [&source](const auto& each) { return each->isEqual(*source); });
}

}  // namespace

VLAppDelegate::VLAppDelegate(std::shared_ptr<VLMainWindowOutlet> mainWindow,
                             std::shared_ptr<VLTimecodeViewOutlet> counters,
                             store::ApplicationFolders folders)
    : window(std::move(mainWindow)),
      timecodeView(std::move(counters)),
      mFolders(std::move(folders)),
      mSettings(mFolders),
      mClock(VLClock::sharedClock()),
      mBackground(std::make_unique<host::Queue>("velor.background")) {
  VELOR_LOG_INFO("%s %s (%s) is starting, Build date: %s %s, %sMAS Version [%s]", "Velor",
                 VELOR_VERSION, VELOR_VERSION, __DATE__, __TIME__, "Non-", "PRODUCTION");
  VELOR_LOG_ERROR("Log Error");
  VELOR_LOG_WARNING("Log Warning");
  VELOR_LOG_INFO("Log Info");
  VELOR_LOG_DEBUG("Log Debug");
  VELOR_LOG_VERBOSE("Log Verbose");
}

VLAppDelegate::~VLAppDelegate() {
  mBackground = nullptr;
  mClock.setProceedBlock(nullptr);
}

// --- the life of the application

bool VLAppDelegate::applicationOpenFile(const std::filesystem::path& path) {
  return mDocuments.openFile(path);
}

void VLAppDelegate::applicationDidFinishLaunching(const std::optional<std::filesystem::path>& file,
                                                  bool isFresh) {
  setUpMenus();
  bindClock();
  setupApplicationDefaultState();
  timecodeView->setSmpteTime(mClock.time());
  timecodeView->setDelegate(shared_from_this());
  timecodeView->setMainCounterIsEditable(true);
  timecodeView->setSmpteOffset(mClock.smpteOffset());
  clockDidDisarm(mClock);
  clockDidStopPlaying(mClock);
  mMIDIObserver = KVNotificationCenter::defaultCenter().addObserver(
      KVMIDINotification, [this](const KVNotification&) { dropVanishedSyncSource(); });
  server().setDelegate(shared_from_this());
  mSettings.load(*mBackground, [weak = weak_from_this()](const std::string& error) {
    if (const auto self = weak.lock()) {
      self->window->presentError(error);
    }
  });
  mClock.setProceedBlock([weak = weak_from_this()](const SMPTETime* time) {
    if (const auto self = weak.lock()) {
      self->proceed(*time);
    }
  });
  bind("status", &VLAppDelegate::showStatus);
  if (file) {
    applicationOpenFile(*file);
  }
  if (!isFresh) {
    mDocuments.openLastState();
  }
  followEdits();
  host::current().mainQueue().async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) {
      self->window->setNeedsDisplay();
      self->window->rearrangeDestinations();
    }
  });
}

void VLAppDelegate::setUpMenus() {
  window->setTogglePlayKey(" ");
  std::vector<VLChoice> modes;
  for (const VLPlayModeTitle& mode : kVLPlayModes) {
    modes.push_back({mode.title, mode.playMode});
  }
  window->setPlayModes(modes, [&clock = mClock](std::uint64_t tag) { clock.setPlayMode(tag); });
}

void VLAppDelegate::bindClock() {
  bind("playMode", &VLAppDelegate::showPlayMode);
  bind("loopStartTime", &VLAppDelegate::showLoopStartTime);
  bind("loopEndTime", &VLAppDelegate::showLoopEndTime);
  bind("smpteOffset", &VLAppDelegate::showSmpteOffset);
  bind("stopTime", &VLAppDelegate::showStopTime);
  mClock.setPlayMode(VLPlayModeNormal);
  mClock.setDelegate(weak_from_this());
  static constexpr std::array<KVKeyPathOperation<VLAppDelegate>, 1> kObserved{
      {{"smpteFormat", &VLAppDelegate::smpteFormatChanged}}};
  mFormatObserver =
      KVKeyValueObserver::observeKeyPaths<VLAppDelegate>(kObserved, mClock, weak_from_this());
  std::vector<std::string> titles;
  std::vector<VLChoice> formats;
  for (const std::uint32_t format : kOfferedFormats) {
    titles.push_back(stringFromSMPTEFormat(format));
  }
  for (std::size_t i = 0; i < titles.size(); ++i) {
    formats.push_back({titles[i], kOfferedFormats[i]});
  }
  window->setFormats(formats, [&clock = mClock](std::uint64_t tag) {
    clock.setSmpteFormat(static_cast<std::uint32_t>(tag));
  });
  bind("smpteFormat", &VLAppDelegate::showFormat);
}

void VLAppDelegate::letGo(std::shared_ptr<void> object) {
  mBackground->async([object = std::move(object)]() mutable { object.reset(); });
}

void VLAppDelegate::waitForSettings() {
  mBackground->sync([] {});
}

VLAppDelegate::TerminateReply VLAppDelegate::applicationShouldTerminate() {
  std::size_t running = 0;
  for (const auto& device : VLDeviceManager::sharedManager().devices()) {
    if (device->deviceStatus() == kVLDeviceStatusRunning) {
      window->showWindowForDevice(device);
      ++running;
    }
  }
  if (!mClock.running() && running == 0) {
    return TerminateReply::now;
  }
  host::current().mainQueue().async([weak = weak_from_this()] {
    const auto self = weak.lock();
    if (self == nullptr) {
      return;
    }
    self->window->presentAlert(
        {VLAlert::Kind::devicesAreRunning, "Devices are running - Quit anyway?", "",
         "Do you really want to quit Velor? Some devices are currently running and generating "
         "timecode.",
         "Yes", "No"},
        [weak](bool isDefault) {
          if (const auto answered = weak.lock()) {
            answered->window->replyToApplicationShouldTerminate(isDefault);
          }
        });
  });
  return TerminateReply::later;
}

std::string VLAppDelegate::applicationWillTerminate() {
  const std::string unsaved = mDocuments.saveLastState();
  const bool areSettingsSaved = mFolders.config().empty() || mSettings.save();
  return areSettingsSaved || !unsaved.empty()
             ? unsaved
             : "cannot save the settings in " + mFolders.config().string();
}

// From here on what changes the document changes the copy.
void VLAppDelegate::followEdits() {
  static constexpr std::array<std::string_view, 12> kEdited{
      "time",     "smpteFormat",  "smpteOffset", "stopTime",    "loopStartTime", "loopEndTime",
      "playMode", "playbackMode", "preroll",     "prerollTime", "playRate",      "MIDISyncSource"};
  const auto note = [weak = weak_from_this()](const auto&) {
    if (const auto self = weak.lock()) {
      self->onMain([](VLAppDelegate& each) { each.mDocuments.recovery().noteEdit(); });
    }
  };
  for (const std::string_view key : kEdited) {
    _clockObserverTokens.push_back(mClock.addObserver(key, note));
  }
  for (const std::string_view key : {"arrangedObjects", "selectionIndexes"}) {
    _clockObserverTokens.push_back(mMarkers.controller().addObserver(key, note));
  }
  _clockObserverTokens.push_back(VLDeviceManager::sharedManager().addObserver("state", note));
}

// --- what the views show of the clock

template <class Call>
void VLAppDelegate::onMain(Call call) {
  host::MainQueue& queue = host::current().mainQueue();
  if (queue.isCurrent()) {
    call(*this);
    return;
  }
  queue.async([weak = weak_from_this(), call] {
    if (const auto self = weak.lock()) {
      call(*self);
    }
  });
}

void VLAppDelegate::bind(std::string_view key, void (VLAppDelegate::*show)()) {
  (this->*show)();
  _clockObserverTokens.push_back(
      mClock.addObserver(key, [weak = weak_from_this(), show](const auto&) {
        if (const auto self = weak.lock()) {
          self->onMain([show](VLAppDelegate& each) { (each.*show)(); });
        }
      }));
}

void VLAppDelegate::showPlayMode() {
  window->setSelectedPlayMode(mClock.playMode());
  timecodeView->setPlayMode(mClock.playMode());
}
void VLAppDelegate::showLoopStartTime() {
  timecodeView->setLoopStartTime(mClock.loopStartTime());
}
void VLAppDelegate::showLoopEndTime() {
  timecodeView->setLoopEndTime(mClock.loopEndTime());
}
void VLAppDelegate::showSmpteOffset() {
  timecodeView->setSmpteOffset(mClock.smpteOffset());
}
void VLAppDelegate::showStopTime() {
  timecodeView->setStopTime(mClock.stopTime());
}
void VLAppDelegate::showStatus() {
  timecodeView->setClockStatus(mClock.status());
}
void VLAppDelegate::showFormat() {
  window->setSelectedFormat(mClock.smpteFormat());
}

void VLAppDelegate::proceed(const SMPTETime& time) {
  timecodeView->copyTime(time);
  // At every second frame; a clock that follows counts its blocks by threes.
  if (time.mCounter % 2 == 0) {
    VLOSCClientDispatcher::sharedDispatcher().updateTime(time);
  }
}

// --- transport

void VLAppDelegate::play() {
  if (!mClock.running()) {
    saveState();
    mClock.start();
  }
}

void VLAppDelegate::stop() {
  if (mClock.running()) {
    mClock.stop();
    return;
  }
  if (window->isControlKeyHeld()) {
    setCurrentTime(KVSMPTETime::smpteTimeWithHours(0, 0, 0, 0, mClock.smpteFormat()));
    return;
  }
  auto start = KVSMPTETime::smpteTimeWithTime(timecodeView->startTime());
  if (!mStartTimes.empty()) {
    start = std::move(mStartTimes.back());
    mStartTimes.pop_back();
  }
  setCurrentTime(start);
}

void VLAppDelegate::togglePlayback() {
  mClock.running() ? stop() : play();
}

void VLAppDelegate::arm() {
  mClock.armed() ? mClock.disarm() : mClock.arm();
}

void VLAppDelegate::togglePreroll() {
  mClock.setPreroll(!mClock.preroll());
}

void VLAppDelegate::setPlayRate(float percent) {
  mClock.setPlayRatePercent(static_cast<double>(percent));
}

void VLAppDelegate::setLoopStartTime() {
  mClock.setLoopStartTime(mClock.time());
}

void VLAppDelegate::setLoopEndTime() {
  mClock.setLoopEndTime(mClock.time());
}

void VLAppDelegate::openPlaybackRateSheet() {
  window->beginPlayRateSheet(mClock.playRatePercent());
}

void VLAppDelegate::dismissPlayRateSheet() {
  window->endPlayRateSheet();
}

// So that a press of play starts the clock by itself, whatever it followed.
void VLAppDelegate::saveState() {
  mStateBeforeStart = {syncSource(), mClock.armed()};
  setSyncSource(nullptr);
}

void VLAppDelegate::restoreState() {
  if (!mStateBeforeStart) {
    return;
  }
  setSyncSource(syncSourceAfterStop());
  if (std::exchange(mStateBeforeStart, std::nullopt)->armed && syncSource() != nullptr) {
    mClock.arm();
  } else {
    mClock.disarm();
  }
}

std::shared_ptr<KVMIDIEndpoint> VLAppDelegate::syncSourceAfterStop() const {
  if (!mStateBeforeStart) {
    return syncSource();
  }
  return isInSystem(mStateBeforeStart->syncSource) ? mStateBeforeStart->syncSource : nullptr;
}

std::shared_ptr<KVSMPTETime> VLAppDelegate::currentTime() const {
  return KVSMPTETime::smpteTimeWithTime(mClock.time());
}

void VLAppDelegate::setCurrentTime(const std::shared_ptr<KVSMPTETime>& time) {
  KV_REQUIRE_PARAMETER(time != nullptr, "currentTime");
  const auto old = currentTime();
  const bool isOther = !time->isEqual(old.get());
  if (time->valid() && isOther) {
    mClock.setTime(time->time());
  }
  if (!mClock.running() && isOther) {
    mUndoManager.registerUndo([weak = weak_from_this(), old] {
      if (const auto self = weak.lock()) {
        self->setCurrentTime(old);
      }
    });
    mUndoManager.setActionName("change start time " + old->stringValue());
    const SMPTETime now = mClock.time();
    timecodeView->setSmpteTime(now);
    VLOSCClientDispatcher::sharedDispatcher().updateTime(now);
  }
}

void VLAppDelegate::setCurrentSMPTETime(const SMPTETime& time) {
  if ((time.mFlags & kSMPTETimeValid) == 0) {
    return;
  }
  SMPTETime own = time;
  if (ltc_subtract(own, mClock.smpteOffset()) == 0) {
    setCurrentTime(KVSMPTETime::smpteTimeWithTime(own));
  }
}

std::shared_ptr<KVMIDIEndpoint> VLAppDelegate::syncSource() const {
  return mClock.MIDISyncSource();
}

void VLAppDelegate::setSyncSource(const std::shared_ptr<KVMIDIEndpoint>& source) {
  willChangeValueForKey("syncSource");
  mClock.setMIDISyncSource(source);
  if (source == nullptr && mClock.armed()) {
    mClock.disarm();
  }
  didChangeValueForKey("syncSource");
}

void VLAppDelegate::dropVanishedSyncSource() {
  if (!isInSystem(syncSource())) {
    setSyncSource(nullptr);
  }
}

void VLAppDelegate::smpteFormatChanged() {
  onMain([](VLAppDelegate& self) {
    const std::uint32_t format = self.mClock.smpteFormat();
    self.timecodeView->setSmpteTime(self.mClock.time());
    for (const auto& time : self.mStartTimes) {
      // A conversion to the format that it has could lose a frame.
      if (time->type() != format) {
        time->setType(format);
      }
    }
    self.mMarkers.setType(format);
    // A format that fits what comes in ends the status of the wrong one, unannounced.
    self.showStatus();
    KVNotificationCenter::defaultCenter().post(VLChangedTimecodeType, format);
  });
}

// --- markers

void VLAppDelegate::addMarker() {
  mMarkers.addMarker(currentTime());
}

void VLAppDelegate::deleteMarkers() {
  mMarkers.controller().remove();
}

void VLAppDelegate::moveToMarker(int which) {
  switch (which) {
    case kPrevSegment:
    case kPrevTag:
      gotoPrevMarker();
      break;
    case kAddSegment:
      addMarker();
      break;
    case kNextSegment:
    case kNextTag:
      gotoNextMarker();
      break;
    default:
      break;
  }
}

void VLAppDelegate::gotoMarker(const std::shared_ptr<VLMarker>& marker) {
  if (marker != nullptr) {
    setCurrentTime(marker->time());
    mMarkers.controller().setSelectedObjects({marker});
  }
}

void VLAppDelegate::gotoNextMarker() {
  gotoMarker(mMarkers.firstMarkerWithTimeGeq(*currentTime()));
}

void VLAppDelegate::gotoPrevMarker() {
  gotoMarker(mMarkers.lastMarkerWithTimeLeq(*currentTime()));
}

// --- documents

bool VLAppDelegate::saveApplicationStateToURL(const std::filesystem::path& path) {
  return mDocuments.state().saveToURL(path);
}

bool VLAppDelegate::loadApplicationStateFromURL(const std::filesystem::path& path) {
  return mDocuments.state().loadFromURL(path);
}

void VLAppDelegate::setupApplicationDefaultState() {
  mClock.setSmpteFormat(kSMPTETimeType25);
  ltc_set_exact_drop(false);
}

void VLAppDelegate::saveDocument() {
  window->beginSavePanel(kFileType, [weak = weak_from_this()](const std::filesystem::path& path) {
    const auto self = weak.lock();
    if (self != nullptr && !path.empty() && !self->saveApplicationStateToURL(path)) {
      self->window->presentError(self->mDocuments.state().error());
    }
  });
}

void VLAppDelegate::openDocument() {
  window->beginOpenPanel(kFileType, [weak = weak_from_this()](const std::filesystem::path& path) {
    const auto self = weak.lock();
    if (self == nullptr || path.empty()) {
      return;
    }
    self->loadApplicationStateFromURL(path);
    if (!self->mDocuments.state().error().empty()) {
      self->window->presentError(self->mDocuments.state().error());
    }
  });
}

// --- the clock tells

void VLAppDelegate::clockDidChangeStartTime(VLClock& clock) {
  VELOR_LOG_VERBOSE("clock did change start time %s",
                    stringFromSMPTETime(clock.startTimeSMPTE()).c_str());
  onMain(
      [](VLAppDelegate& self) { self.timecodeView->setStartTime(self.mClock.startTimeSMPTE()); });
}

void VLAppDelegate::clockDidStartPlaying(VLClock& clock) {
  onMain([start = clock.startTimeSMPTE()](VLAppDelegate& self) {
    auto time = KVSMPTETime::smpteTimeWithTime(start);
    VELOR_LOG_INFO("clock did start playing [%s]", time->stringValue().c_str());
    self.mStartTimes.push_back(std::move(time));
    self.timecodeView->setMainCounterIsEditable(false);
    self.window->setStartImage(kActivePlayImage);
    self.window->setStopImage(kInactiveStopImage);
  });
}

void VLAppDelegate::clockDidStopPlaying(VLClock& /*clock*/) {
  onMain([](VLAppDelegate& self) {
    const auto time = self.currentTime();
    VELOR_LOG_INFO("clock did stop playing [%s]", time->stringValue().c_str());
    self.timecodeView->setMainCounterIsEditable(true);
    self.window->setStartImage(kInactivePlayImage);
    self.window->setStopImage(kActiveStopImage);
    self.timecodeView->setSmpteTime(time->time());
    self.restoreState();
  });
}

void VLAppDelegate::clockDidArm(VLClock& /*clock*/) {
  VELOR_LOG_VERBOSE("clock did arm");
  onMain([](VLAppDelegate& self) { self.window->setArmImage(kArmedImage, true); });
}

void VLAppDelegate::clockDidDisarm(VLClock& /*clock*/) {
  VELOR_LOG_VERBOSE("clock did disarm");
  onMain([](VLAppDelegate& self) { self.window->setArmImage(kDisarmedImage, false); });
}

void VLAppDelegate::clockReceivesWrongFormat(VLClock& clock, std::uint32_t format) {
  const std::string received = stringFromSMPTEFormat(format);
  const std::string message = "The clock receives MTC on " + displayName(syncSource()) + " at " +
                              received + " fps, which does not match the currently set format of " +
                              stringFromSMPTEFormat(clock.smpteFormat()) + " fps";
  VELOR_LOG_INFO("%s", message.c_str());
  window->presentAlert({VLAlert::Kind::wrongFormat, "Wrong SMPTE Format",
                        received + " fps on " + displayName(syncSource()), message,
                        "use " + received + " fps", "Cancel"},
                       [weak = weak_from_this(), format, received](bool isDefault) {
                         const auto self = weak.lock();
                         if (self == nullptr) {
                           return;
                         }
                         if (isDefault) {
                           VELOR_LOG_INFO("switching to %s", received.c_str());
                           self->mClock.setSmpteFormat(format);
                         } else {
                           VELOR_LOG_INFO("user clicked cancel, will disarm");
                           self->mClock.setArmed(false);
                         }
                       });
}

bool VLAppDelegate::clockShouldCheckForMTCLoop(VLClock& /*clock*/) {
  return !disableMTCLoopCheck();
}

void VLAppDelegate::clockDetectedMTCLoop(VLClock& /*clock*/,
                                         const std::shared_ptr<KVMIDIEndpoint>& source,
                                         const std::shared_ptr<KVMIDIEndpoint>& destination) {
  const std::string from = displayName(source);
  const std::string to = displayName(destination);
  window->presentAlert(
      {VLAlert::Kind::mtcLoop, "MIDI/MTC Loop detected!", from + " > " + to,
       "There appears to be a MIDI loop between \"" + from + "\" and \"" + to +
           "\". For correct operation \"" + to + "\" should not be a MTC Destination",
       "Disable " + to, "Proceed anyway"},
      [destination](bool isDefault) {
        const auto device = VLDeviceManager::sharedManager().destinationWithEndpoint(destination);
        if (isDefault && device != nullptr) {
          device->setEnable(false);
        }
      });
}

// --- edits in the counters

void VLAppDelegate::timecodeDidChange(VLTimecodeViewOutlet& view) {
  if (!mClock.running()) {
    mClock.setTime(view.smpteTime());
  }
}

void VLAppDelegate::offsetDidChange(VLTimecodeViewOutlet& view) {
  if (mClock.running()) {
    return;
  }
  const SMPTETime typed = view.smpteOffset();
  mClock.setSmpteOffset(typed);
  if (const SMPTETime taken = mClock.smpteOffset(); !ltc_identical(taken, typed)) {
    view.setSmpteOffset(taken);
  }
  VELOR_LOG_INFO("clock offset did change: %s", stringFromSMPTETime(view.smpteOffset()).c_str());
}

void VLAppDelegate::stopTimeDidChange(VLTimecodeViewOutlet& view) {
  mClock.setStopTime(view.stopTime());
}

void VLAppDelegate::loopStartTimeDidChange(VLTimecodeViewOutlet& view) {
  mClock.setLoopStartTime(view.loopStartTime());
}

void VLAppDelegate::loopEndTimeDidChange(VLTimecodeViewOutlet& view) {
  mClock.setLoopEndTime(view.loopEndTime());
}

bool VLAppDelegate::canEditOffsetInTimecodeView(const VLTimecodeViewOutlet& /*view*/) const {
  return !mClock.running();
}

bool VLAppDelegate::canEditStopTimeInTimecodeView(const VLTimecodeViewOutlet& /*view*/) const {
  return true;
}

}  // namespace velor
