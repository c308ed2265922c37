// SPDX-License-Identifier: MIT
#include "Velor/app/VLHeadless.h"

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVNotificationCenter.h"
#include "Velor/app/VLAudioDevices.h"
#include "Velor/app/VLNetworkInForce.h"
#include "Velor/app/VLOSCRemote.h"
#include "Velor/app/VLPortNames.h"
#include "Velor/app/VLServicesInForce.h"
#include "Velor/app/VLStatusLine.h"
#include "Velor/app/VLStopSignals.h"
#include "Velor/clock/VLClock.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/devices/VLLTCGeneratorDevice.h"
#include "Velor/devices/VLLTCReaderDevice.h"
#include "Velor/osc/VLOSCServer.h"
#include "kva/MIDI/KVMIDICore.h"
#include "platform/audio/AudioService.h"
#include "platform/host/Host.h"
#include "platform/host/Log.h"

namespace velor {
namespace {

constexpr int kUsageStatus = 2;
// Quarter frames are scheduled up to 16 ahead: after a stop the last block runs out
// to its end before the ports close, so that receivers are not left with half of it.
constexpr std::uint64_t kRunOut = 300'000'000;
// The checks for loops that choosing the ports has begun are over by then; they ran
// while the ways were being opened, and nothing could come back.
constexpr std::uint64_t kLoopCheckDelay = 250'000'000;
// What no event announces, such as the server's name, is looked at this often.
constexpr std::uint64_t kRefreshInterval = 500'000'000;

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

void setUp(VLClock& clock, const VLOptions& options) {
  clock.setSmpteFormat(options.format);
  if (options.offset) {
    clock.setSmpteOffset(*options.offset);
  }
  clock.setPlayRatePercent(options.ratePercent);
  clock.setPlaybackMode(options.playMode);
  if (options.stopAt) {
    clock.setStopTime(*options.stopAt);
  }
  if (options.loop) {
    clock.setLoopStartTime(options.loop->first);
    clock.setLoopEndTime(options.loop->second);
  }
  if (options.preroll) {
    clock.setPrerollTime(*options.preroll);
    clock.setPreroll(true);
  }
  if (options.start) {
    clock.setTime(*options.start);
  }
}

int list(KVMIDICore& core) {
  std::printf("MIDI: %s\nSources\n%sDestinations\n%s", midi::service().serverDescription().c_str(),
              VLEndpointList(core.sources()).c_str(), VLEndpointList(core.destinations()).c_str());
  std::printf("Audio: %s\nDevices\n%s", audio::service().serverDescription().c_str(),
              VLAudioDeviceList(KAHALAudioSystem::defaultSystem()).c_str());
  return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? 0 : 1;
}

// A port that was named on the command line, over its absence.
struct WantedPort {
  std::shared_ptr<KVMIDIEndpoint> endpoint;  // as it was found
  midi::MIDIUniqueID uniqueID;
  VLNamedPort shown;
};

bool isPresent(midi::MIDIUniqueID id, const KVMIDICore::Endpoints& endpoints) {
  return std::any_of(endpoints.begin(), endpoints.end(),
                     [id](const auto& endpoint) { return endpoint->uniqueID() == id; });
}

// Finds the port, or says on standard error why there is none.
std::optional<WantedPort> findPort(const char* option, const std::string& name, const char* kind,
                                   const KVMIDICore::Endpoints& endpoints) {
  std::string error;
  auto endpoint = VLEndpointNamed(name, endpoints, kind, error);
  if (endpoint == nullptr) {
    std::fprintf(stderr, "velor: %s: %s\n", option, VLPrintable(error).c_str());
    return std::nullopt;
  }
  const midi::MIDIUniqueID id = endpoint->uniqueID();
  VLNamedPort shown{VLPortName(*endpoint), true};
  return WantedPort{std::move(endpoint), id, std::move(shown)};
}

// A generator of LTC that was asked for on the command line.
struct LTCOutput {
  std::string name;
  audio::AudioObjectID deviceID;
  std::shared_ptr<KVLTCGenerator> generator;
};

// A reader of LTC that was asked for on the command line.
struct LTCInput {
  std::string name;
  audio::AudioObjectID deviceID;
  std::uint32_t channel;  // from 0
  std::shared_ptr<VLLTCReaderDevice> reader;
};

// Without a device when there is none, which standard error is told.
VLAudioChannel findChannel(const char* option, const std::string& name,
                           audio::AudioObjectPropertyScope scope,
                           const std::vector<VLAudioChannel>& others = {}) {
  std::string error;
  auto channel = VLAudioChannelNamed(name, scope, KAHALAudioSystem::defaultSystem(), error);
  for (const VLAudioChannel& other : others) {
    if (channel.device != nullptr && other.device->objectID() == channel.device->objectID() &&
        other.channel == channel.channel) {
      error = "'" + channel.name + "' is named twice";
      channel.device = nullptr;
    }
  }
  if (channel.device == nullptr) {
    std::fprintf(stderr, "velor: %s: %s\n", option, VLPrintable(error).c_str());
  }
  return channel;
}

std::optional<std::vector<VLAudioChannel>> findOutputs(const std::vector<std::string>& names) {
  std::vector<VLAudioChannel> outputs;
  for (const std::string& name : names) {
    auto output = findChannel("--ltc-out", name, audio::kAudioObjectPropertyScopeOutput, outputs);
    if (output.device == nullptr) {
      return std::nullopt;
    }
    outputs.push_back(std::move(output));
  }
  return outputs;
}

// Makes a generator that plays there, as a destination that is switched on.
LTCOutput makeGenerator(const VLAudioChannel& output, const VLOptions& options,
                        VLDeviceManager& devices) {
  const auto device = devices.createGenerator();
  const auto& generator = device->generator();
  generator->setAudioObjectId(output.device->objectID());
  std::vector<std::int32_t> map(output.channels, -1);
  map[output.channel - 1] = 0;
  generator->setChannelMap(map);
  generator->setLevel(options.ltcLevel);
  generator->setUserbits(options.ltcUserBits);
  // The news of its input would come later, and the clock may be about to start.
  KVMIDICore::sharedCore().resyncDeviceList();
  devices.destinationsChanged();
  if (const auto destination = devices.destinationWithEndpoint(device->midiEndpoint())) {
    destination->setEnable(true);
  }
  return {output.name, output.device->objectID(), generator};
}

// Makes a reader that listens there.
LTCInput makeReader(const VLAudioChannel& input, const VLOptions& options,
                    VLDeviceManager& devices) {
  const auto reader = devices.createrReader();
  LTCInput made{input.name, input.device->objectID(), input.channel - 1, reader};
  reader->setAudioObjectId(made.deviceID);
  reader->setChannel(made.channel);
  reader->setFreewheelTime(options.freewheel);
  return made;
}

// Whether the clock does anything beside the reader.
bool usesClock(const VLOptions& options) {
  return !options.ltcIn || options.play || options.arm || !options.mtcOut.empty() ||
         !options.ltcOut.empty() || options.osc.isWanted();
}

// Hears the clock and the reader, and keeps the status line in step with it, the ports and the
// server. Main queue.
class Watcher final : public VLClockDelegate, public LTCReaderDeviceDelegate {
 public:
  Watcher(VLClock& clock, KVMIDICore& core, std::optional<WantedPort> source,
          std::vector<WantedPort> destinations, std::vector<LTCOutput> ltc,
          std::optional<LTCInput> ltcIn, bool isClockUsed, std::shared_ptr<VLOSCRemote> remote)
      : mClock(clock),
        mCore(core),
        mSource(std::move(source)),
        mDestinations(std::move(destinations)),
        mLTC(std::move(ltc)),
        mLTCIn(std::move(ltcIn)),
        mIsClockUsed(isClockUsed),
        mRemote(std::move(remote)),
        mObserver(KVNotificationCenter::defaultCenter().addObserver(
            KVMIDINotification, [this](const KVNotification&) { portsChanged(); })) {
    if (mLTCIn) {
      mInputToken =
          mLTCIn->reader->addObserver("audioObjectId", [this](const auto&) { keepChannel(); });
    }
    if (mLine.isVisible() || mRemote != nullptr) {
      mClock.setProceedBlock([this](const SMPTETime* time) { proceed(*time); });
    }
    if (mLine.isVisible()) {
      refresh();
    }
  }
  ~Watcher() override { mClock.setProceedBlock(nullptr); }

  void clockDidStartPlaying(VLClock&) override { showNow(); }
  void clockDidStopPlaying(VLClock&) override {
    if (mRemote != nullptr) {
      mRemote->clockDidStopPlaying();
    }
    showNow();
  }
  void clockReceivesWrongFormat(VLClock&, std::uint32_t format) override {
    mReceivedFormat = format;
    showNow();
  }
  void setInputTimecode(const SMPTETime& time) override {
    mRead = time;
    showNow();
  }
  void changedUserbits(std::uint32_t) override { showNow(); }
  void changedCurrentSpeed(double) override { showNow(); }
  void mtcDidChangeState(VLMTCState) override { showNow(); }
  // A new check: what the last one found may be mended. Without a source nothing
  // could come back, and receivers are spared the message.
  bool clockShouldCheckForMTCLoop(VLClock&) override {
    mLoop.reset();
    return mSource.has_value();
  }
  void clockDetectedMTCLoop(VLClock&, const std::shared_ptr<KVMIDIEndpoint>& source,
                            const std::shared_ptr<KVMIDIEndpoint>& destination) override {
    mLoop = {VLPortName(*destination),
             source != nullptr ? VLPortName(*source) : std::string("the sync source")};
    if (!mLine.isVisible()) {
      std::fprintf(stderr, "velor: MTC loop: what is sent to %s comes back from %s\n",
                   VLPrintable(mLoop->first).c_str(), VLPrintable(mLoop->second).c_str());
    }
    showNow();
  }

 private:
  void proceed(const SMPTETime& time) {
    if (mRemote != nullptr) {
      VLOSCRemote::proceed(time);
    }
    if (mLine.isVisible()) {
      show(time);
    }
  }
  void showNow() {
    if (mLine.isVisible()) {
      show(mClock.time());
    }
  }
  void show(const SMPTETime& time) {
    VLStatus status{time,
                    mClock.status(),
                    mReceivedFormat,
                    mLoop,
                    std::nullopt,
                    {},
                    {},
                    std::nullopt,
                    mIsClockUsed,
                    midi::service().serverDescription(),
                    0};
    if (mSource) {
      status.source = mSource->shown;
    }
    for (const WantedPort& port : mDestinations) {
      status.destinations.push_back(port.shown);
    }
    for (const LTCOutput& output : mLTC) {
      status.ltc.push_back({{output.name, output.generator->audioObjectId() == output.deviceID},
                            output.generator->frameRateString()});
    }
    if (mRemote != nullptr) {
      status.oscPort = VLOSCServer::sharedServer().port();
    }
    if (mLTCIn) {
      const VLLTCReaderDevice& reader = *mLTCIn->reader;
      status.ltcIn = {{mLTCIn->name, reader.audioObjectId() == mLTCIn->deviceID},
                      mRead,
                      reader.getLatestSpeed(),
                      reader.userbits(),
                      reader.deviceStatus()};
      if (reader.freewheeling()) {
        reader.getLatestTime(status.ltcIn->time);
      }
    }
    mLine.show(status);
  }
  // It was named; a change of the device's rate sets it back.
  void keepChannel() {
    if (mLTCIn->reader->audioObjectId() == mLTCIn->deviceID) {
      mLTCIn->reader->setChannel(mLTCIn->channel);
    }
    showNow();
  }
  void portsChanged() {
    if (mSource) {
      mSource->shown.present = isPresent(mSource->uniqueID, mCore.sources());
    }
    const KVMIDICore::Endpoints destinations = mCore.destinations();
    for (WantedPort& port : mDestinations) {
      port.shown.present = isPresent(port.uniqueID, destinations);
    }
    showNow();
  }
  void refresh() {
    show(mClock.time());
    host::current().mainQueue().after(kRefreshInterval, [this, alive = std::weak_ptr(mAlive)] {
      if (alive.lock() != nullptr) {
        refresh();
      }
    });
  }

  VLClock& mClock;
  KVMIDICore& mCore;
  std::optional<WantedPort> mSource;
  std::vector<WantedPort> mDestinations;
  std::vector<LTCOutput> mLTC;
  std::optional<LTCInput> mLTCIn;
  const bool mIsClockUsed;
  SMPTETime mRead{};                           // the time read last
  const std::shared_ptr<VLOSCRemote> mRemote;  // null without OSC
  std::uint32_t mReceivedFormat = 0;
  std::optional<std::pair<std::string, std::string>> mLoop;
  VLStatusLine mLine;
  const std::shared_ptr<int> mAlive = std::make_shared<int>();
  const KVObserverToken mObserver;
  KVObserverToken mInputToken;
};

}  // namespace

int VLHeadlessRun(const VLOptions& options) {
  // Before the services, with whose end the sockets go.
  std::optional<VLNetworkInForce> network;
  if (options.osc.isWanted()) {
    network.emplace();
  }
  const VLServicesInForce service;
  KVMIDICore& core = KVMIDICore::sharedCore();
  if (options.list) {
    return list(core);
  }

  // Before anything is told: who reads it may have gone.
  host::MainQueue& mainQueue = host::current().mainQueue();
  const StopSignals signals(mainQueue);
  // All ports first: nothing starts when one of them is not there.
  std::vector<WantedPort> destinations;
  for (const std::string& name : options.mtcOut) {
    auto port = findPort("--mtc-out", name, "destination", core.destinations());
    if (!port) {
      return kUsageStatus;
    }
    destinations.push_back(std::move(*port));
  }
  std::optional<WantedPort> source;
  if (options.syncSource) {
    source = findPort("--sync-source", *options.syncSource, "source", core.sources());
    if (!source) {
      return kUsageStatus;
    }
  }
  const auto outputs = findOutputs(options.ltcOut);
  if (!outputs) {
    return kUsageStatus;
  }
  VLAudioChannel input;
  if (options.ltcIn) {
    input = findChannel("--ltc-in", *options.ltcIn, audio::kAudioObjectPropertyScopeInput);
    if (input.device == nullptr) {
      return kUsageStatus;
    }
  }
  std::shared_ptr<VLOSCRemote> remote;
  if (network) {
    remote = std::make_shared<VLOSCRemote>(VLClock::sharedClock());
    std::string error;
    if (const int status = VLOSCRemote::start(remote, options.osc, error); status != 0) {
      std::fprintf(stderr, "velor: %s\n", VLPrintable(error).c_str());
      return status;
    }
  }
  if (!midi::service().isConnected()) {
    std::fputs("velor: no MIDI server is running; MIDI stays in process until one appears\n",
               stderr);
  }

  VLClock& clock = VLClock::sharedClock();
  VLDeviceManager& devices = VLDeviceManager::sharedManager();
  std::vector<LTCOutput> ltc;
  for (const VLAudioChannel& output : *outputs) {
    ltc.push_back(makeGenerator(output, options, devices));
  }
  std::optional<LTCInput> ltcIn;
  if (input.device != nullptr) {
    ltcIn = makeReader(input, options, devices);
  }
  const auto watcher = std::make_shared<Watcher>(clock, core, source, destinations, ltc, ltcIn,
                                                 usesClock(options), remote);
  clock.setDelegate(watcher);
  if (ltcIn) {
    ltcIn->reader->setDelegate(watcher);
  }
  setUp(clock, options);
  for (const WantedPort& port : destinations) {
    if (const auto device = devices.destinationWithEndpoint(port.endpoint)) {
      device->setEnable(true);
    }
  }
  if (source) {
    clock.setMIDISyncSource(source->endpoint);
  }
  // Else the first block might find its way not open yet.
  midi::service().waitUntilSettled();
  if (source) {
    mainQueue.after(kLoopCheckDelay, [&clock] { clock.doLoopDetection(); });
  }
  if (options.arm) {
    clock.arm();
  }
  if (options.play) {
    clock.start();
  }
  mainQueue.run();
  const bool ran = options.play || options.arm || remote != nullptr;
  if (ran || ltcIn) {
    if (ran) {
      clock.stop();
      clock.disarm();
    }
    if (ltcIn) {
      ltcIn->reader->setFreewheelTime(0);
      ltcIn->reader->setChannel(VLLTCReader::kNoChannel);
    }
    // Also after a stop of its own, which may have come just now.
    mainQueue.after(kRunOut, [&mainQueue] { mainQueue.stop(); });
    mainQueue.run();
  }
  return 0;
}

}  // namespace velor
