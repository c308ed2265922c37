// SPDX-License-Identifier: MIT
#include "Velor/program/VLAnalyseLive.h"

#include <unistd.h>

#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "Kv-Appkit/KVException.h"
#include "Velor/ltc/VLLTCAnalysis.h"
#include "Velor/mtc/VLMTCAnalysis.h"
#include "Velor/program/VLAnalyseOutput.h"
#include "Velor/program/VLAnalysisText.h"
#include "Velor/program/VLAudioDevices.h"
#include "Velor/program/VLCurrentServices.h"
#include "Velor/program/VLMTCAnalysisText.h"
#include "Velor/program/VLPortNames.h"
#include "Velor/program/VLStopSignals.h"
#include "kva/KAHALDeviceOutputUnit.h"
#include "kva/MIDI/KVMIDICore.h"
#include "platform/host/Host.h"
#include "platform/midi/MIDIService.h"

namespace velor {
namespace {

constexpr int kUsageStatus = 2;
constexpr std::uint64_t kLook = 50'000'000;  // ns between two reads of the incoming samples
constexpr int kLooksPerStatus = 20;
constexpr std::size_t kRoom = 1 << 20;  // samples; seconds at any rate
constexpr KAUnitElement kInputElement = 1;

// Passes samples from the audio thread to the main queue, and counts those that are lost:
// skipped by the device, or come while there is no room.
class Incoming {
 public:
  static audio::OSStatus cycle(const host::RealtimeContext&, void* refCon,
                               const audio::AudioTimeStamp& time, std::uint32_t frames,
                               std::span<float* const> channels) noexcept {
    auto& self = *static_cast<Incoming*>(refCon);
    if (!channels.empty()) {
      self.write(time.mSampleTime, {channels[0], frames});
    }
    return 0;
  }

  std::vector<float> take() {
    const std::uint64_t end = mWritten.load(std::memory_order_acquire);
    std::vector<float> samples;
    for (std::uint64_t at = mRead.load(std::memory_order_relaxed); at != end; ++at) {
      samples.push_back(mSamples[at % kRoom]);
    }
    mRead.store(end, std::memory_order_release);
    return samples;
  }
  std::uint64_t lost() const { return mLost.load(); }

 private:
  void write(double sampleTime, std::span<const float> samples) noexcept {
    if (rt.hasNext && sampleTime > rt.next) {
      mLost.fetch_add(static_cast<std::uint64_t>(sampleTime - rt.next));
    }
    rt.next = sampleTime + static_cast<double>(samples.size());
    rt.hasNext = true;
    std::uint64_t at = mWritten.load(std::memory_order_relaxed);
    if (at - mRead.load(std::memory_order_acquire) + samples.size() > kRoom) {
      mLost.fetch_add(samples.size());
      return;
    }
    for (const float sample : samples) {
      mSamples[at++ % kRoom] = sample;
    }
    mWritten.store(at, std::memory_order_release);
  }

  std::vector<float> mSamples = std::vector<float>(kRoom);
  std::atomic<std::uint64_t> mWritten{0};
  std::atomic<std::uint64_t> mRead{0};
  std::atomic<std::uint64_t> mLost{0};
  // Only the audio thread reads and writes these.
  struct {
    double next = 0;
    bool hasNext = false;
  } rt;
};

// Runs the main queue until SIGINT or SIGTERM, and calls `look` every kLook.
class Listening {
 public:
  template <class Look>
  void run(const Look& look) {
    sQueue.store(&mQueue);
    VLStopSignalsInstall([](int) {
      if (host::MainQueue* queue = sQueue.load()) {
        queue->stop();
      }
    });
    std::signal(SIGPIPE, SIG_IGN);
    const auto isAlive = std::make_shared<bool>(true);
    again(look, isAlive, 0);
    mQueue.run();
    *isAlive = false;
    sQueue.store(nullptr);
    if (isatty(STDERR_FILENO) == 1) {
      std::fputs("\r\033[K", stderr);
    }
  }

 private:
  template <class Look>
  void again(const Look& look, std::shared_ptr<bool> isAlive, int number) {
    mQueue.after(kLook, [this, &look, isAlive, number] {
      if (*isAlive) {
        const bool showsStatus = number % kLooksPerStatus == 0 && isatty(STDERR_FILENO) == 1;
        look(showsStatus);
        again(look, isAlive, number + 1);
      }
    });
  }

  host::MainQueue& mQueue = host::current().mainQueue();
  inline static std::atomic<host::MainQueue*> sQueue{nullptr};
};

void show(const std::string& status) {
  std::fprintf(stderr, "\r\033[K%s", status.c_str());
}

// Says when the input or the port goes, as with its server, and when it returns.
class Presence {
 public:
  explicit Presence(std::string name) : mName(std::move(name)) {}

  void note(bool isThere) {
    if (isThere != mIsThere) {
      mIsThere = isThere;
      std::fprintf(stderr, "%svelor: analyse: '%s' is %s\n",
                   isatty(STDERR_FILENO) == 1 ? "\r\033[K" : "", store::printable(mName).c_str(),
                   isThere ? "back; the measurement goes on"
                           : "missing; nothing is measured until it returns");
    }
  }

 private:
  const std::string mName;
  bool mIsThere = true;
};

int analyseInput(const VLAnalyseOptions& options) {
  const auto channel = VLAudioChannelNamed(*options.live, audio::AudioDirection::input,
                                           KAHALAudioSystem::defaultSystem());
  if (!channel) {
    return VLAnalyseOutput::fail("--live: " + channel.error().text, kUsageStatus);
  }
  Incoming incoming;
  KAHALDeviceOutputUnit unit;
  unit.setPropertyGlobal(KAUnitProperty::nickName, std::string("Velor analysis"));
  unit.enableInput(true, false);
  unit.setDeviceID(channel->device->objectID());
  unit.setPropertyGlobal(KAUnitProperty::inputCallback,
                         audio::AURenderCallbackStruct{&Incoming::cycle, &incoming});
  const double sampleRate =
      unit.getStreamDescription(KAUnitScope::input, kInputElement).mSampleRate;
  unit.setStreamDescription(KAStreamFormat(sampleRate, 1), KAUnitScope::output, kInputElement);
  audio::AudioChannelMap map(channel->channel, -1);
  map.back() = 0;
  unit.setProperty(KAUnitProperty::channelMap, KAUnitScope::input, kInputElement, map);
  VLLTCAnalysis analysis(sampleRate);
  unit.initialize();
  unit.start();
  const std::string uid = channel->device->deviceUID();
  Presence presence(channel->name);
  Listening().run([&](bool showsStatus) {
    presence.note(KAHALAudioSystem::defaultSystem().audioDeviceForUID(uid) != nullptr);
    analysis.process(incoming.take());
    if (showsStatus) {
      show(VLAnalysisText::status(analysis.report()));
    }
  });
  unit.stop();
  analysis.process(incoming.take());
  analysis.finish();
  const VLLTCReport report = analysis.report();
  const int status = VLAnalyseOutput::end<VLAnalysisText>(report, options, channel->name);
  if (incoming.lost() > 0) {
    std::fprintf(stderr,
                 "velor: analyse: %llu samples were lost on their way from the device; drop-outs "
                 "and splices there are not those of the line\n",
                 static_cast<unsigned long long>(incoming.lost()));
  }
  return status != 0 || report.frames > 0 ? status
                                          : VLAnalyseOutput::fail("no LTC on " + channel->name, 1);
}

// MIDI's read thread adds messages, and the main queue takes reports.
struct Arriving {
  static void read(const midi::MIDIPacketList* packets, void* refCon, void* /*source*/) {
    auto& self = *static_cast<Arriving*>(refCon);
    const std::lock_guard lock(self.mutex);
    midi::forEachPacket(*packets, [&self](const midi::MIDIPacket& packet) {
      const std::uint64_t time =
          packet.timeStamp != 0 ? packet.timeStamp : host::current().AudioGetCurrentHostTime();
      self.analysis.add(packet.data, packet.length, time);
    });
  }
  VLMTCReport report() {
    const std::lock_guard lock(mutex);
    return analysis.report();
  }

  std::mutex mutex;
  VLMTCAnalysis analysis;
};

int analysePort(const VLAnalyseOptions& options) {
  KVMIDICore& core = KVMIDICore::sharedCore();
  const auto source = VLEndpointNamed(*options.mtc, core.sources(), "source");
  if (!source) {
    return VLAnalyseOutput::fail("--mtc: " + source.error().text, kUsageStatus);
  }
  Arriving arriving;
  midi::MIDIPortRef port = 0;
  if (midi::service().MIDIInputPortCreate(core.defaultClient(), "Velor Analysis In",
                                          &Arriving::read, &arriving, &port) != 0 ||
      midi::service().MIDIPortConnectSource(port, (*source)->endpoint(), nullptr) != 0) {
    return VLAnalyseOutput::fail("cannot listen to " + VLPortName(**source), 1);
  }
  const midi::MIDIUniqueID uniqueID = (*source)->uniqueID();
  Presence presence(VLPortName(**source));
  Listening().run([&](bool showsStatus) {
    presence.note(core.sourceWithUniqueId(uniqueID) != nullptr);
    if (showsStatus) {
      show(VLMTCAnalysisText::status(arriving.report()));
    }
  });
  midi::service().MIDIPortDispose(port);
  const VLMTCReport report = arriving.report();
  const int status = VLAnalyseOutput::end<VLMTCAnalysisText>(report, options, VLPortName(**source));
  return status != 0 || report.quarterFrames > 0
             ? status
             : VLAnalyseOutput::fail("no quarter frames came from " + VLPortName(**source), 1);
}

}  // namespace

int VLAnalyseLiveRun(const VLAnalyseOptions& options) {
  const VLCurrentServices services;
  try {
    return options.live ? analyseInput(options) : analysePort(options);
  } catch (const KVException& exception) {
    return VLAnalyseOutput::fail(exception.what(), 1);
  }
}

}  // namespace velor
