// SPDX-License-Identifier: MIT
#include "kvtimecode/generator/KVLTCGenerator.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <utility>

#include "Kv-Appkit/KVAnnouncement.h"
#include "Kv-Appkit/KVException.h"
#include "Kv-Appkit/KVWatchdog.h"
#include "kva/KAHALAudioSystem.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/generator/AudioGeneratorGraph.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Log.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {
namespace {

constexpr std::array<KVDependency, 6> kDependencies = {{
    {"deviation", "fps"},
    {"deviceStatus", "isGenerating"},
    {"frameRateString", "fps"},
    {"frameRateString", "isGenerating"},
    {"frameRateString", "deviation"},
    {"uiLevel", "level"},
}};

constexpr float kDefaultLevel = 0.1F;

constexpr double kFPSSteps = 500;  // a frame a second has
constexpr double kSmoothing = 0.9;
// A stream is over when it has been silent for so many frames.
constexpr double kSilentFrames = 4;
// A call writes frames for as long as this beyond the next call, so that the device can
// read so far ahead.
constexpr double kLatencyFrames = LTCPhaseLock::kFramesPerBatch - LTCPhaseLock::kFramesPerCall;
constexpr double kCubeRoot = 0.3333333333333333;

}  // namespace

// --- making and ending ---

KVLTCGenerator::KVLTCGenerator(std::string nickName)
    : KVObservable(kDependencies),
      mMainQueue(host::current().mainQueue()),
      mNickName(std::move(nickName)),
      mTCString(invalidSMPTEString()) {
  setLevel(kDefaultLevel);
}

std::shared_ptr<KVLTCGenerator> KVLTCGenerator::initWithAudioObjectID(audio::AudioObjectID objectID,
                                                                      std::string nickName) {
  const std::shared_ptr<KVLTCGenerator> generator(new KVLTCGenerator(std::move(nickName)));
  generator->observeDevices();
  auto device = KAHALAudioDevice::initWithAudioObjectID(objectID);
  generator->choose(device != nullptr ? device
                                      : KAHALAudioSystem::defaultSystem().defaultOutputDevice());
  return generator;
}

KVLTCGenerator::~KVLTCGenerator() {
  mGraph.reset();
}

void KVLTCGenerator::observeDevices() {
  mDeviceToken = KAHALAudioSystem::defaultSystem().addObserver(
      "audioDevices", [weak = weak_from_this()](const auto&) {
        if (const auto self = weak.lock()) {
          self->devicesChanged();
        }
      });
}

std::shared_ptr<KVLTCGenerator> KVLTCGenerator::initClosed() {
  return std::shared_ptr<KVLTCGenerator>(new KVLTCGenerator({}));
}

std::shared_ptr<KVLTCGenerator> KVLTCGenerator::initWithCoder(store::KeyedUnarchiver& coder) {
  const auto generator = initClosed();
  generator->setLevel(static_cast<float>(coder.decodeDouble(kLevelKey).value_or(0)));
  generator->setUserbits(static_cast<std::uint32_t>(coder.decodeInt32(kUserBitsKey).value_or(0)));
  const auto uid = coder.decodeString(kDeviceKey);
  const auto map = coder.decodeBytes(kChannelMapKey);
  generator->mChoice.choose(uid.value_or(""));
  // The map waits for a device that is missing now.
  if (uid && map) {
    generator->mChosenMap.resize(
        std::min<std::size_t>(map->size() / sizeof(std::int32_t), audio::kMaxChannels));
    std::copy_n(map->data(), generator->mChosenMap.size() * sizeof(std::int32_t),
                reinterpret_cast<std::uint8_t*>(generator->mChosenMap.data()));
  }
  return generator;
}

void KVLTCGenerator::open() {
  observeDevices();
  rebuild();
}

void KVLTCGenerator::encodeWithCoder(store::KeyedArchiver& coder) const {
  std::vector<std::int32_t> map = mChosenMap;
  if (mChoice.isChosenInUse()) {
    map.resize(lengthOfChannelMap());
    getChannelMap(map);
  }
  const auto* const first = reinterpret_cast<const std::uint8_t*>(map.data());
  const std::vector<std::uint8_t> bytes(first, first + map.size() * sizeof(std::int32_t));
  coder.encodeString(mChoice.chosenUID(), kDeviceKey);
  coder.encodeInt32(static_cast<std::int32_t>(userbits()), kUserBitsKey);
  coder.encodeDouble(level(), kLevelKey);
  coder.encodeBytes(bytes, kChannelMapKey);
}

// --- devices ---

void KVLTCGenerator::setAudioObjectId(audio::AudioObjectID objectID) {
  const auto device = KAHALAudioDevice::initWithAudioObjectID(objectID);
  choose(device != nullptr ? device : KAHALAudioSystem::defaultSystem().defaultOutputDevice());
}

void KVLTCGenerator::choose(const Device& device) {
  const KVAnnouncement announcement(*this, "audioObjectId");
  mChoice.take(device, [this](const Device& chosen) {
    mChosenMap.clear();
    disposeGraph();
    mWriter.close();
    if (chosen != nullptr) {
      setupGraph(chosen);
    }
  });
}

// When this raises, it is silent.
void KVLTCGenerator::setupGraph(const Device& device) {
  try {
    auto graph =
        std::make_unique<AudioGeneratorGraph>(device->objectID(), mNickName, mWriter.samples());
    const audio::AudioObjectID deviceID = graph->output().deviceID();
    mWriter.open(deviceID, graph->sampleRate(), graph->latency());
    if (!mChosenMap.empty() && device->deviceUID() == mChoice.chosenUID()) {
      graph->setChannelMap(mChosenMap);
    }
    graph->listen(&KVLTCGenerator::auPropertyListener, this);
    graph->start();
    mGraph = std::move(graph);
    mHasWarned = false;
    mAudioObjectId.store(deviceID);
  } catch (const KVException&) {
    mWriter.close();
    throw;
  }
}

void KVLTCGenerator::disposeGraph() {
  if (mGraph == nullptr) {
    return;
  }
  try {
    mGraph->stop();
  } catch (const KVException& exception) {
    VELOR_LOG_WARNING("%s", exception.what());  // its device may have gone
  }
  mWriter.silence();
  mGraph.reset();
  mAudioObjectId.store(audio::kAudioObjectUnknown);
}

void KVLTCGenerator::auPropertyListener(void* refCon, KAUnitProperty /*property*/) {
  auto& self = *static_cast<KVLTCGenerator*>(refCon);
  if (self.mIsRebuildPosted.exchange(true)) {
    return;
  }
  self.mMainQueue.async([weak = self.weak_from_this()] {
    if (const auto strong = weak.lock()) {
      strong->mIsRebuildPosted.store(false);
      strong->devicesChanged();
    }
  });
}

void KVLTCGenerator::rebuild() {
  const KVAnnouncement announcement(*this, "audioObjectId");
  disposeGraph();
  if (!mChoice.settle([this](const Device& device) { setupGraph(device); })) {
    mWriter.close();
  }
}

// Keeps a graph that still fits: this report may come from the making of that graph. Its
// output follows a device that goes and returns, and its channels, by itself.
void KVLTCGenerator::devicesChanged() {
  bool fits = false;
  try {
    fits = isGraphCurrent();
  } catch (const KVException& exception) {
    VELOR_LOG_WARNING("%s", exception.what());  // gone while it was asked
  }
  if (!fits) {
    rebuild();
  } else {
    notePresence();
  }
}

bool KVLTCGenerator::isGraphCurrent() {
  return !mChoice.needsSettling() && mGraph != nullptr &&
         mGraph->output().sampleRate() == mGraph->sampleRate();
}

void KVLTCGenerator::notePresence() {
  const audio::AudioObjectID device =
      mChoice.isUsedPresent() ? mGraph->output().deviceID() : audio::kAudioObjectUnknown;
  if (device != audioObjectId()) {
    const KVAnnouncement announcement(*this, "audioObjectId");
    mAudioObjectId.store(device);
  }
}

void KVLTCGenerator::setNickName(std::string nickName) {
  if (mNickName == nickName) {
    return;
  }
  mNickName = std::move(nickName);
  if (mGraph != nullptr) {
    // Ports get their names when they are opened.
    mGraph->output().stop();
    mGraph->setNickName(mNickName);
    mGraph->output().start();
  }
}

std::uint32_t KVLTCGenerator::lengthOfChannelMap() const {
  return mGraph == nullptr ? 0 : static_cast<std::uint32_t>(mGraph->channelMap().size());
}

void KVLTCGenerator::getChannelMap(std::span<std::int32_t> map) const {
  if (mGraph != nullptr) {
    const audio::AudioChannelMap own = mGraph->channelMap();
    std::copy_n(own.begin(), std::min(own.size(), map.size()), map.begin());
  }
}

void KVLTCGenerator::setChannelMap(std::span<const std::int32_t> map) {
  if (mGraph == nullptr || map.empty()) {
    return;
  }
  const KVAnnouncement announcement(*this, "channelMap");
  const audio::AudioChannelMap wanted(map.begin(), map.end());
  mGraph->setChannelMap(wanted);
  // A map that is set for a stand-in is not kept.
  if (mChoice.isChosenInUse()) {
    mChosenMap = wanted;
  }
}

// --- properties ---

void KVLTCGenerator::setUserbits(std::uint32_t userbits) {
  const KVAnnouncement announcement(*this, "userbits");
  mWriter.setUserbits(userbits);
}

void KVLTCGenerator::setLevel(float level) {
  const KVAnnouncement announcement(*this, "level");
  mWriter.setLevel(level > 1 ? 1 : level > 0 ? level : 0);  // 0 also for NaN
}

float KVLTCGenerator::uiLevel() const noexcept {
  return static_cast<float>(std::pow(static_cast<double>(level()), kCubeRoot));
}

void KVLTCGenerator::setUiLevel(float uiLevel) {
  setLevel(uiLevel * uiLevel * uiLevel);
}

double KVLTCGenerator::deviation() const noexcept {
  return mDeviation.load() * 100;
}

std::string KVLTCGenerator::frameRateString() const {
  if (!isGenerating()) {
    return "-- fps";
  }
  char text[64];
  std::snprintf(text, sizeof text, "%.2f fps (%+.3f%c)", fps(), deviation(), '%');
  return text;
}

// --- time that comes in ---

void KVLTCGenerator::copyTime(const SMPTETime& time, std::uint64_t hostTime) {
  constexpr std::uint32_t kWanted = kSMPTETimeValid | kSMPTETimeRunning;
  if ((time.mFlags & kWanted) != kWanted) {
    return;
  }
  const auto deviation = mWriter.write(time, hostTime);
  if (!deviation) {
    return;
  }
  mDeviation.store(kSmoothing * mDeviation.load() + (1 - kSmoothing) * *deviation);
  if (!mIsUpdatePosted.exchange(true)) {
    mMainQueue.async([weak = weak_from_this()] {
      if (const auto self = weak.lock()) {
        self->updateStatus();
      }
    });
  }
}

// --- status ---

void KVLTCGenerator::updateStatus() {
  mIsUpdatePosted.store(false);
  const auto stream = mWriter.stream();
  if (!stream) {
    return;  // stopped since
  }
  followLatency();
  const double fps = std::round(stream->sampleRate * kFPSSteps / stream->frameSamples) / kFPSSteps;
  if (fps != mFPS.load()) {
    const KVAnnouncement announcement(*this, "fps");
    mFPS.store(fps);
  }
  setTCString(stringFromSMPTETime(stream->time));
  if (!stream->isWatched) {
    startWatchdog();
    const KVAnnouncement announcement(*this, "isGenerating");
    mIsGenerating.store(true);
  }
}

// Servers change it while they run and report nothing.
void KVLTCGenerator::followLatency() {
  try {
    mWriter.setLatency(mGraph->latency());
  } catch (const KVException&) {
    return;  // the device has gone, and its listener reports that
  }
}

void KVLTCGenerator::startWatchdog() {
  const double fps = mFPS.load();
  const double interval = kSilentFrames / (fps - 1);
  if (!ltc_is_valid_frame_rate(fps) || !(interval > 0 && interval < 1)) {
    return;
  }
  const auto watchdog = KVWatchdog::initWithTimeinterval(
      interval,
      [weak = weak_from_this()](KVWatchdog&, const std::shared_ptr<void>&) {
        if (const auto self = weak.lock()) {
          self->stopped();
        }
      },
      mMainQueue);
  watchdog->resumeAfter(interval);
  mWriter.setWatchdog(watchdog);
}

void KVLTCGenerator::stopped() {
  VELOR_LOG_INFO("Generator stopped to receive MTC");
  if (!mWriter.stop()) {
    warnOfLatency();
  }
  restartOutput();
  {
    const KVAnnouncement announcement(*this, "isGenerating");
    mIsGenerating.store(false);
  }
  mWriter.setWatchdog(nullptr);
  setTCString(invalidSMPTEString());
}

void KVLTCGenerator::warnOfLatency() {
  if (mHasWarned || mGraph == nullptr) {
    return;
  }
  try {
    const double seconds = (mGraph->latency() + mGraph->period()) / mGraph->sampleRate();
    if (seconds * mFPS.load() > kLatencyFrames) {
      mHasWarned = true;
      VELOR_LOG_WARNING("latency of %.0f ms is too long for LTC; set a shorter period",
                        1000 * seconds);
    }
  } catch (const KVException& exception) {
    VELOR_LOG_WARNING("%s", exception.what());
  }
}

void KVLTCGenerator::restartOutput() {
  if (mGraph == nullptr) {
    return;
  }
  try {
    mGraph->restart();
  } catch (const KVException& exception) {
    VELOR_LOG_ERROR("%s", exception.what());
    rebuild();
  }
}

void KVLTCGenerator::setTCString(std::string tcstring) {
  const KVAnnouncement announcement(*this, "tcstring");
  mTCString = std::move(tcstring);
}

}  // namespace velor
