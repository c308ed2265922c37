// SPDX-License-Identifier: MIT
#include "platform/midi/jack/JackOutputLane.h"
#include "platform/host/Host.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace velor::midi {

OSStatus JackOutputLane::send(const MIDIPacketList& packets, MIDITimeStamp now) noexcept {
  OSStatus status = 0;
  const std::uint32_t list = mNextList++;
  forEachPacket(packets, [this, list, now, &status](const MIDIPacket& source) {
    if (source.length > kMaxPacketBytes) {
      status = kMIDIMessageSendErr;
      return;
    }
    Packet packet;
    packet.list = list;
    const bool atOnce = source.timeStamp == 0;
    packet.due = atOnce ? now : source.timeStamp;
    packet.latest = std::max(packet.due, now) + (atOnce ? kLatestAtOnce : kLatest);
    packet.length = source.length;
    std::memcpy(packet.data.data(), source.data, source.length);
    mUnsent.fetch_add(1);
    if (!mArriving.tryPush(std::move(packet))) {
      mUnsent.fetch_sub(1);
      status = kMIDIMessageSendErr;
    }
  });
  return status;
}

void JackOutputLane::takeUp(const host::RealtimeContext&) noexcept {
  while (mWaiting < kPackets) {
    const std::uint16_t place = mOrder[mWaiting];
    if (!mArriving.pop(mPackets[place])) {
      return;
    }
    // Behind all that are due no later; as a rule that is the end.
    std::uint32_t at = mWaiting++;
    while (at > 0 && mPackets[mOrder[at - 1]].due > mPackets[place].due) {
      mOrder[at] = mOrder[at - 1];
      --at;
    }
    mOrder[at] = place;
  }
}

bool JackOutputLane::isDue(const Packet& packet, const jack::JackCycle& cycle,
                           std::uint32_t& offset) noexcept {
  const bool anchored = packet.list == mAnchorList && cycle.epoch == mAnchorEpoch;
  std::int64_t frame = 0;
  if (anchored) {
    const auto distance = static_cast<double>(static_cast<std::int64_t>(packet.due - mAnchorTime));
    frame = mAnchorFrame + std::llround(distance * cycle.nominalRate / host::kNsPerSecond);
  } else {
    frame = cycle.frameAt(packet.due);
  }
  const std::int64_t start = static_cast<std::int64_t>(cycle.startFrame);
  if (frame >= start + cycle.frames) {
    return false;
  }
  if (!anchored) {
    mAnchorList = packet.list;
    mAnchorEpoch = cycle.epoch;
    mAnchorTime = packet.due;
    mAnchorFrame = frame;
  }
  offset = frame > start ? static_cast<std::uint32_t>(frame - start) : 0;
  return true;
}

void JackOutputLane::removeFirst(std::uint32_t count) noexcept {
  std::rotate(mOrder.begin(), mOrder.begin() + count, mOrder.begin() + mWaiting);
  mWaiting -= count;
  mUnsent.fetch_sub(count);
}

}  // namespace velor::midi
