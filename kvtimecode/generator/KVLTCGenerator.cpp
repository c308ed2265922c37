// SPDX-License-Identifier: MIT
#include "kvtimecode/generator/KVLTCGenerator.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <mutex>
#include <utility>

#include "Kv-Appkit/KVAnnouncement.h"
#include "Kv-Appkit/KVAssert.h"
#include "Kv-Appkit/KVException.h"
#include "kva/KAHALAudioSystem.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/generator/AudioGeneratorGraph.h"
#include "kvtimecode/ltc_two_frames.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/audio/AudioService.h"
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

// The ring holds two batches at the lowest frame rate.
constexpr double kLowestFrameRate = 24;
constexpr double kRingFrames = 2 * LTCPhaseLock::kFramesPerBatch;

// MTC names a time when its first piece is sent; this is the frame due at its target.
constexpr std::uint32_t kFramesAhead = 2;

constexpr double kFPSSteps = 500;  // a frame a second has
constexpr double kSmoothing = 0.9;
// A stream is over when it has been silent for so many frames.
constexpr double kSilentFrames = 4;
// A call writes frames for as long as this beyond the next call, so that the device can
// read so far ahead.
constexpr double kLatencyFrames = LTCPhaseLock::kFramesPerBatch - LTCPhaseLock::kFramesPerCall;
constexpr double kCubeRoot = 0.3333333333333333;

std::array<std::uint8_t, kLTCUserBytes> bytesOf(std::uint32_t userbits) noexcept {
  std::array<std::uint8_t, kLTCUserBytes> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>(userbits >> 8 * i);
  }
  return bytes;
}

}  // namespace

// --- making and ending ---

KVLTCGenerator::KVLTCGenerator(std::string nickName)
    : KVObservable(kDependencies),
      mMainQueue(host::current().mainQueue()),
      mNickName(std::move(nickName)),
      mTCString(invalidSMPTEString()),
      mLTC(ltc_frame_create()) {
  KV_ASSERT(mLTC != nullptr);
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
    publish(nullptr, {});
    if (chosen != nullptr) {
      setupGraph(chosen);
    }
  });
}

// When this raises, it is silent.
void KVLTCGenerator::setupGraph(const Device& device) {
  try {
    auto graph =
        std::make_unique<AudioGeneratorGraph>(device->objectID(), mNickName, mAudioGeneratorRefCon);
    const std::uint32_t latency = graph->latency();
    const double sampleRate = graph->sampleRate();
    const auto length =
        static_cast<std::uint32_t>(std::ceil(sampleRate / kLowestFrameRate) * kRingFrames);
    const audio::AudioObjectID deviceID = graph->output().deviceID();
    auto buffers = std::make_shared<Buffers>(sampleRate, deviceID, latency, length);
    publish(std::move(buffers), std::vector<float>(length));
    if (!mChosenMap.empty() && device->deviceUID() == mChoice.chosenUID()) {
      graph->setChannelMap(mChosenMap);
    }
    graph->listen(&KVLTCGenerator::auPropertyListener, this);
    graph->start();
    mGraph = std::move(graph);
    mHasWarned = false;
    mAudioObjectId.store(deviceID);
  } catch (const KVException&) {
    publish(nullptr, {});
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
  resetPingPongBuffers();
  mGraph.reset();
  mAudioObjectId.store(audio::kAudioObjectUnknown);
}

void KVLTCGenerator::resetPingPongBuffers() {
  const std::lock_guard lock(mAudioGeneratorRefCon.lock);
  mAudioGeneratorRefCon.writeEnd = 0;
}

// A call of `copyTime` that is under way goes on with what it has got and writes
// nothing. What it has is freed here, later: it must not be the last to hold it.
void KVLTCGenerator::publish(std::shared_ptr<Buffers> buffers, std::vector<float> ring) {
  {
    const std::lock_guard lock(mAudioGeneratorRefCon.lock);
    ++mEpoch;
    mAudioGeneratorRefCon.writeEnd = 0;
    mAudioGeneratorRefCon.ring.swap(ring);
    mBuffers.swap(buffers);
  }
  if (buffers != nullptr) {
    mRetired.push_back(std::move(buffers));
  }
  std::erase_if(mRetired, [](const auto& retired) { return retired.use_count() == 1; });
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
    publish(nullptr, {});
  }
}

// Rebuilds what does not fit any more. What does is left alone: the making of the
// graph itself may be what was told. The output follows a device that goes and returns, and
// its channels, by itself.
void KVLTCGenerator::devicesChanged() {
  bool fits = false;
  try {
    fits = isGraphInForce();
  } catch (const KVException& exception) {
    VELOR_LOG_WARNING("%s", exception.what());  // gone while it was asked
  }
  if (!fits) {
    rebuild();
  } else {
    notePresence();
  }
}

bool KVLTCGenerator::isGraphInForce() {
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
  // One that is set for a stand-in goes with it.
  if (mChoice.isChosenInUse()) {
    mChosenMap = wanted;
  }
}

// --- properties ---

void KVLTCGenerator::setUserbits(std::uint32_t userbits) {
  const KVAnnouncement announcement(*this, "userbits");
  mUserBits.store(userbits);
}

void KVLTCGenerator::setLevel(float level) {
  const KVAnnouncement announcement(*this, "level");
  mLevel.store(level > 1 ? 1 : level > 0 ? level : 0);  // what is no number is 0, too
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
  AudioGeneratorRefCon& shared = mAudioGeneratorRefCon;
  std::shared_ptr<Buffers> buffers;
  std::uint64_t epoch = 0;
  bool isFirst = false;
  {
    const std::lock_guard lock(shared.lock);
    buffers = mBuffers;
    epoch = mEpoch;
    isFirst = !std::exchange(mHasRxedBefore, true);
  }
  if (isFirst) {
    VELOR_LOG_INFO("Generator starts to receive: %s (%s)", stringFromSMPTETime(time).c_str(),
                   stringFromSMPTEFormat(time.mType).c_str());
  }
  if (buffers == nullptr || !ltc_is_valid_type(time.mType)) {
    return;
  }

  audio::AudioTimeStamp stamp;
  stamp.mHostTime = hostTime;
  stamp.mFlags = audio::kAudioTimeStampHostTimeValid;
  audio::AudioTimeStamp deviceTime;
  deviceTime.mFlags = audio::kAudioTimeStampSampleHostTimeValid;
  if (audio::service().AudioDeviceTranslateTime(buffers->deviceID, stamp, deviceTime) != 0) {
    return;
  }
  const double frameDuration = ltc_seconds_per_frame(time.mType);
  SMPTETime t = time;
  ltc_add_two_frames(t);
  const SMPTETime currentTime = t;
  LTCPhaseLock::Call call{};
  call.target = deviceTime.mSampleTime + kFramesAhead * frameDuration * buffers->sampleRate -
                buffers->outputLatency.load();
  call.frameDuration = frameDuration;
  call.sampleRate = buffers->sampleRate;
  call.maxFrameSamples = buffers->length / LTCPhaseLock::kFramesPerBatch;
  if (!(call.target >= 0)) {
    return;  // due before the device began to count
  }

  std::optional<LTCPhaseLock> phase;
  for (std::optional<LTCPhaseLock::Batch> rendered; !phase;) {
    std::optional<LTCPhaseLock::Batch> batch;
    {
      const std::lock_guard lock(shared.lock);
      if (mEpoch != epoch) {
        return;  // stopped or rebuilt meanwhile; the next call starts again
      }
      LTCPhaseLock next = mPhase;
      call.readEnd = shared.lastReadEnd;
      batch = next.advance(call);
      if (!batch) {
        mPhase = next;
        return;
      }
      if (batch == rendered) {  // else the device has begun another frame meanwhile
        shared.write(batch->start,
                     std::span(buffers->scratch).first(batch->frames() * batch->frameSamples));
        phase = mPhase = next;
        mCurrentTime = currentTime;
        if (mWatchdog != nullptr) {
          mWatchdog->validate();
        }
      }
    }
    if (!phase) {
      render(*batch, t, *buffers);
      rendered = batch;
    }
  }
  const double relative = 1 - phase->weightedFrameLen * 0.5 / buffers->sampleRate / frameDuration;
  mDeviation.store(kSmoothing * mDeviation.load() + (1 - kSmoothing) * relative);
  if (!mIsUpdatePosted.exchange(true)) {
    mMainQueue.async([weak = weak_from_this()] {
      if (const auto self = weak.lock()) {
        self->updateStatus();
      }
    });
  }
}

// `time` is that of the batch's first place, written or not.
void KVLTCGenerator::render(const LTCPhaseLock::Batch& batch, SMPTETime time, Buffers& buffers) {
  const float amplitude = mLevel.load();
  float* place = buffers.scratch.data();
  for (std::uint32_t frame = 0; frame < LTCPhaseLock::kFramesPerBatch; ++frame) {
    if (frame >= batch.firstFrame) {
      ltc_frame_encode(*mLTC, time, bytesOf(mUserBits.load()).data());
      ltc_frame_render(*mLTC, place, batch.frameSamples, amplitude);
      place += batch.frameSamples;
    }
    ltc_add_frames(time, 1);
  }
}

// --- status ---

void KVLTCGenerator::updateStatus() {
  mIsUpdatePosted.store(false);
  LTCPhaseLock phase;
  SMPTETime currentTime;
  std::shared_ptr<Buffers> buffers;
  bool hasWatchdog = false;
  {
    const std::lock_guard lock(mAudioGeneratorRefCon.lock);
    phase = mPhase;
    currentTime = mCurrentTime;
    buffers = mBuffers;
    hasWatchdog = mWatchdog != nullptr;
  }
  if (phase.isIdle() || buffers == nullptr) {
    return;  // stopped since
  }
  followLatency(*buffers);
  const double fps =
      std::round(buffers->sampleRate * kFPSSteps / (phase.weightedFrameLen * 0.5)) / kFPSSteps;
  if (fps != mFPS.load()) {
    const KVAnnouncement announcement(*this, "fps");
    mFPS.store(fps);
  }
  setTCString(stringFromSMPTETime(currentTime));
  if (!hasWatchdog) {
    startWatchdog();
    const KVAnnouncement announcement(*this, "isGenerating");
    mIsGenerating.store(true);
  }
}

// Servers change it while they run, and tell nobody.
void KVLTCGenerator::followLatency(Buffers& buffers) {
  try {
    buffers.outputLatency.store(mGraph->latency());
  } catch (const KVException&) {
    return;  // the device has gone, which its listener tells
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
  const std::lock_guard lock(mAudioGeneratorRefCon.lock);
  mWatchdog = watchdog;
}

void KVLTCGenerator::stopped() {
  VELOR_LOG_INFO("Generator stopped to receive MTC");
  std::shared_ptr<KVWatchdog> watchdog;  // goes without the lock
  bool wasPlayed = true;
  {
    const std::lock_guard lock(mAudioGeneratorRefCon.lock);
    ++mEpoch;
    mHasRxedBefore = false;
    mAudioGeneratorRefCon.writeEnd = 0;
    wasPlayed = !std::exchange(mPhase, {}).isGivenUp();
  }
  if (!wasPlayed) {
    warnOfLatency();
  }
  restartOutput();
  {
    const KVAnnouncement announcement(*this, "isGenerating");
    mIsGenerating.store(false);
  }
  {
    const std::lock_guard lock(mAudioGeneratorRefCon.lock);
    watchdog.swap(mWatchdog);
  }
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
    mGraph->output().stop();
    mGraph->output().reset();
    mGraph->output().start();
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
