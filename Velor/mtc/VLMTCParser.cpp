// SPDX-License-Identifier: MIT
#include "Velor/mtc/VLMTCParser.h"
#include "Kv-Appkit/KVTimebase.h"

#include <algorithm>
#include <cmath>
#include <mutex>
#include <optional>
#include <utility>

#include "Velor/mtc/mtc_wire.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Host.h"

namespace velor {
namespace {

// A measured speed that is further off is wrong: a block was lost, or it is
// the first one.
constexpr double kHighestDeviation = 0.05;
// The average follows quickly until the counter is here, then slowly.
constexpr std::uint32_t kSettledCounter = 10;
constexpr double kQuickWeight = 0.7;
constexpr double kSettledWeight = 0.1;

constexpr double kWatchdogFrames = 10.0;

// The counter's steps, before and after the watchdog is fed.
constexpr std::uint32_t kCountedBlock = 1;
constexpr std::uint32_t kCountedFrames = 2;

constexpr std::uint8_t kHighestSixtieth = 59;

// Nibbles of blocks that were never completed may have been left standing, any
// number of them.
void addTo(std::int16_t& field, unsigned value) noexcept {
  field = static_cast<std::int16_t>(
      static_cast<std::uint16_t>(static_cast<std::uint16_t>(field) + value));
}

void clearDigits(SMPTETime& time) noexcept {
  time.mHours = 0;
  time.mMinutes = 0;
  time.mSeconds = 0;
  time.mFrames = 0;
}

std::optional<std::uint32_t> loopToken(const midi::MIDIPacket& packet) noexcept {
  if (packet.length != kMTCLoopTokenBytes ||
      !std::equal(kMTCLoopTokenHead.begin(), kMTCLoopTokenHead.end(), packet.data) ||
      packet.data[kMTCLoopTokenEnd] != kMTCSysExEnd) {
    return std::nullopt;
  }
  std::uint32_t token = 0;
  for (std::size_t i = 0; i < sizeof token; ++i) {
    token = token << 8U | packet.data[kMTCLoopTokenValue + i];
  }
  return token;
}

}  // namespace

std::shared_ptr<VLMTCParser> VLMTCParser::initWithCompletionBlock(CompletionBlock completion) {
  return std::shared_ptr<VLMTCParser>(new VLMTCParser(std::move(completion)));
}

VLMTCParser::VLMTCParser(CompletionBlock completion) : mParserBlock(std::move(completion)) {
  KVTimebase();
}

void VLMTCParser::clear() noexcept {
  const std::lock_guard lock(mMutex);
  mRxed = 0;
}

void VLMTCParser::setExpectedType(std::uint32_t type) noexcept {
  const std::lock_guard lock(mMutex);
  mExpectedType = type;
}

std::uint32_t VLMTCParser::typeOfRateCode(std::uint32_t rate) const noexcept {
  return rate == mtc_rate_code(mExpectedType) ? mExpectedType : kMTCTypeOfRateCode[rate];
}

std::shared_ptr<VLMTCParserDelegate> VLMTCParser::delegate() const {
  const std::lock_guard lock(mMutex);
  return _delegate.lock();
}

void VLMTCParser::setDelegate(const std::shared_ptr<VLMTCParserDelegate>& delegate) {
  const std::lock_guard lock(mMutex);
  _delegate = delegate;
}

void VLMTCParser::readPackets(const midi::MIDIPacketList* packets, void* parser,
                              void* /*sourceRef*/) {
  midi::forEachPacket(*packets, [parser](const midi::MIDIPacket& packet) {
    static_cast<VLMTCParser*>(parser)->addPacket(&packet);
  });
}

void VLMTCParser::addPacket(const midi::MIDIPacket* packet) {
  if (packet->length == kMTCQuarterFrameBytes && packet->data[0] == kMTCQuarterFrameStatus) {
    const unsigned byte = packet->data[1];
    addQuarterFrame(static_cast<std::uint8_t>(byte >> 4U), static_cast<std::uint8_t>(byte & 0x0FU),
                    packet->timeStamp);
  } else {
    addMessage(*packet);
  }
}

void VLMTCParser::addMessage(const midi::MIDIPacket& packet) {
  SMPTETime time;
  const bool isFullFrame = mtc_smpte_time_from_full_frame(&packet, &time) == 0;
  const auto token = loopToken(packet);
  if (!isFullFrame && !token) {
    return;
  }
  const auto receiver = delegate();
  if (receiver == nullptr) {
    return;
  }
  if (isFullFrame) {
    {
      const std::lock_guard lock(mMutex);
      time.mType = typeOfRateCode(mtc_rate_code(time.mType));
    }
    receiver->parserDidReceiveFFMsg(*this, time);
  } else {
    receiver->parserDidReceiveLoopToken(*this, *token);
  }
}

void VLMTCParser::addQuarterFrame(std::uint8_t code, std::uint8_t nibble,
                                  midi::MIDITimeStamp timeStamp) {
  SMPTETime time;
  std::uint64_t timestampOfFirst = 0;
  double deviation = 0;
  {
    const std::lock_guard lock(mMutex);
    if (code != mRxed) {
      mRxed = 0;
      clearDigits(mTime);
      return;
    }
    takeIn(code, nibble, timeStamp);
    if (++mRxed < kMTCPieces) {
      return;
    }
    mRxed = 0;
    mTime.mFlags = kSMPTETimeValid | kSMPTETimeRunning;
    weighDeviation();
    time = mTime;
    timestampOfFirst = mTimestampOfFirst;
    deviation = _weightedDeviation;
  }
  if (time.mCounter != 0) {
    mParserBlock(time, timestampOfFirst, deviation);
  }
  const std::lock_guard lock(mMutex);
  mTime.mCounter += kCountedBlock;
  feedWatchdog(ltc_seconds_per_frame(mTime.mType));
  clearDigits(mTime);
  mTime.mFlags = 0;
  mTimestampOfFirst = 0;
  mTime.mCounter += kCountedFrames;
}

void VLMTCParser::takeIn(std::uint8_t code, std::uint8_t nibble,
                         midi::MIDITimeStamp timeStamp) noexcept {
  unsigned value = nibble;
  if (code == 0) {
    mTimestampOfFirst = timeStamp != 0 ? timeStamp : host::current().AudioGetCurrentHostTime();
    _delta = mTimestampOfFirst - _lastTimeStamp;
    _lastTimeStamp = mTimestampOfFirst;
  } else if (code == kMTCRatePiece) {
    const unsigned rate = value >> kMTCRatePieceRateShift;
    if (rate < kMTCRateCodes) {
      mTime.mType = typeOfRateCode(rate);
    }
    value &= kMTCRatePieceHoursMask;
  }
  const MTCPiece& piece = kMTCPieceLayout[code];
  addTo(mTime.*piece.field, value << piece.shift);
}

void VLMTCParser::weighDeviation() noexcept {
  const double nominalMs = ltc_seconds_per_frame(mTime.mType) * 1000.0 * kMTCFramesPerBlock;
  const double deviation = static_cast<double>(KVTimebase().numer * _delta) /
                               (KVTimebase().denom * -1000000.0) / nominalMs +
                           1.0;
  if (std::abs(deviation) < kHighestDeviation) {
    const double weight = mTime.mCounter < kSettledCounter ? kQuickWeight : kSettledWeight;
    _weightedDeviation = weight * deviation + (1.0 - weight) * _weightedDeviation;
  }
}

void VLMTCParser::feedWatchdog(double secondsPerFrame) {
  if (_watchdog != nullptr) {
    _watchdog->validate();
    return;
  }
  const double interval = kWatchdogFrames * secondsPerFrame;
  _watchdog = KVWatchdog::initWithTimeinterval(
      interval,
      [self = shared_from_this()](KVWatchdog&, const std::shared_ptr<void>&) {
        self->watchdogFired();
      },
      host::current().mainQueue());
  _watchdog->resumeAfter(interval);
}

void VLMTCParser::watchdogFired() {
  if (const auto receiver = delegate()) {
    receiver->parserDidStopReading(*this);
  }
  std::shared_ptr<KVWatchdog> spent;  // goes with the mutex free
  const std::lock_guard lock(mMutex);
  mTime.mFlags = 0;
  _weightedDeviation = 0;
  _lastTimeStamp = 0;
  _delta = 0;
  spent.swap(_watchdog);
  mTime.mCounter = 0;
}

std::int32_t mtc_smpte_time_from_full_frame(const midi::MIDIPacket* packet,
                                            SMPTETime* time) noexcept {
  if (packet == nullptr || time == nullptr) {
    return kMTCNullArgument;
  }
  if (packet->length != kMTCFullFrameBytes ||
      !std::equal(kMTCFullFrameHead.begin(), kMTCFullFrameHead.end(), packet->data) ||
      packet->data[kMTCFullFrameEnd] != kMTCSysExEnd) {
    time->mFlags = 0;
    return kMTCNoFullFrame;
  }
  const unsigned rate =
      static_cast<unsigned>(packet->data[kMTCFullFrameHours]) >> kMTCFullFrameRateShift;
  if (packet->data[kMTCFullFrameMinutes] > kHighestSixtieth ||
      packet->data[kMTCFullFrameSeconds] > kHighestSixtieth || rate >= kMTCRateCodes) {
    return kMTCNoFullFrame;
  }
  time->mType = kMTCTypeOfRateCode[rate];
  time->mHours = packet->data[kMTCFullFrameHours] & kMTCFullFrameHoursMask;
  time->mMinutes = packet->data[kMTCFullFrameMinutes];
  time->mSeconds = packet->data[kMTCFullFrameSeconds];
  time->mFrames = packet->data[kMTCFullFrameFrames];
  time->mFlags = kSMPTETimeValid;
  time->mCounter = 0;
  return 0;
}

}  // namespace velor
