// SPDX-License-Identifier: MIT
#include "Velor/devices/VLLTCReaderDevice.h"

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "Kv-Appkit/KVAnnouncement.h"
#include "Kv-Appkit/KVAssert.h"
#include "Kv-Appkit/KVCheckStatus.h"
#include "Kv-Appkit/KVException.h"
#include "kva/KAHALAudioDevice.h"
#include "kva/MIDI/KVMIDICore.h"
#include "platform/host/Log.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {
namespace {

constexpr std::array<KVDependency, 2> kDependencies = {
    {{"channelNames", "audioObjectId"}, {"channel", "audioObjectId"}}};

// MTC tells a whole time in two frames; its pace is looked at every other time.
constexpr std::uint32_t kFramesPerTime = 2;
constexpr std::uint32_t kFramesPerPace = 4;
// How far the rate may leave that of the MTC, as a part of it.
constexpr double kHysteresis = 0.01;
constexpr double kSmoothing = 0.9;
constexpr double kAnnouncedSpeedStep = 0.001;  // frames a second

}  // namespace

// --- making and ending ---

VLLTCReaderDevice::VLLTCReaderDevice(std::shared_ptr<KVMIDIEndpoint> endpoint,
                                     std::shared_ptr<VLLTCReader> reader)
    : VLReaderDevice(std::move(endpoint)),
      KVObservable(kDependencies),
      mReader(std::move(reader)),
      mReaderToken(mReader->addObserver("audioDeviceId", [this](const auto&) {
        const KVAnnouncement announcement(*this, "audioObjectId");
      })) {}

std::shared_ptr<VLLTCReaderDevice> VLLTCReaderDevice::initWithEndpoint(
    std::shared_ptr<KVMIDIEndpoint> endpoint) {
  auto reader = VLLTCReader::initWithAudioObjectId(0, endpoint->displayName().value_or(""));
  auto device = std::make_shared<VLLTCReaderDevice>(std::move(endpoint), std::move(reader));
  device->install();
  return device;
}

void VLLTCReaderDevice::install() {
  mCon.device = weak_from_this();
  mCon.mainQueue = &host::current().mainQueue();
  KVCheckStatus("-[VLLTCReaderDevice initWithEndpoint:]", VLMTCCreate(&mCon.mtc));
  KVCheckStatus("-[VLLTCReaderDevice initWithEndpoint:]",
                VLMTCSetSource(mCon.mtc, midiEndpoint()->endpoint()));
  VLMTCSetStateCallback(mCon.mtc, &mtcDidChangeState, &mCon);
  mReader->setCallback(&frameCallback, &mCon);
}

VLLTCReaderDevice::~VLLTCReaderDevice() {
  mReaderToken.reset();
  try {
    destroy();
  } catch (const KVException& exception) {
    VELOR_LOG_ERROR("%s", exception.what());
  }
  if (mCon.mtc != nullptr) {
    VLMTCDispose(mCon.mtc);
  }
}

// The frame callback does not run any more once the reader has stopped.
void VLLTCReaderDevice::destroy() {
  mReader->setCallback(nullptr, nullptr);
  mReader->stop();
  VLReaderDevice::destroy();
}

std::shared_ptr<VLLTCReaderDevice> VLLTCReaderDevice::initWithCoder(store::KeyedUnarchiver& coder) {
  auto reader = coder.decodeObject<VLLTCReader>(kReaderKey);
  if (reader == nullptr) {
    reader = VLLTCReader::initWithUID("", 0);
  }
  auto device = std::make_shared<VLLTCReaderDevice>(nullptr, std::move(reader));
  device->mStored = {coder.decodeString(kNameKey).value_or(""),
                     coder.decodeInt32(kUniqueIDKey).value_or(0),
                     coder.decodeInt32(kFreewheelTimeKey).value_or(0)};
  return device;
}

void VLLTCReaderDevice::open() {
  mReader->setNickName(mStored.name);
  mReader->open();
  KVMIDICore& core = KVMIDICore::sharedCore();
  setEndpoint(std::make_shared<KVMIDIEndpoint>(
      core.createSource(core.defaultClient(), mStored.name, mStored.uniqueID)));
  install();
  setFreewheelTime(mStored.freewheelTime);
}

void VLLTCReaderDevice::addDelegate(const std::weak_ptr<LTCReaderDeviceDelegate>& delegate) {
  std::erase_if(mDelegates, [](const auto& each) { return each.expired(); });
  mDelegates.push_back(delegate);
}

// One may come or end with the report.
template <class Report>
void VLLTCReaderDevice::report(Report toDelegate) const {
  for (const auto& each : std::vector(mDelegates)) {
    if (const auto delegate = each.lock()) {
      toDelegate(*delegate);
    }
  }
}

std::vector<KVObserverToken> VLLTCReaderDevice::observeEdits(const KVObservable::Observer& edited) {
  std::vector<KVObserverToken> tokens;
  tokens.push_back(addObserver("channel", edited));  // depends on the audio device
  tokens.push_back(addObserver("freewheelTime", edited));
  tokens.push_back(addObserver("conditionsInput", edited));
  return tokens;
}

void VLLTCReaderDevice::encodeWithCoder(store::KeyedArchiver& coder) const {
  VLReaderDevice::encodeWithCoder(coder);
  coder.encodeInt32(freewheelTime(), kFreewheelTimeKey);
  coder.encodeObject(mReader, kReaderKey);
  coder.encodeString(name().value_or(""), kNameKey);
}

// --- properties ---

double VLLTCReaderDevice::frameRate() const noexcept {
  double rate = std::numeric_limits<double>::quiet_NaN();
  VLMTCGetFramerate(mCon.mtc, &rate);
  return rate;
}

int VLLTCReaderDevice::freewheelTime() const noexcept {
  double seconds = 0;
  if (VLMTCGetFreewheelTime(mCon.mtc, &seconds) != 0) {
    return 0;
  }
  return seconds < 0 ? -1 : static_cast<int>(seconds);
}

void VLLTCReaderDevice::setFreewheelTime(int seconds) {
  const KVAnnouncement announcement(*this, "freewheelTime");
  KVCheckStatus("-[VLLTCReaderDevice setFreewheelTime:]", VLMTCSetFreewheelTime(mCon.mtc, seconds));
}

void VLLTCReaderDevice::stopFreewheeling() {
  VLMTCStopFreewheeling(mCon.mtc);
}

void VLLTCReaderDevice::setChannel(std::uint32_t channel) {
  const KVAnnouncement announcement(*this, "channel");
  mReader->setInputChannel(channel);
}

void VLLTCReaderDevice::setConditionsInput(bool conditions) {
  const KVAnnouncement announcement(*this, "conditionsInput");
  mReader->setConditionsInput(conditions);
}

std::vector<std::string> VLLTCReaderDevice::channelNames() const {
  try {
    const auto device = KAHALAudioDevice::initWithAudioObjectID(audioObjectId());
    return device != nullptr ? device->channelNamesInScope(audio::AudioDirection::input)
                             : std::vector<std::string>();
  } catch (const KVException&) {
    return {};  // gone since
  }
}

void VLLTCReaderDevice::getLatestTime(SMPTETime& time) const noexcept {
  if (VLMTCGetTime(mCon.mtc, &time, nullptr, nullptr) != 0) {
    time.mFlags = 0;
  }
}

double VLLTCReaderDevice::getLatestSpeed() const noexcept {
  const Heard heard = mCon.heard.load();
  return heard.epoch == mCon.epoch.load() ? heard.speed : 0;
}

// --- what is read ---

void VLLTCReaderDevice::frameCallback(const host::RealtimeContext& realtime, const SMPTETime& time,
                                      const std::uint8_t* userBits, void* refCon,
                                      std::uint64_t hostTime, double fps) {
  // The first frame behind a broken one has no host time; the next one follows.
  if (time.mCounter % kFramesPerTime != 0 || hostTime == 0) {
    return;
  }
  auto& con = *static_cast<Con*>(refCon);
  const std::weak_ptr<VLLTCReaderDevice>& weak = con.device;
  if (time.mCounter % kFramesPerPace == 0) {
    double rate = 0;
    if (VLMTCGetFramerate(con.mtc, &rate) == 0 &&
        std::fabs(1 - std::fabs(rate / fps)) > kHysteresis) {
      VLMTCSetFramerate(con.mtc, fps);
    }
  }
  VLMTCSendTime(realtime, con.mtc, &time, hostTime);
  con.mainQueue->async(realtime, [weak, time] {
    if (const auto self = weak.lock()) {
      self->report([&](auto& delegate) { delegate.setInputTimecode(time); });
    }
  });

  Heard& heard = con.rt.heard;
  const Heard before = heard;
  const std::uint32_t epoch = con.epoch.load();
  const double speed = before.epoch == epoch ? before.speed : 0;
  std::memcpy(&heard.userbits, userBits, sizeof heard.userbits);
  heard.epoch = epoch;
  heard.speed = speed > 0 ? (1 - kSmoothing) * fps + kSmoothing * speed : fps;
  con.heard.store(heard);
  if (heard.userbits != before.userbits) {
    con.mainQueue->async(realtime, [weak] {
      if (const auto self = weak.lock()) {
        self->report([&](auto& delegate) { delegate.changedUserbits(self->userbits()); });
      }
    });
  }
  if (std::fabs(speed - heard.speed) > kAnnouncedSpeedStep) {
    con.mainQueue->async(realtime, [weak, now = heard.speed] {
      if (const auto self = weak.lock()) {
        self->report([&](auto& delegate) { delegate.changedCurrentSpeed(now); });
      }
    });
  }
}

void VLLTCReaderDevice::mtcDidChangeState(VLMTC* /*mtc*/, VLMTCState state, void* refCon) {
  const auto self = static_cast<Con*>(refCon)->device.lock();
  if (self == nullptr) {
    VELOR_LOG_ERROR("reader is nil, but MTC changed callback has been called");
    return;
  }
  self->updateState();
  self->report([state](auto& delegate) { delegate.mtcDidChangeState(state); });
  VELOR_LOG_INFO("LTC Reader (%s) changed state: %s", self->name().value_or("(null)").c_str(),
                 stringFromMTCState(state));
}

void VLLTCReaderDevice::updateState() {
  {
    const KVAnnouncement runningChange(*this, "running");
    const KVAnnouncement freewheelingChange(*this, "freewheeling");
    bool isRunning = false;
    bool isFreewheeling = false;
    VLMTCGetTime(mCon.mtc, nullptr, &isRunning, &isFreewheeling);
    mCon.running.store(isRunning);
    mCon.freewheeling.store(isFreewheeling);
  }
  const KVAnnouncement statusChange(*this, "deviceStatus");
  if (running()) {
    mCon.status.store(freewheeling() ? kVLDeviceStatusFreewheeling : kVLDeviceStatusRunning);
  } else {
    mCon.status.store(kVLDeviceStatusIdle);
    mCon.epoch.fetch_add(1);
  }
}

}  // namespace velor
