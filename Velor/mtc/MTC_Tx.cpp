// SPDX-License-Identifier: MIT
#include "Velor/mtc/MTC_Tx.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "Kv-Appkit/KVAssert.h"
#include "Kv-Appkit/KVRandom.h"
#include "Velor/mtc/mtc_wire.h"
#include "kvtimecode/ltc_two_frames.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Host.h"
#include "platform/midi/MIDIService.h"

namespace velor {
namespace {

constexpr std::size_t kBlockListBytes = 270;
constexpr std::size_t kMessageListBytes = 268;
constexpr std::uint64_t kMostPiecesHeldBack = 4;
static_assert(sizeof(midi::MIDIPacketList) >= kBlockListBytes);
static_assert(sizeof(midi::MIDIPacketList) >= kMessageListBytes);

std::uint8_t low(std::int16_t field) noexcept {
  return static_cast<std::uint8_t>(static_cast<std::uint16_t>(field) & 0xFFU);
}

std::array<std::uint8_t, kMTCQuarterFrameBytes> quarterFrame(const SMPTETime& time,
                                                             std::uint8_t code) noexcept {
  const MTCPiece& piece = kMTCPieceLayout[code];
  unsigned nibble = static_cast<unsigned>(low(time.*piece.field)) >> piece.shift & 0x0FU;
  if (code == kMTCRatePiece) {
    nibble |= static_cast<unsigned>(mtc_rate_code(time.mType)) << kMTCRatePieceRateShift;
  }
  return {kMTCQuarterFrameStatus,
          static_cast<std::uint8_t>(static_cast<unsigned>(code) << 4U | nibble)};
}

}  // namespace

std::uint64_t mtc_quarter_frame_interval(std::uint32_t type) noexcept {
  const double interval = host::kNsPerSecond / ((1.0 / ltc_seconds_per_frame(type)) * 4.0);
  return std::isnan(interval) ? 0 : static_cast<std::uint64_t>(interval);
}

void mtc_quarter_frames(const SMPTETime& time, std::uint64_t sendTime, std::uint64_t interval,
                        midi::MIDIPacketList* list) noexcept {
  midi::MIDIPacket* packet = midi::MIDIPacketListInit(list);
  for (std::uint8_t code = 0; code < kMTCPieces; ++code) {
    const auto bytes = quarterFrame(time, code);
    packet = midi::MIDIPacketListAdd(list, kBlockListBytes, packet, sendTime + code * interval,
                                     bytes.size(), bytes.data());
    KV_ASSERT(packet != NULL);  // NOLINT(modernize-use-nullptr): the condition is the text
  }
}

void sendTime(const KVMIDIEndpoint& endpoint, const SMPTETime& time, std::uint64_t timestamp,
              midi::MIDIPortRef port) {
  const std::uint64_t quarterFrameInterval = mtc_quarter_frame_interval(time.mType);
  SMPTETime sent = time;
  ltc_add_two_frames(sent);
  midi::MIDIPacketList list;
  mtc_quarter_frames(sent, timestamp + kMTCPieces * quarterFrameInterval, quarterFrameInterval,
                     &list);
  midi::service().MIDISend(port, endpoint.endpoint(), &list);
}

std::uint64_t MTCBlockOrder::begin(const SMPTETime& time, std::uint64_t hostTime,
                                   std::uint64_t interval) noexcept {
  const bool overtakes = ltc_same_time(time, mNextTime) && hostTime < mEarliest &&
                         mEarliest - hostTime <= kMostPiecesHeldBack * interval;
  const std::uint64_t begin = overtakes ? mEarliest : hostTime;
  mNextTime = time;
  ltc_add_two_frames(mNextTime);
  mEarliest = begin + (kMTCPieces - 1) * interval + 1;
  return begin;
}

std::uint32_t sendLoopDetectionToken(const KVMIDIEndpoint& endpoint, midi::MIDIPortRef port) {
  const std::uint32_t token = KVRandom() & kMTCLoopTokenMask;
  std::array<std::uint8_t, kMTCLoopTokenBytes> bytes{};
  std::copy(kMTCLoopTokenHead.begin(), kMTCLoopTokenHead.end(), bytes.begin());
  for (std::size_t i = 0; i < sizeof token; ++i) {
    bytes[kMTCLoopTokenValue + i] = static_cast<std::uint8_t>(token >> (24U - 8U * i) & 0xFFU);
  }
  bytes[kMTCLoopTokenEnd] = kMTCSysExEnd;

  midi::MIDIPacketList list;
  midi::MIDIPacketListAdd(&list, kMessageListBytes, midi::MIDIPacketListInit(&list), 0,
                          bytes.size(), bytes.data());
  midi::service().MIDISend(port, endpoint.endpoint(), &list);
  return token;
}

std::int32_t mtc_full_frame_from_smpte_time(const SMPTETime* time,
                                            midi::MIDIPacketList* list) noexcept {
  if (time == nullptr || list == nullptr) {
    return kMTCNullArgument;
  }
  if (!ltc_is_valid(*time)) {
    return 0;
  }
  std::array<std::uint8_t, kMTCFullFrameBytes> bytes{};
  std::copy(kMTCFullFrameHead.begin(), kMTCFullFrameHead.end(), bytes.begin());
  const unsigned rate = mtc_rate_code(time->mType);
  bytes[kMTCFullFrameHours] =
      static_cast<std::uint8_t>(rate << kMTCFullFrameRateShift | low(time->mHours));
  bytes[kMTCFullFrameMinutes] = low(time->mMinutes);
  bytes[kMTCFullFrameSeconds] = low(time->mSeconds);
  bytes[kMTCFullFrameFrames] = low(time->mFrames);
  bytes[kMTCFullFrameEnd] = kMTCSysExEnd;
  midi::MIDIPacketListAdd(list, kMessageListBytes, midi::MIDIPacketListInit(list), 0, bytes.size(),
                          bytes.data());
  return 0;
}

}  // namespace velor
