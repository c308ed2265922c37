// SPDX-License-Identifier: MIT
#include "Velor/ltc/VLLTCReader.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

#include "Kv-Appkit/KVAnnouncement.h"
#include "Kv-Appkit/KVAssert.h"
#include "Kv-Appkit/KVCheckStatus.h"
#include "Kv-Appkit/KVException.h"
#include "Kv-Appkit/KVFourCC.h"
#include "Velor/ltc/VLConditionedLTCDecoder.h"
#include "kva/KAHALAudioSystem.h"
#include "platform/audio/AudioService.h"
#include "platform/host/Log.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {
namespace {

// Of a unit: the element on which its input arrives.
constexpr KAUnitElement kInputElement = 1;

constexpr std::uint32_t kBufferFrames = 512;
// From here frames of all rates are found.
constexpr double kStartRate = 25.0;

constexpr std::array<KAUnitProperty, 2> kListened = {KAUnitProperty::currentDevice,
                                                     KAUnitProperty::nominalSampleRate};

// Ticks a second, the same for the life of the process.
std::uint64_t audioHostClockFrequency() {
  static const std::uint64_t frequency = [] {
    const double ticks = audio::service().AudioGetHostClockFrequency();
    VELOR_LOG_INFO("AudioGetHostClockFrequency: %.0fMHz", ticks / 1e6);
    if (!(ticks >= 1)) {
      KVAssertionFailed("audioHostClockFrequency must not be 0", __FILE__, __LINE__);
    }
    return static_cast<std::uint64_t>(ticks);
  }();
  return frequency;
}

std::string nameOf(const KAHALAudioDevice& device) {
  return device.name().value_or("(null)");
}

}  // namespace

// --- making and ending ---

VLLTCReader::VLLTCReader()
    : mMainQueue(host::current().mainQueue()),
      mChoice(audio::AudioDirection::input, "is read from") {
  audioHostClockFrequency();
}

std::shared_ptr<VLLTCReader> VLLTCReader::initWithAudioObjectId(audio::AudioObjectID objectID,
                                                                std::string nickName) {
  VELOR_LOG_INFO("creating LTC Reader...");
  const std::shared_ptr<VLLTCReader> reader(new VLLTCReader);
  reader->mNickName = std::move(nickName);
  if (objectID != audio::kAudioObjectUnknown) {
    reader->setAudioDeviceId(objectID);
  }
  if (reader->mInputUnit == nullptr) {
    reader->settle();
  }
  reader->observeDevices();
  return reader;
}

std::shared_ptr<VLLTCReader> VLLTCReader::initWithCoder(store::KeyedUnarchiver& coder) {
  VELOR_LOG_INFO("creating LTC Reader from decoder...");
  const auto uid = coder.decodeString(kDeviceKey);
  const auto channel = static_cast<std::uint32_t>(coder.decodeInt64(kChannelKey).value_or(0));
  const bool conditions = coder.decodeBool(kConditionKey).value_or(false);
  if (coder.failed()) {
    return nullptr;
  }
  KV_REQUIRE_PARAMETER(uid.has_value(), "uid");
  auto reader = initWithUID(*uid, channel);
  reader->mConditionsInput = conditions;
  return reader;
}

std::shared_ptr<VLLTCReader> VLLTCReader::initWithUID(const std::string& uid,
                                                      std::uint32_t channel) {
  const std::shared_ptr<VLLTCReader> reader(new VLLTCReader);
  reader->mChoice.choose(uid);
  // It waits for a device that is missing now.
  reader->mChosenChannel = channel;
  return reader;
}

void VLLTCReader::open() {
  settle();
  if (mChoice.isChosenInUse()) {
    setInputChannel(mChosenChannel);
  }
  observeDevices();
}

VLLTCReader::~VLLTCReader() {
  mDeviceToken.reset();
  disposeGraph();
}

void VLLTCReader::encodeWithCoder(store::KeyedArchiver& coder) const {
  coder.encodeString(mChoice.chosenUID(), kDeviceKey);
  coder.encodeInt64(mChoice.isChosenInUse() ? inputChannel() : mChosenChannel, kChannelKey);
  if (mConditionsInput) {
    coder.encodeBool(true, kConditionKey);
  }
}

void VLLTCReader::observeDevices() {
  mDeviceToken = KAHALAudioSystem::defaultSystem().addObserver(
      "audioDevices", [weak = weak_from_this()](const auto&) {
        if (const auto self = weak.lock()) {
          self->devicesChanged();
        }
      });
}

// --- devices ---

void VLLTCReader::setAudioDeviceId(audio::AudioObjectID objectID) {
  const KVAnnouncement announcement(*this, "audioDeviceId");
  setInputChannel(0);
  std::string name = "(null)";
  try {
    const auto device = KAHALAudioSystem::defaultSystem().audioDeviceWithObjectId(objectID);
    if (device != nullptr) {
      name = nameOf(*device);
      if (device->numInputChannels() > 0) {
        mChoice.choose(device->deviceUID());
        mChosenChannel = 0;
        settle();
        return;
      }
    }
  } catch (const KVException& exception) {
    VELOR_LOG_WARNING("%s", exception.what());  // gone meanwhile
  }
  VELOR_LOG_WARNING("refused device with object id %u (%s), because it has no inputs", objectID,
                    name.c_str());
}

void VLLTCReader::settle() {
  disposeGraph();
  mChoice.settle([this](const Device& device) { setupInput(device); });
}

void VLLTCReader::setNickName(std::string nickName) {
  mNickName = std::move(nickName);
  if (mInputUnit == nullptr) {
    return;
  }
  // Ports have the name with which they were opened.
  mInputUnit->stop();
  giveNickName(*mInputUnit);
  if (!mIsStopped) {
    mInputUnit->start();
  }
}

void VLLTCReader::giveNickName(KAHALDeviceOutputUnit& unit) const {
  if (!mNickName.empty()) {
    unit.setPropertyGlobal(KAUnitProperty::nickName, mNickName);
  }
}

// Nothing is left of it when this raises.
void VLLTCReader::setupInput(const Device& device) {
  auto unit = std::make_unique<KAHALDeviceOutputUnit>();
  giveNickName(*unit);
  unit->enableInput(true, false);
  unit->setDeviceID(device->objectID());
  const std::string name = nameOf(*device);
  const std::string uid = device->deviceUID();
  VELOR_LOG_INFO("LTC Reader: using %s (%s) for audio input.", name.c_str(), uid.c_str());
  VELOR_LOG_INFO("using device %s (%s)", name.c_str(), uid.c_str());
  unit->setPropertyGlobal(KAUnitProperty::inputCallback,
                          audio::AURenderCallbackStruct{&inputCallback, &mReaderRef});
  const double sampleRate =
      unit->getStreamDescription(KAUnitScope::input, kInputElement).mSampleRate;
  if (!makeDecoder(sampleRate)) {
    VELOR_LOG_ERROR("failed to initialize KVLTCReader");
    return;
  }
  VELOR_LOG_INFO("KVLTCReader is setup");
  unit->setStreamDescription(KAStreamFormat(sampleRate, 1), KAUnitScope::output, kInputElement);
  mapChannel(*unit);
  unit->setPropertyGlobal(KAUnitProperty::bufferFrameSize, kBufferFrames);
  for (const KAUnitProperty property : kListened) {
    unit->addPropertyListener(property, &auPropertyListener, this);
  }
  unit->initialize();
  if (!mIsStopped) {
    unit->start();
  }
  mSampleRate = sampleRate;
  mChannelNames = device->channelNamesInScope(audio::AudioDirection::input);
  mAudioDeviceId.store(device->objectID());
  mInputUnit = std::move(unit);
}

// The consumer stays.
bool VLLTCReader::makeDecoder(double sampleRate) {
  mReaderRef.decoder.reset();
  mReaderRef.conditioned.reset();
  if (mConditionsInput) {
    mReaderRef.conditioned = std::make_unique<VLConditionedLTCDecoder>(
        audioHostClockFrequency(), sampleRate, &frameCallback, &mReaderRef);
    return true;
  }
  ltc_decoder* decoder = nullptr;
  if (ltc_decoder_create(decoder) != 0) {
    return false;
  }
  mReaderRef.decoder.reset(decoder);
  if (ltc_decoder_init(decoder, audioHostClockFrequency(), sampleRate, kStartRate) != 0) {
    mReaderRef.decoder.reset();
    return false;
  }
  if (mHasCallback) {
    KVCheckStatus("-[VLLTCReader setupInput:]",
                  ltc_decoder_set_callback(*decoder, &frameCallback, &mReaderRef));
  }
  return true;
}

void VLLTCReader::setConditionsInput(bool conditions) {
  if (conditions == mConditionsInput) {
    return;
  }
  const KVAnnouncement announcement(*this, "conditionsInput");
  mConditionsInput = conditions;
  if (mInputUnit == nullptr) {
    return;
  }
  try {
    mInputUnit->stop();
    if (!makeDecoder(mSampleRate)) {
      VELOR_LOG_ERROR("failed to initialize KVLTCReader");
    }
    if (!mIsStopped) {
      mInputUnit->start();
    }
  } catch (const KVException& exception) {
    VELOR_LOG_WARNING("%s", exception.what());
  }
}

void VLLTCReader::disposeGraph() {
  mInputChannel.store(0);
  mAudioDeviceId.store(audio::kAudioObjectUnknown);
  if (mInputUnit == nullptr) {
    return;
  }
  try {
    mInputUnit->stop();
    for (const KAUnitProperty property : kListened) {
      mInputUnit->removePropertyListener(property, &auPropertyListener, this);
    }
  } catch (const KVException& exception) {
    VELOR_LOG_WARNING("%s", exception.what());
  }
  mInputUnit.reset();
}

void VLLTCReader::auPropertyListener(void* refCon, KAUnitProperty property) {
  auto& self = *static_cast<VLLTCReader*>(refCon);
  self.mMainQueue.async([weak = self.weak_from_this(), property] {
    if (const auto strong = weak.lock()) {
      constexpr std::uint32_t kDeviceCode = 2000;
      VELOR_LOG_INFO(
          "audio unit property changed for LTC Reader (%s)",
          stringFromFourCC(property == KAUnitProperty::nominalSampleRate ? KVFourCC("nsrt")
                                                                         : kDeviceCode)
              .c_str());
      strong->devicesChanged();
    }
  });
}

// An input that fits is left alone: making it may itself have caused the report. The input
// follows a device that goes and returns, and its channels, by itself.
void VLLTCReader::devicesChanged() {
  if (isInputCurrent()) {
    followDevice();
    return;
  }
  const bool wasChosen = mChoice.isChosenInUse();
  if (wasChosen) {
    mChosenChannel = audioDeviceId() == audio::kAudioObjectUnknown ? inputChannel() : 0;
  }
  const KVAnnouncement announcement(*this, "audioDeviceId");
  settle();
  if (mChoice.isChosenInUse()) {
    setInputChannel(mChosenChannel);
  }
}

bool VLLTCReader::isInputCurrent() {
  try {
    return !mChoice.needsSettling() && mInputUnit != nullptr &&
           mInputUnit->getStreamDescription(KAUnitScope::input, kInputElement).mSampleRate ==
               mSampleRate;
  } catch (const KVException&) {
    return false;
  }
}

void VLLTCReader::followDevice() {
  try {
    audio::AudioObjectID device = audio::kAudioObjectUnknown;
    std::vector<std::string> names;
    std::uint32_t channel = inputChannel();
    if (mChoice.isUsedPresent()) {
      device = mInputUnit->deviceID();
      names = KAHALAudioDevice::initWithAudioObjectID(device)->channelNamesInScope(
          audio::AudioDirection::input);
      const auto map = std::get<audio::AudioChannelMap>(
          mInputUnit->getProperty(KAUnitProperty::channelMap, KAUnitScope::input, kInputElement));
      const auto place = std::find(map.begin(), map.end(), 0);
      channel = place != map.end() ? static_cast<std::uint32_t>(place - map.begin()) : channel;
    }
    if (device != audioDeviceId() || names != mChannelNames) {
      const KVAnnouncement announcement(*this, "audioDeviceId");
      mAudioDeviceId.store(device);
      mInputChannel.store(channel);
      mChannelNames = std::move(names);
    }
  } catch (const KVException& exception) {
    VELOR_LOG_WARNING("%s", exception.what());  // gone meanwhile, which will be reported
  }
}

void VLLTCReader::setInputChannel(std::uint32_t channel) {
  mInputChannel.store(channel);
  if (mInputUnit != nullptr) {
    mapChannel(*mInputUnit);
  }
}

// The one channel of the input comes from that of the device, also where a device that just
// returns does not have it as yet.
void VLLTCReader::mapChannel(KAHALDeviceOutputUnit& unit) const {
  audio::AudioChannelMap map(1, -1);
  if (inputChannel() < audio::kMaxChannels) {
    map.assign(inputChannel() + 1, -1);
    map.back() = 0;
  }
  unit.setProperty(KAUnitProperty::channelMap, KAUnitScope::input, kInputElement, map);
}

// --- listening ---

void VLLTCReader::setCallback(LTCReaderCallback callback, void* refCon) noexcept {
  mHasCallback = callback != nullptr;
  mReaderRef.consumer.store({callback, refCon});
  if (mReaderRef.decoder != nullptr) {
    KVCheckStatus("-[VLLTCReader setCallback:refCon:]",
                  ltc_decoder_set_callback(*mReaderRef.decoder,
                                           mHasCallback ? &frameCallback : nullptr, &mReaderRef));
  }
}

void VLLTCReader::start() {
  mIsStopped = false;
  if (mInputUnit != nullptr) {
    mInputUnit->start();
  }
}

void VLLTCReader::stop() {
  mIsStopped = true;
  if (mInputUnit != nullptr) {
    mInputUnit->stop();
  }
}

audio::OSStatus VLLTCReader::inputCallback(const host::RealtimeContext& realtime, void* refCon,
                                           const audio::AudioTimeStamp& timeStamp,
                                           std::uint32_t frames,
                                           std::span<float* const> channels) noexcept {
  auto* ref = static_cast<ReaderRef*>(refCon);
  if (ref == nullptr || (ref->decoder == nullptr && ref->conditioned == nullptr) ||
      channels.empty()) {
    return kNotSetUp;
  }
  ref->realtime = &realtime;
  if (ref->conditioned != nullptr) {
    ref->conditioned->process(timeStamp, channels[0], frames);
  } else {
    ltc_decoder_process(*ref->decoder, timeStamp, channels[0], frames);
  }
  ref->realtime = nullptr;
  return 0;
}

void VLLTCReader::frameCallback(const SMPTETime& time, const std::uint8_t* userBits, void* refCon,
                                std::uint64_t hostTime, double fps) {
  auto& ref = *static_cast<ReaderRef*>(refCon);
  const Consumer consumer = ref.consumer.load();
  if (consumer.callback != nullptr) {
    consumer.callback(*ref.realtime, time, userBits, consumer.refCon, hostTime, fps);
  }
}

}  // namespace velor
