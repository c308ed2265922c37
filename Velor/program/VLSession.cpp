// SPDX-License-Identifier: MIT
#include "Velor/program/VLSession.h"

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
#include "Velor/program/VLCurrentDesktop.h"
#include "Velor/program/VLCurrentNetwork.h"
#include "Velor/program/VLCurrentServices.h"
#include "Velor/program/VLOptionText.h"
#include "Velor/program/VLPortNames.h"
#include "Velor/program/VLServiceReports.h"
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
// The first of several ports that are chosen, or return, starts a loop check, which swallows
// the requests of the others. It takes 100 ms from when all connections are open; check again.
constexpr std::uint64_t kLoopCheckDelay = 250'000'000;
// A clip on a slow disk or network; after that the start fails.
constexpr std::uint64_t kClipOpens = 30'000'000'000;

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

// A run. Destroyed in the reverse order of the fields: the application
// before the services that it stands on.
class VLSession {
 public:
  VLSession(const VLOptions& options, const VLWorld& world, const VLMakeFrontEnd& make)
      : mOptions(options),
        mWorld(world),
        mMakeFrontEnd(make),
        mMainQueue(host::current().mainQueue()),
        mFolders(world.isApart ? store::ApplicationFolders([](const char*) { return nullptr; })
                               : store::ApplicationFolders()),
        mNetwork(world.isApart ? Reach::loopback : Reach::allInterfaces),
        mServices(world.isApart ? Outside::none : Outside::ifAvailable) {
    if (!world.isApart) {
      mDesktop.emplace();
    }
  }

  // Each step may end the run with an exit status.
  using Ended = std::optional<int>;
  struct Step {
    const char* name;
    Ended (VLSession::*take)();
  };
  static const std::array<Step, 15> kSteps;

 private:
  using Reach = SystemUDPNetwork::Reach;
  using Outside = VLCurrentServices::Outside;

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
  Ended openClips();
  Ended showStatus();
  Ended waitForPorts();
  Ended run();
  Ended end();

  void observe();
  void follow();
  void showReader();
  void checkLoopsSoon();

  const VLOptions& mOptions;
  const VLWorld& mWorld;
  const VLMakeFrontEnd& mMakeFrontEnd;
  host::MainQueue& mMainQueue;
  const store::ApplicationFolders mFolders;
  const VLCurrentNetwork mNetwork;  // before the services, with whose end the sockets go
  const VLCurrentServices mServices;
  std::optional<VLCurrentDesktop> mDesktop;
  std::optional<StopSignals> mSignals;
  std::optional<VLWantedDevices> mDevices;
  std::unique_ptr<VLFrontEnd> mFrontEnd;
  std::shared_ptr<VLAppDelegate> mApp;
  std::optional<VLServiceReports> mService;
  bool mIsApplied = false;  // before that there is nothing to follow
  std::shared_ptr<VLLTCReaderDevice> mReader;
  std::vector<KVObserverToken> mTokens;
  KVObserverToken mReaderToken;
};

// The order is the reason of this table: VLSessionTest says what must come before what.
constexpr std::array<VLSession::Step, 15> VLSession::kSteps = {{
    {"list", &VLSession::list},
    {"catch signals", &VLSession::catchSignals},
    {"find devices", &VLSession::findDevices},
    {"launch", &VLSession::launch},
    {"report last run", &VLSession::reportLastRun},
    {"check document", &VLSession::checkDocument},
    {"recover", &VLSession::recover},
    {"apply OSC options", &VLSession::applyOSC},
    {"apply clock options", &VLSession::applyClock},
    {"apply devices", &VLSession::applyDevices},
    {"open clips", &VLSession::openClips},
    {"show status", &VLSession::showStatus},
    {"wait for ports", &VLSession::waitForPorts},
    {"run", &VLSession::run},
    {"end", &VLSession::end},
}};

VLSession::Ended VLSession::list() {
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

VLSession::Ended VLSession::catchSignals() {
  mSignals.emplace(mMainQueue);
  return std::nullopt;
}

VLSession::Ended VLSession::findDevices() {
  auto found = VLWantedDevices::find(mOptions);
  if (!found) {
    return fail(kUsageStatus, found.error().text);
  }
  mDevices = *std::move(found);
  return std::nullopt;
}

VLSession::Ended VLSession::launch() {
  mFrontEnd = mMakeFrontEnd(*mDevices);
  mApp = std::make_shared<VLAppDelegate>(mFrontEnd->mainWindow(), mFrontEnd->counters(), mFolders);
  mFrontEnd->willLaunch(mApp);
  KVNotificationCenter& center = KVNotificationCenter::defaultCenter();
  mTokens.push_back(
      center.addObserver(KADeviceChoiceNotification, [this](const KVNotification& notification) {
        const auto text = std::any_cast<std::string>(notification.object);
        mFrontEnd->showNotice(text);
        VLStandardError::tell(text);
      }));
  // The application observes the MIDI setup as well: this comes before it, observe() after.
  mTokens.push_back(center.addObserver(
      KVMIDINotification, [this](const KVNotification&) { mDevices->willFollowSetup(*mApp); }));
  mApp->applicationDidFinishLaunching(mOptions.file, mOptions.fresh);
  mFrontEnd->didLaunch();
  observe();
  return std::nullopt;
}

void VLSession::observe() {
  mTokens.push_back(KVNotificationCenter::defaultCenter().addObserver(
      KVMIDINotification, [this](const KVNotification&) { follow(); }));
  for (const char* key : {"audioDevices", "deviceChannels"}) {
    mTokens.push_back(
        KAHALAudioSystem::defaultSystem().addObserver(key, [this](const auto&) { follow(); }));
  }
  mTokens.push_back(mApp->clock().addObserver("status", [this](const auto&) {
    mMainQueue.async([this, weak = std::weak_ptr(mApp)] {
      if (weak.lock() != nullptr) {
        follow();
      }
    });
  }));
}

VLSession::Ended VLSession::reportLastRun() {
  if (const std::string missing = mFolders.missing(); !missing.empty() && !mWorld.isApart) {
    VLStandardError::tell(missing);
  }
  const VLRecovery& recovery = mApp->documents().recovery();
  if (recovery.isBesideAnother() && !mOptions.recover) {
    warn(
        "another velor runs with the same folders; the one that ends last overwrites the other's "
        "state; set XDG_DATA_HOME, XDG_CONFIG_HOME and XDG_STATE_HOME for one of them");
  }
  if (recovery.wasCutOff() && !mOptions.recover) {
    warn("the last run was interrupted; --recover restores its state (" +
         recovery.leftBehind()->string() + ")");
  }
  for (const auto& report : mApp->documents().crashReports()) {
    warn("an earlier run crashed; the report is " + report.string());
  }
  if (const auto& error = mApp->documents().lastStateError()) {
    VLStandardError::tell("the state of the last run cannot be restored completely: " +
                          error->text);
  }
  return std::nullopt;
}

VLSession::Ended VLSession::checkDocument() {
  const auto& error = mApp->documents().openError();
  if (error && !mApp->documents().didLoadFileAtStartup()) {
    return fail(kFailureStatus, error->text);
  }
  if (error) {
    mFrontEnd->mainWindow()->presentError(error->text);
  }
  return std::nullopt;
}

VLSession::Ended VLSession::recover() {
  if (!mOptions.recover) {
    return std::nullopt;
  }
  if (mApp->documents().recovery().isBesideAnother()) {
    return fail(kFailureStatus, "--recover: another velor runs with the same folders; end it");
  }
  if (!mApp->documents().recovery().leftBehind()) {
    return fail(kUsageStatus, "--recover: no state of an interrupted run");
  }
  const auto recovered = mApp->documents().recover();
  return recovered ? std::nullopt
                   : Ended(fail(kFailureStatus, "--recover: " + recovered.error().text));
}

VLSession::Ended VLSession::applyOSC() {
  mApp->waitForSettings();
  VLOSCApply(mOptions.osc, [window = mFrontEnd->mainWindow()](const std::string& problem) {
    window->presentError(problem);
  });
  return std::nullopt;
}

VLSession::Ended VLSession::applyClock() {
  if (const auto applied = setUp(*mApp, mOptions); !applied) {
    return fail(kUsageStatus, applied.error().text);
  }
  if (mOptions.arm && !mOptions.syncSource && mApp->syncSource() == nullptr) {
    return fail(kUsageStatus, "--arm needs a sync source; name one with --sync-source");
  }
  return std::nullopt;
}

VLSession::Ended VLSession::applyDevices() {
  if (!midi::service().isConnected() && !mWorld.isApart) {
    VLStandardError::tell("no JACK or PipeWire server; MIDI stays internal until one starts");
  }
  if (const auto applied = mDevices->apply(*mApp); !applied) {
    return fail(kUsageStatus, applied.error().text);
  }
  mIsApplied = true;
  follow();  // one may have come since they were looked for
  for (const std::string& problem : mDevices->missing()) {
    mFrontEnd->mainWindow()->presentError(problem + "; waiting for it");
  }
  return std::nullopt;
}

VLSession::Ended VLSession::openClips() {
  if (!mOptions.media.empty() && !VLMediaWindows::canHaveMediaPlaybackFeature()) {
    return fail(kFailureStatus, "--media: " + VLMediaWindows::unavailable().message);
  }
  for (const VLMediaWords& words : mOptions.media) {
    const auto start =
        VLOptionText::time(words.start.value_or("00:00:00:00"), mApp->clock().smpteFormat());
    if (!start) {
      return fail(kUsageStatus, "--media: " + start.error().text);
    }
    const auto window = mApp->mediaWindows().open(words.path, *start, mOptions.keep);
    const std::uint64_t deadline = host::current().AudioGetCurrentHostTime() + kClipOpens;
    while (!window->isReady() && window->error().empty() && !mMainQueue.isStopping() &&
           mMainQueue.drainUntil(deadline)) {
    }
    if (mMainQueue.isStopping()) {
      return end();
    }
    if (!window->error().empty() && mFrontEnd->reportsClips()) {
      mMainQueue.drainPending();  // the window reports it in a job
      return kFailureStatus;
    }
    if (!window->isReady()) {
      return fail(kFailureStatus, "--media: " + (window->error().empty()
                                                     ? words.path + ": no answer from the player"
                                                     : window->error()));
    }
  }
  return std::nullopt;
}

VLSession::Ended VLSession::showStatus() {
  mFrontEnd->begin();
  return std::nullopt;
}

VLSession::Ended VLSession::waitForPorts() {
  midi::service().waitUntilSettled();
  if (mApp->syncSource() != nullptr) {
    checkLoopsSoon();
  }
  return std::nullopt;
}

VLSession::Ended VLSession::run() {
  if (mOptions.arm && mApp->syncSource() != nullptr) {
    mApp->clock().arm();
  }
  if (mOptions.play) {
    mApp->play();
  }
  if (!mWorld.isApart) {
    mService.emplace(mApp->clock());
  }
  if (mWorld.running) {
    mWorld.running(*mApp, *mDevices->reader());
  }
  mFrontEnd->run(*mApp);
  return std::nullopt;
}

// Ends what runs, so that receivers are left with whole blocks.
VLSession::Ended VLSession::end() {
  mService.reset();
  mApp->clock().stop();
  mApp->clock().disarm();
  const auto saved = mApp->applicationWillTerminate();
  if (const auto port = mApp->settings().lostOSCPort()) {
    VLStandardError::tell("OSC port " + std::to_string(*port) +
                          " could not be used; later starts receive no OSC unless --osc-port is "
                          "given");
  }
  if (const auto reader = mDevices->reader()) {
    reader->setFreewheelTime(0);
    reader->setChannel(VLLTCReader::kNoChannel);
  }
  const std::uint64_t deadline = host::current().AudioGetCurrentHostTime() + kRunOut;
  while (mMainQueue.drainUntil(deadline)) {
  }
  return saved ? 0 : fail(kFailureStatus, saved.error().text);
}

// --- while it runs ---

void VLSession::follow() {
  if (!mIsApplied) {
    return;
  }
  if (mDevices->follow(*mApp)) {
    checkLoopsSoon();
  }
  showReader();
}

void VLSession::showReader() {
  const auto reader = mDevices->reader();
  if (reader == nullptr || reader == mReader) {
    return;
  }
  mReader = reader;
  if (const auto delegate = mFrontEnd->readerDelegate()) {
    mReader->addDelegate(delegate);
  }
  mReaderToken =
      mReader->addObserver("audioObjectId", [this](const auto&) { mDevices->keepChannel(); });
}

void VLSession::checkLoopsSoon() {
  midi::service().whenSettled(mMainQueue, [&queue = mMainQueue, weak = std::weak_ptr(mApp)] {
    queue.after(kLoopCheckDelay, [weak] {
      if (const auto app = weak.lock()) {
        app->clock().doLoopDetection();
      }
    });
  });
}

std::vector<std::string> VLSessionSteps() {
  std::vector<std::string> names;
  for (const VLSession::Step& step : VLSession::kSteps) {
    names.emplace_back(step.name);
  }
  return names;
}

int VLSessionRun(const VLOptions& options, const VLWorld& world, const VLMakeFrontEnd& make) {
  VLSession session(options, world, make);
  for (const VLSession::Step& step : VLSession::kSteps) {
    if (const auto status = (session.*step.take)()) {
      return *status;
    }
  }
  return 0;
}

}  // namespace velor
