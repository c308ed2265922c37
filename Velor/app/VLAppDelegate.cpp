// SPDX-License-Identifier: MIT
#include "Velor/app/VLAppDelegate.h"

#include <array>
#include <utility>

#include "Kv-Appkit/KVNotificationCenter.h"
#include "Velor/app/VLAlerts.h"
#include "Velor/app/VLOnMain.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/devices/VLTimecodeDestinationDevice.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_two_frames.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Host.h"
#include "platform/host/Log.h"

namespace velor {
namespace {

// What a control's tag or segment stands for.
enum WhichMarker {
  kPrevSegment = 0,
  kAddSegment = 1,
  kNextSegment = 2,
  kPrevTag = 99,
  kNextTag = 101
};

std::string displayName(const std::shared_ptr<KVMIDIEndpoint>& endpoint) {
  return endpoint != nullptr ? endpoint->displayName().value_or("") : "";
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
      mDisplay(mClock, *window, *timecodeView),
      mTransport(*this, *window, *timecodeView, mDisplay),
      mMediaWindows(std::make_shared<VLMediaWindows>(*this, *window)),
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
}

// --- the life of the application

Expected<> VLAppDelegate::applicationOpenFile(const std::filesystem::path& path) {
  return mDocuments.openFile(path);
}

void VLAppDelegate::applicationDidFinishLaunching(const std::optional<std::filesystem::path>& file,
                                                  bool isFresh) {
  window->setTogglePlayKey(" ");
  bindClock();
  setupApplicationDefaultState();
  mDisplay.showTime();
  timecodeView->setDelegate(shared_from_this());
  timecodeView->setMainCounterIsEditable(true);
  timecodeView->setSmpteOffset(mClock.smpteOffset());
  clockDidDisarm(mClock);
  clockDidStopPlaying(mClock);
  mMIDIObserver = KVNotificationCenter::defaultCenter().addObserver(
      KVMIDINotification, [this](const KVNotification&) { mTransport.dropVanishedSyncSource(); });
  server().setDelegate(shared_from_this());
  mSettings.load(*mBackground, [weak = weak_from_this()](const Error& error) {
    if (const auto self = weak.lock()) {
      self->window->presentError(error.text);
    }
  });
  mDisplay.followFrames();
  mDisplay.bindStatus();
  mSleepGuard.follow();
  if (file) {
    applicationOpenFile(*file);
  }
  if (!isFresh) {
    mDocuments.openLastState();
  }
  mDocuments.followEdits();
  host::current().mainQueue().async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) {
      self->window->setNeedsDisplay();
      self->window->rearrangeDestinations();
    }
  });
}

void VLAppDelegate::bindClock() {
  mDisplay.bindPlayMode();
  mDisplay.bindTimes();
  mClock.setPlayMode(VLPlayModeNormal);
  mClock.setDelegate(weak_from_this());
  static constexpr std::array<KVKeyPathOperation<VLAppDelegate>, 1> kObserved{
      {{"smpteFormat", &VLAppDelegate::smpteFormatChanged}}};
  mFormatObserver =
      KVKeyValueObserver::observeKeyPaths<VLAppDelegate>(kObserved, mClock, weak_from_this());
  mDisplay.bindFormat();
}

void VLAppDelegate::inBackground(host::Task job) {
  mBackground->async(std::move(job));
}

void VLAppDelegate::letGo(std::shared_ptr<void> object) {
  inBackground([object = std::move(object)]() mutable { object.reset(); });
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
    self->window->presentAlert(VLAlerts::devicesAreRunning(), [weak](bool isDefault) {
      if (const auto answered = weak.lock()) {
        answered->window->replyToApplicationShouldTerminate(isDefault);
      }
    });
  });
  return TerminateReply::later;
}

Expected<> VLAppDelegate::applicationWillTerminate() {
  const auto saved = mDocuments.saveLastState();
  const bool areSettingsSaved = mFolders.config().empty() || mSettings.save();
  if (saved && !areSettingsSaved) {
    return failure("cannot save the settings in " + mFolders.config().string());
  }
  return saved;
}

template <class Call>
void VLAppDelegate::onMain(Call call) {
  VLOnMain([weak = weak_from_this(), call] {
    if (const auto self = weak.lock()) {
      call(*self);
    }
  });
}

// --- transport

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

std::shared_ptr<KVSMPTETime> VLAppDelegate::currentTime() const {
  return KVSMPTETime::smpteTimeWithTime(mClock.time());
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

void VLAppDelegate::smpteFormatChanged() {
  onMain([](VLAppDelegate& self) {
    const std::uint32_t format = self.mClock.smpteFormat();
    self.mDisplay.showTime();
    self.mTransport.setType(format);
    self.mMarkers.setType(format);
    self.mDisplay.showStatus();
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

Expected<> VLAppDelegate::saveApplicationStateToURL(const std::filesystem::path& path) {
  return mDocuments.state().saveToURL(path);
}

Expected<VLApplicationState::Unrestored> VLAppDelegate::loadApplicationStateFromURL(
    const std::filesystem::path& path) {
  return mDocuments.state().loadFromURL(path);
}

void VLAppDelegate::setupApplicationDefaultState() {
  mClock.setSmpteFormat(kSMPTETimeType25);
  ltc_set_exact_drop(false);
}

void VLAppDelegate::saveDocument() {
  mDocuments.saveWithPanel(*window);
}

void VLAppDelegate::openDocument() {
  mDocuments.openWithPanel(*window);
}

// --- from the clock

void VLAppDelegate::clockDidChangeStartTime(VLClock& clock) {
  VELOR_LOG_VERBOSE("clock did change start time %s",
                    stringFromSMPTETime(clock.startTimeSMPTE()).c_str());
  onMain([](VLAppDelegate& self) { self.mDisplay.showStartTime(); });
}

void VLAppDelegate::clockDidStartPlaying(VLClock& clock) {
  onMain([start = clock.startTimeSMPTE()](VLAppDelegate& self) {
    auto time = KVSMPTETime::smpteTimeWithTime(start);
    VELOR_LOG_INFO("clock did start playing [%s]", time->stringValue().c_str());
    self.mTransport.didStart(std::move(time));
    self.mDisplay.showRunning();
  });
}

void VLAppDelegate::clockDidStopPlaying(VLClock& /*clock*/) {
  onMain([](VLAppDelegate& self) {
    VELOR_LOG_INFO("clock did stop playing [%s]", self.currentTime()->stringValue().c_str());
    self.mDisplay.showStopped();
    self.mTransport.didStop();
  });
}

void VLAppDelegate::clockDidArm(VLClock& /*clock*/) {
  VELOR_LOG_VERBOSE("clock did arm");
  onMain([](VLAppDelegate& self) { self.mDisplay.showArmed(true); });
}

void VLAppDelegate::clockDidDisarm(VLClock& /*clock*/) {
  VELOR_LOG_VERBOSE("clock did disarm");
  onMain([](VLAppDelegate& self) { self.mDisplay.showArmed(false); });
}

void VLAppDelegate::clockReceivesWrongFormat(VLClock& clock, std::uint32_t format) {
  const std::string received = stringFromSMPTEFormat(format);
  const VLAlert alert = VLAlerts::wrongFormat(displayName(syncSource()), received,
                                              stringFromSMPTEFormat(clock.smpteFormat()));
  VELOR_LOG_INFO("%s", alert.message.c_str());
  window->presentAlert(alert, [weak = weak_from_this(), format, received](bool isDefault) {
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
  window->presentAlert(VLAlerts::mtcLoop(displayName(source), displayName(destination)),
                       [destination](bool isDefault) {
                         const auto device =
                             VLDeviceManager::sharedManager().destinationWithEndpoint(destination);
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
