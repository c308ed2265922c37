// SPDX-License-Identifier: MIT
#include "Velor/program/VLHeadless.h"

#include <any>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Kv-Appkit/KVNotificationCenter.h"
#include "Velor/app/VLAppDelegate.h"
#include "Velor/clock/VLClock.h"
#include "Velor/devices/VLLTCReaderDevice.h"
#include "Velor/program/VLAudioDevices.h"
#include "Velor/program/VLHeadlessView.h"
#include "Velor/program/VLHeadlessWindow.h"
#include "Velor/program/VLNetworkInForce.h"
#include "Velor/program/VLPortNames.h"
#include "Velor/program/VLServicesInForce.h"
#include "Velor/program/VLStandardError.h"
#include "Velor/program/VLStandardOutput.h"
#include "Velor/program/VLStopSignals.h"
#include "Velor/program/VLWantedDevices.h"
#include "kva/MIDI/KVMIDICore.h"
#include "kvtimecode/ltc_two_frames.h"
#include "platform/audio/AudioService.h"
#include "platform/host/Host.h"
#include "platform/host/Log.h"
#include "platform/store/Printable.h"

namespace velor {
namespace {

constexpr int kFailureStatus = 1;
constexpr int kUsageStatus = 2;
// Quarter frames are scheduled up to 16 ahead. The ports stay open until the last block
// has gone out, so that no receiver is left with half of it.
constexpr std::uint64_t kRunOut = 300'000'000;
// The first of several ports that are chosen, or return, starts a loop check, which takes
// 100 ms and swallows the requests of the others. It is over by then; check again.
constexpr std::uint64_t kLoopCheckDelay = 250'000'000;
constexpr std::uint64_t kLookInterval = 500'000'000;  // for missing ports and channels

// The signals end the main loop, as a quit does.
class StopSignals {
 public:
  explicit StopSignals(host::MainQueue& queue) {
    sQueue.store(&queue);
    VLStopSignalsInstall([](int) {
      if (host::MainQueue* target = sQueue.load()) {
        target->stop();
      }
    });
    // The clock goes on when the reader of stdout or stderr has gone.
    std::signal(SIGPIPE, SIG_IGN);
  }
  ~StopSignals() { sQueue.store(nullptr); }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

 private:
  inline static std::atomic<host::MainQueue*> sQueue{nullptr};
};

int fail(int status, const std::string& error) {
  std::fprintf(stderr, "velor: %s\n", store::printable(error).c_str());
  return status;
}

// Whether the clock does anything beside the reader.
bool usesClock(const VLOptions& options) {
  return !options.ltcIn || options.play || options.arm || options.file || !options.mtcOut.empty() ||
         !options.ltcOut.empty() || options.osc.isWanted();
}

// Changes what the document holds. Fails when a time is not one of the clock's format.
Expected<> setUp(VLAppDelegate& app, const VLOptions& options) {
  VLClock& clock = app.clock();
  if (options.format) {
    clock.setSmpteFormat(*options.format);
  }
  const auto read = VLTimesFromWords(options.times, clock.smpteFormat());
  if (!read) {
    return tl::unexpected(read.error());
  }
  const VLTimes& times = *read;
  if (times.offset) {
    clock.setSmpteOffset(*times.offset);
  }
  if (options.ratePercent) {
    clock.setPlayRatePercent(*options.ratePercent);
  }
  if (options.exactDrop) {
    ltc_set_exact_drop(*options.exactDrop);
  }
  if (options.playMode) {
    clock.setPlaybackMode(*options.playMode);
  }
  if (times.stopAt) {
    clock.setStopTime(*times.stopAt);
  }
  if (times.loop) {
    clock.setLoopStartTime(times.loop->first);
    clock.setLoopEndTime(times.loop->second);
  }
  if (options.preroll) {
    clock.setPrerollTime(*options.preroll);
    clock.setPreroll(true);
  }
  if (times.start) {
    app.setCurrentTime(KVSMPTETime::smpteTimeWithTime(*times.start));
    app.undoManager().removeAllActions();
  }
  return {};
}

void warn(const std::string& text) {
  VELOR_LOG_WARNING("%s", text.c_str());
  VLStandardError::tell(text);
}

}  // namespace

// A run without a window. Destroyed in the reverse order of the fields: the application
// before the services that it stands on.
class VLHeadlessSession {
 public:
  VLHeadlessSession(const VLOptions& options, const VLHeadlessWorld& world)
      : mOptions(options),
        mWorld(world),
        mMainQueue(host::current().mainQueue()),
        mFolders(world.isApart ? store::ApplicationFolders([](const char*) { return nullptr; })
                               : store::ApplicationFolders()),
        mNetwork(world.isApart ? Reach::loopback : Reach::allInterfaces),
        mServices(world.isApart ? Outside::none : Outside::ifAvailable) {}

  // Each step may end the run with an exit status.
  using Ended = std::optional<int>;
  struct Step {
    const char* name;
    Ended (VLHeadlessSession::*take)();
  };
  static const std::array<Step, 14> kSteps;

 private:
  using Reach = SystemUDPNetwork::Reach;
  using Outside = VLServicesInForce::Outside;

  Ended list();
  Ended catchSignals();
  Ended findDevices();
  Ended launch();
  Ended reportLastRun();
  Ended checkDocument();
  Ended recover();
  Ended applyOSC();
  Ended applyClock();
  Ended applyDevices();
  Ended showStatus();
  Ended waitForPorts();
  Ended run();
  Ended end();

  void observe();
  void follow();
  void lookForMissing();
  void showReader();
  void checkLoopsSoon();

  const VLOptions& mOptions;
  const VLHeadlessWorld& mWorld;
  host::MainQueue& mMainQueue;
  const store::ApplicationFolders mFolders;
  const VLNetworkInForce mNetwork;  // before the services, with whose end the sockets go
  const VLServicesInForce mServices;
  std::optional<StopSignals> mSignals;
  std::optional<VLWantedDevices> mDevices;
  std::shared_ptr<VLHeadlessView> mView;
  std::shared_ptr<VLHeadlessWindow> mWindow;
  std::shared_ptr<VLAppDelegate> mApp;
  bool mIsApplied = false;  // before that there is nothing to follow
  std::shared_ptr<VLLTCReaderDevice> mReader;
  std::vector<KVObserverToken> mTokens;
  KVObserverToken mReaderToken;
};

// The order is the reason of this table: VLHeadlessTest says what must come before what.
constexpr std::array<VLHeadlessSession::Step, 14> VLHeadlessSession::kSteps = {{
    {"list", &VLHeadlessSession::list},
    {"catch signals", &VLHeadlessSession::catchSignals},
    {"find devices", &VLHeadlessSession::findDevices},
    {"launch", &VLHeadlessSession::launch},
    {"report last run", &VLHeadlessSession::reportLastRun},
    {"check document", &VLHeadlessSession::checkDocument},
    {"recover", &VLHeadlessSession::recover},
    {"apply OSC options", &VLHeadlessSession::applyOSC},
    {"apply clock options", &VLHeadlessSession::applyClock},
    {"apply devices", &VLHeadlessSession::applyDevices},
    {"show status", &VLHeadlessSession::showStatus},
    {"wait for ports", &VLHeadlessSession::waitForPorts},
    {"run", &VLHeadlessSession::run},
    {"end", &VLHeadlessSession::end},
}};

VLHeadlessSession::Ended VLHeadlessSession::list() {
  if (!mOptions.list) {
    return std::nullopt;
  }
  const KVMIDICore& core = KVMIDICore::sharedCore();
  std::printf("MIDI: %s\nSources\n%sDestinations\n%s", midi::service().serverDescription().c_str(),
              VLEndpointList(core.sources()).c_str(), VLEndpointList(core.destinations()).c_str());
  std::printf("Audio: %s\nDevices\n%s", audio::service().serverDescription().c_str(),
              VLAudioDeviceList(KAHALAudioSystem::defaultSystem()).c_str());
  return VLStandardOutput::end(0);
}

VLHeadlessSession::Ended VLHeadlessSession::catchSignals() {
  mSignals.emplace(mMainQueue);
  return std::nullopt;
}

VLHeadlessSession::Ended VLHeadlessSession::findDevices() {
  auto found = VLWantedDevices::find(mOptions);
  if (!found) {
    return fail(kUsageStatus, found.error().text);
  }
  mDevices = *std::move(found);
  return std::nullopt;
}

VLHeadlessSession::Ended VLHeadlessSession::launch() {
  mView = std::make_shared<VLHeadlessView>(*mDevices, usesClock(mOptions));
  mWindow = std::make_shared<VLHeadlessWindow>(
      VLHeadlessWindow::Answers{mOptions.autoFormat, mOptions.ignoreLoops},
      [this](const std::string& notice) { mView->showNotice(notice); });
  mApp = std::make_shared<VLAppDelegate>(mWindow, mView, mFolders);
  KVNotificationCenter& center = KVNotificationCenter::defaultCenter();
  mTokens.push_back(
      center.addObserver(KADeviceChoiceNotification, [this](const KVNotification& notification) {
        const auto text = std::any_cast<std::string>(notification.object);
        mView->showNotice(text);
        VLStandardError::tell(text);
      }));
  // The application observes the MIDI setup as well: this comes before it, observe() after.
  mTokens.push_back(center.addObserver(
      KVMIDINotification, [this](const KVNotification&) { mDevices->willFollowSetup(*mApp); }));
  mApp->applicationDidFinishLaunching(mOptions.file, mOptions.fresh);
  observe();
  return std::nullopt;
}

void VLHeadlessSession::observe() {
  mTokens.push_back(KVNotificationCenter::defaultCenter().addObserver(
      KVMIDINotification, [this](const KVNotification&) { follow(); }));
  mTokens.push_back(mApp->clock().addObserver("status", [this](const auto&) {
    mMainQueue.async([this, weak = std::weak_ptr(mApp)] {
      if (weak.lock() != nullptr) {
        follow();
      }
    });
  }));
}

VLHeadlessSession::Ended VLHeadlessSession::reportLastRun() {
  if (const std::string missing = mFolders.missing(); !missing.empty() && !mWorld.isApart) {
    VLStandardError::tell(missing);
  }
  const VLRecovery& recovery = mApp->documents().recovery();
  if (recovery.isBesideAnother() && !mOptions.recover) {
    VLStandardError::tell(
        "another velor runs with the same folders; the one that ends last overwrites the other's "
        "state; set XDG_DATA_HOME, XDG_CONFIG_HOME and XDG_STATE_HOME for one of them");
  }
  if (recovery.wasCutOff() && !mOptions.recover) {
    warn("the last run was interrupted; --recover restores its state (" +
         recovery.leftBehind()->string() + ")");
  }
  if (!mApp->documents().lastStateError().empty()) {
    VLStandardError::tell("the state of the last run cannot be restored completely: " +
                          mApp->documents().lastStateError());
  }
  return std::nullopt;
}

VLHeadlessSession::Ended VLHeadlessSession::checkDocument() {
  if (mOptions.file && !mApp->documents().didLoadFileAtStartup()) {
    return fail(kFailureStatus, mApp->documents().openError());
  }
  if (!mApp->documents().openError().empty()) {
    mWindow->presentError(mApp->documents().openError());
  }
  return std::nullopt;
}

VLHeadlessSession::Ended VLHeadlessSession::recover() {
  if (!mOptions.recover) {
    return std::nullopt;
  }
  if (mApp->documents().recovery().isBesideAnother()) {
    return fail(kFailureStatus, "--recover: another velor runs with the same folders; end it");
  }
  if (!mApp->documents().recovery().leftBehind()) {
    return fail(kUsageStatus, "--recover: there is no state of an interrupted run");
  }
  return mApp->documents().recover()
             ? std::nullopt
             : Ended(fail(kFailureStatus, "--recover: " + mApp->documents().state().error()));
}

VLHeadlessSession::Ended VLHeadlessSession::applyOSC() {
  mApp->waitForSettings();
  VLOSCApply(mOptions.osc,
             [window = mWindow](const std::string& problem) { window->presentError(problem); });
  return std::nullopt;
}

VLHeadlessSession::Ended VLHeadlessSession::applyClock() {
  if (const auto applied = setUp(*mApp, mOptions); !applied) {
    return fail(kUsageStatus, applied.error().text);
  }
  if (mOptions.arm && !mOptions.syncSource && mApp->syncSource() == nullptr) {
    return fail(kUsageStatus, "--arm needs a sync source; name one with --sync-source");
  }
  return std::nullopt;
}

VLHeadlessSession::Ended VLHeadlessSession::applyDevices() {
  if (!midi::service().isConnected() && !mWorld.isApart) {
    VLStandardError::tell("no JACK or PipeWire server; MIDI stays internal until one starts");
  }
  if (const auto applied = mDevices->apply(*mApp); !applied) {
    return fail(kUsageStatus, applied.error().text);
  }
  mIsApplied = true;
  showReader();
  for (const std::string& problem : mDevices->missing()) {
    mWindow->presentError(problem + "; waiting for it");
  }
  lookForMissing();
  return std::nullopt;
}

VLHeadlessSession::Ended VLHeadlessSession::showStatus() {
  mView->begin();
  return std::nullopt;
}

VLHeadlessSession::Ended VLHeadlessSession::waitForPorts() {
  midi::service().waitUntilSettled();
  if (mApp->syncSource() != nullptr) {
    checkLoopsSoon();
  }
  return std::nullopt;
}

VLHeadlessSession::Ended VLHeadlessSession::run() {
  if (mOptions.arm && mApp->syncSource() != nullptr) {
    mApp->clock().arm();
  }
  if (mOptions.play) {
    mApp->play();
  }
  if (mWorld.running) {
    mWorld.running(*mApp, *mDevices->reader());
  }
  mMainQueue.run();
  return std::nullopt;
}

// Ends what runs, so that receivers are left with whole blocks.
VLHeadlessSession::Ended VLHeadlessSession::end() {
  if (mApp->applicationShouldTerminate() == VLAppDelegate::TerminateReply::later) {
    mMainQueue.run();  // until the reply
  }
  mApp->clock().stop();
  mApp->clock().disarm();
  const std::string unsaved = mApp->applicationWillTerminate();
  if (const auto port = mApp->settings().lostOSCPort()) {
    VLStandardError::tell("OSC port " + std::to_string(*port) +
                          " could not be used; later starts receive no OSC unless --osc-port is "
                          "given");
  }
  if (const auto reader = mDevices->reader()) {
    reader->setFreewheelTime(0);
    reader->setChannel(VLLTCReader::kNoChannel);
  }
  // Also after a stop of its own, which may have come just now.
  mMainQueue.after(kRunOut, [this] { mMainQueue.stop(); });
  mMainQueue.run();
  return unsaved.empty() ? 0 : fail(kFailureStatus, unsaved);
}

// --- while it runs ---

void VLHeadlessSession::follow() {
  if (!mIsApplied) {
    return;
  }
  if (mDevices->follow(*mApp)) {
    checkLoopsSoon();
  }
  showReader();
}

// Channels that a device gains are not announced.
void VLHeadlessSession::lookForMissing() {
  if (mDevices->missing().empty()) {
    return;
  }
  mMainQueue.after(kLookInterval, [this, weak = std::weak_ptr(mApp)] {
    if (weak.lock() != nullptr) {
      follow();
      lookForMissing();
    }
  });
}

void VLHeadlessSession::showReader() {
  const auto reader = mDevices->reader();
  if (reader == nullptr || reader == mReader) {
    return;
  }
  mReader = reader;
  mReader->setDelegate(mView);
  mReaderToken =
      mReader->addObserver("audioObjectId", [this](const auto&) { mDevices->keepChannel(); });
}

void VLHeadlessSession::checkLoopsSoon() {
  mMainQueue.after(kLoopCheckDelay, [weak = std::weak_ptr(mApp)] {
    if (const auto app = weak.lock()) {
      app->clock().doLoopDetection();
    }
  });
}

std::vector<std::string> VLHeadlessSteps() {
  std::vector<std::string> names;
  for (const VLHeadlessSession::Step& step : VLHeadlessSession::kSteps) {
    names.emplace_back(step.name);
  }
  return names;
}

int VLHeadlessRun(const VLOptions& options, const VLHeadlessWorld& world) {
  VLHeadlessSession session(options, world);
  for (const VLHeadlessSession::Step& step : VLHeadlessSession::kSteps) {
    if (const auto status = (session.*step.take)()) {
      return *status;
    }
  }
  return 0;
}

}  // namespace velor
