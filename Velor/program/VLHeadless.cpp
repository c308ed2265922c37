// SPDX-License-Identifier: MIT
#include "Velor/program/VLHeadless.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

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
#include "Velor/program/VLUsageError.h"
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
// Quarter frames are scheduled up to 16 ahead: after a stop the last block runs out
// to its end before the ports close, so that receivers are not left with half of it.
constexpr std::uint64_t kRunOut = 300'000'000;
// The first of several ports that are chosen, or return, starts a loop check, which takes
// 100 ms and swallows the requests of the others. It is over by then; check again.
constexpr std::uint64_t kLoopCheckDelay = 250'000'000;
constexpr std::uint64_t kLookInterval = 500'000'000;

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
    // A reader of the diagnostics that has gone is no reason to stop the clock.
    std::signal(SIGPIPE, SIG_IGN);
  }
  ~StopSignals() { sQueue.store(nullptr); }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

 private:
  inline static std::atomic<host::MainQueue*> sQueue{nullptr};
};

int list(KVMIDICore& core) {
  std::printf("MIDI: %s\nSources\n%sDestinations\n%s", midi::service().serverDescription().c_str(),
              VLEndpointList(core.sources()).c_str(), VLEndpointList(core.destinations()).c_str());
  std::printf("Audio: %s\nDevices\n%s", audio::service().serverDescription().c_str(),
              VLAudioDeviceList(KAHALAudioSystem::defaultSystem()).c_str());
  return VLStandardOutput::end(0);
}

int fail(int status, const std::string& error) {
  std::fprintf(stderr, "velor: %s\n", store::printable(error).c_str());
  return status;
}

// Whether the clock does anything beside the reader.
bool usesClock(const VLOptions& options) {
  return !options.ltcIn || options.play || options.arm || options.file || !options.mtcOut.empty() ||
         !options.ltcOut.empty() || options.osc.isWanted();
}

void checkLoopsSoon(const std::shared_ptr<VLAppDelegate>& app) {
  host::current().mainQueue().after(kLoopCheckDelay, [weak = std::weak_ptr(app)] {
    if (const auto strong = weak.lock()) {
      strong->clock().doLoopDetection();
    }
  });
}

// Audio channels that appear announce nothing.
void lookForMissing(const VLWantedDevices& devices, std::weak_ptr<VLAppDelegate> app,
                    const std::function<void()>& follow) {
  if (devices.missing().empty()) {
    return;
  }
  host::current().mainQueue().after(kLookInterval, [&devices, app, &follow] {
    if (app.lock() != nullptr) {
      follow();
      lookForMissing(devices, app, follow);
    }
  });
}

void tellOfLastRun(const VLAppDelegate& app, const VLOptions& options) {
  if (const std::string missing = store::ApplicationFolders().missing(); !missing.empty()) {
    std::fprintf(stderr, "velor: %s\n", missing.c_str());
  }
  if (app.recovery().isBesideAnother() && !options.recover) {
    std::fputs(
        "velor: another velor runs with the same folders; the one that ends last overwrites the "
        "other's state; set XDG_DATA_HOME, XDG_CONFIG_HOME and XDG_STATE_HOME for one of them\n",
        stderr);
  }
  if (app.recovery().wasCutOff() && !options.recover) {
    const std::string copy = app.recovery().leftBehind()->string();
    VELOR_LOG_WARNING("the last run was cut off, its state is in %s", copy.c_str());
    std::fprintf(
        stderr, "velor: the last run was cut off; a start with --recover takes up its state (%s)\n",
        store::printable(copy).c_str());
  }
  if (!app.lastStateError().empty()) {
    std::fprintf(stderr, "velor: what the last run left cannot be taken up whole: %s\n",
                 store::printable(app.lastStateError()).c_str());
  }
}

// Changes what the document holds. Raises VLUsageError when a time is not one of the
// clock's format.
void setUp(VLAppDelegate& app, const VLOptions& options) {
  VLClock& clock = app.clock();
  if (options.format) {
    clock.setSmpteFormat(*options.format);
  }
  const VLTimes times = VLTimesFromWords(options.times, clock.smpteFormat());
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
}

// Ends what runs, so that receivers are left with whole blocks. What could not be saved;
// empty when all was.
std::string quit(VLAppDelegate& app, const VLWantedDevices& devices, host::MainQueue& mainQueue) {
  if (app.applicationShouldTerminate() == VLAppDelegate::TerminateReply::later) {
    mainQueue.run();  // until the reply
  }
  app.clock().stop();
  app.clock().disarm();
  std::string unsaved = app.applicationWillTerminate();
  if (const auto port = app.settings().lostOSCPort()) {
    std::fprintf(stderr,
                 "velor: OSC port %u could not be used; later starts receive no OSC unless "
                 "--osc-port is given\n",
                 unsigned{*port});
  }
  if (const auto reader = devices.reader()) {
    reader->setFreewheelTime(0);
    reader->setChannel(VLLTCReader::kNoChannel);
  }
  // Also after a stop of its own, which may have come just now.
  mainQueue.after(kRunOut, [&mainQueue] { mainQueue.stop(); });
  mainQueue.run();
  return unsaved;
}

}  // namespace

int VLHeadlessRun(const VLOptions& options) {
  // Before the services, with whose end the sockets go.
  const VLNetworkInForce network;
  const VLServicesInForce service;
  KVMIDICore& core = KVMIDICore::sharedCore();
  if (options.list) {
    return list(core);
  }

  // Before anything is told: who reads it may have gone.
  host::MainQueue& mainQueue = host::current().mainQueue();
  const StopSignals signals(mainQueue);
  // All ports first: nothing starts when one of them is not there.
  std::string error;
  auto devices = VLWantedDevices::find(options, error);
  if (!devices) {
    return fail(kUsageStatus, error);
  }
  const auto view = std::make_shared<VLHeadlessView>(*devices, usesClock(options));
  const auto window = std::make_shared<VLHeadlessWindow>(
      VLHeadlessWindow::Answers{options.autoFormat, options.ignoreLoops},
      [&view](const std::string& notice) { view->showNotice(notice); });
  const auto app = std::make_shared<VLAppDelegate>(window, view, store::ApplicationFolders());
  const KVObserverToken missing = KVNotificationCenter::defaultCenter().addObserver(
      KADeviceChoiceNotification, [&](const KVNotification& notification) {
        view->showNotice(std::any_cast<std::string>(notification.object));
        VLStandardError::tell(std::any_cast<std::string>(notification.object));
      });
  const KVObserverToken before = KVNotificationCenter::defaultCenter().addObserver(
      KVMIDINotification, [&](const KVNotification&) { devices->willFollowSetup(*app); });
  app->applicationDidFinishLaunching(options.file, options.fresh);
  // Until the options are applied there is nothing to follow.
  bool isApplied = false;
  KVObserverToken input;
  std::shared_ptr<VLLTCReaderDevice> reader;
  const auto showReader = [&] {
    if (const auto named = devices->reader(); named != nullptr && named != reader) {
      reader = named;
      reader->setDelegate(view);
      input = reader->addObserver("audioObjectId", [&](const auto&) { devices->keepChannel(); });
    }
  };
  const std::function<void()> followSetup = [&] {
    if (!isApplied) {
      return;
    }
    if (devices->follow(*app)) {
      checkLoopsSoon(app);
    }
    showReader();
  };
  const KVObserverToken behind = KVNotificationCenter::defaultCenter().addObserver(
      KVMIDINotification, [&](const KVNotification&) { followSetup(); });
  const KVObserverToken stops = app->clock().addObserver("status", [&](const auto&) {
    mainQueue.async([&, weak = std::weak_ptr(app)] {
      if (weak.lock() != nullptr) {
        followSetup();
      }
    });
  });
  // Whatever ends this start: no later one tells of it.
  tellOfLastRun(*app, options);
  if (options.file && !app->didLoadFileAtStartup()) {
    return fail(kFailureStatus, app->openError());
  }
  if (!app->openError().empty()) {
    window->presentError(app->openError());
  }
  if (options.recover) {
    if (app->recovery().isBesideAnother()) {
      return fail(kFailureStatus, "--recover: another velor runs with the same folders; end it");
    }
    if (!app->recovery().leftBehind()) {
      return fail(kUsageStatus, "--recover: no run was cut off");
    }
    if (!app->recover()) {
      return fail(kFailureStatus, "--recover: " + app->state().error());
    }
  }
  app->waitForSettings();
  VLOSCApply(options.osc, [window](const std::string& problem) { window->presentError(problem); });
  try {
    setUp(*app, options);
  } catch (const VLUsageError& wrong) {
    return fail(kUsageStatus, wrong.what());
  }
  if (options.arm && !options.syncSource && app->syncSource() == nullptr) {
    return fail(kUsageStatus, "--arm: no sync source is there; --sync-source names one");
  }
  if (!midi::service().isConnected()) {
    std::fputs("velor: no MIDI server is running; MIDI stays in process until one appears\n",
               stderr);
  }
  if (!devices->apply(*app, error)) {
    return fail(kUsageStatus, error);
  }
  isApplied = true;
  showReader();
  for (const std::string& problem : devices->missing()) {
    window->presentError(problem + "; waiting for it");
  }
  lookForMissing(*devices, app, followSetup);
  view->begin();
  // The first block must not come before the ports are open.
  midi::service().waitUntilSettled();
  if (app->syncSource() != nullptr) {
    checkLoopsSoon(app);
  }
  if (options.arm && app->syncSource() != nullptr) {
    app->clock().arm();
  }
  if (options.play) {
    app->play();
  }
  mainQueue.run();
  const std::string unsaved = quit(*app, *devices, mainQueue);
  return unsaved.empty() ? 0 : fail(kFailureStatus, unsaved);
}

}  // namespace velor
