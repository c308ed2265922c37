// SPDX-License-Identifier: MIT
#include "Velor/clock/VLClockMIDI.h"

#include <algorithm>
#include <utility>

#include "Kv-Appkit/KVException.h"
#include "Velor/clock/VLLoopCheck.h"
#include "kva/MIDI/KVMIDICore.h"
#include "platform/host/Log.h"
#include "platform/midi/MIDIService.h"

namespace velor {
namespace {

// 0 where there is none, which no port can be made with.
midi::MIDIClientRef defaultClient() {
  try {
    return KVMIDICore::sharedCore().defaultClient();
  } catch (const KVException& exception) {
    VELOR_LOG_ERROR("%s", exception.what());
    return 0;
  }
}

}  // namespace

void VLClockMIDI::open(VLMTCParser::CompletionBlock completion,
                       const std::shared_ptr<VLMTCParserDelegate>& delegate) {
  midi::OSStatus status =
      midi::service().MIDIOutputPortCreate(defaultClient(), "Velor Clock Out", &mOutputPort);
  if (status != 0) {
    VELOR_LOG_ERROR("failed to create MIDI Port for clock (%d)", status);
    mOutputPort = 0;
  }
  mParser = VLMTCParser::initWithCompletionBlock(std::move(completion));
  mParser->setDelegate(delegate);
  status = midi::service().MIDIInputPortCreate(
      defaultClient(), "Velor Sync In", &VLMTCParser::readPackets, mParser.get(), &mSyncInPort);
  if (status != 0) {
    VELOR_LOG_ERROR("failed to create Sync In MIDI Port (%d)", status);
    mSyncInPort = 0;
  }
}

void VLClockMIDI::close() {
  // The input first: its read function is not running any more then.
  for (const midi::MIDIPortRef port : {mSyncInPort, mOutputPort}) {
    if (port != 0) {
      midi::service().MIDIPortDispose(port);
    }
  }
}

// --- out ---

void VLClockMIDI::addDestination(Endpoint destination, const SMPTETime* located) {
  mQueue.assertCurrent();
  if (located != nullptr) {
    locate(*located, *destination);
  } else {
    midi::MIDIPacketList none;
    midi::MIDIPacketListInit(&none);  // opens its port, for the token and the next block
    midi::service().MIDISend(mOutputPort, destination->endpoint(), &none);
  }
  // Equality is by a hash that is fixed when it is first asked for, so that it
  // is asked for now, while the endpoint is there.
  destination->hash();
  if (std::none_of(mDestinations.begin(), mDestinations.end(),
                   [&](const auto& member) { return member->isEqual(*destination); })) {
    mDestinations.push_back(std::move(destination));
  }
}

void VLClockMIDI::removeDestination(const Endpoint& destination) {
  mQueue.assertCurrent();
  std::erase_if(mDestinations, [&](const auto& member) {
    const bool isIt = member->isEqual(*destination);
    if (isIt) {
      midi::service().endSending(mOutputPort, member->endpoint());
    }
    return isIt;
  });
}

void VLClockMIDI::sendTime(const SMPTETime& time, std::uint64_t hostTime) {
  mQueue.assertCurrent();
  const std::uint64_t begin = mOrder.begin(time, hostTime, mtc_quarter_frame_interval(time.mType));
  for (const auto& destination : mDestinations) {
    velor::sendTime(*destination, time, begin, mOutputPort);
  }
}

void VLClockMIDI::locate(const SMPTETime& time) const {
  mQueue.assertCurrent();
  for (const auto& destination : mDestinations) {
    locate(time, *destination);
  }
}

void VLClockMIDI::locate(const SMPTETime& time, const KVMIDIEndpoint& destination) const {
  midi::MIDIPacketList list;
  midi::MIDIPacketListInit(&list);  // an invalid time leaves it as it is
  if (mtc_full_frame_from_smpte_time(&time, &list) == 0) {
    midi::service().MIDISend(mOutputPort, destination.endpoint(), &list);
  }
}

void VLClockMIDI::sendTokens(VLLoopCheck& check) const {
  mQueue.assertCurrent();
  check.sendTokens(syncSource(), mDestinations, mOutputPort);
}

// --- in ---

void VLClockMIDI::setSyncSource(const Endpoint& source) {
  if (const Endpoint former = mSyncSource.load()) {
    disconnectSyncSource(*former);
  }
  mSyncSource.store(source);
  if (source != nullptr) {
    connectSyncSource(*source);
  }
}

void VLClockMIDI::disconnectSyncSource(const KVMIDIEndpoint& source) const {
  if (midi::service().MIDIPortDisconnectSource(mSyncInPort, source.endpoint()) != 0) {
    VELOR_LOG_ERROR("failed to disconnect %s from MIDI Sync In", source.description().c_str());
  } else {
    VELOR_LOG_VERBOSE("disconnected %s from MIDI Sync In", source.description().c_str());
  }
}

void VLClockMIDI::connectSyncSource(const KVMIDIEndpoint& source) const {
  if (midi::service().MIDIPortConnectSource(mSyncInPort, source.endpoint(), nullptr) != 0) {
    VELOR_LOG_ERROR("failed to connect %s from MIDI Sync In", source.description().c_str());
  } else {
    VELOR_LOG_VERBOSE("connected %s to MIDI Sync In", source.description().c_str());
  }
}

}  // namespace velor
