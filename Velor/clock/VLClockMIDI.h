// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Velor/clock/VLSharedCell.h"
#include "Velor/mtc/MTC_Tx.h"
#include "Velor/mtc/VLMTCParser.h"
#include "kva/MIDI/KVMIDIEndpoint.h"
#include "kvtimecode/SMPTETime.h"
#include "platform/host/Queue.h"
#include "platform/midi/MIDITypes.h"

namespace velor {

class VLLoopCheck;

/// The clock's ports: one to the destinations of MTC, and one from the sync source to
/// the parser. A port that cannot be made is logged, and the clock does without it.
class VLClockMIDI {
 public:
  using Endpoint = std::shared_ptr<KVMIDIEndpoint>;

  explicit VLClockMIDI(host::Queue& queue) noexcept : mQueue(queue) {}
  VLClockMIDI(const VLClockMIDI&) = delete;
  VLClockMIDI& operator=(const VLClockMIDI&) = delete;

  /// Main thread, once each. `completion` and the delegate are called on the MIDI read
  /// thread, and not any more once `close` has returned.
  void open(VLMTCParser::CompletionBlock completion,
            const std::shared_ptr<VLMTCParserDelegate>& delegate);
  void close();

  // --- out; on the queue ---

  /// An equal endpoint counts as the same. A located one gets a full frame of that time;
  /// null for none.
  void addDestination(Endpoint destination, const SMPTETime* located);
  void removeDestination(const Endpoint& destination);

  /// A block, or a full frame, of the time to all destinations. Blocks stay in
  /// their order where one was held up.
  void sendTime(const SMPTETime& time, std::uint64_t hostTime);
  void locate(const SMPTETime& time) const;

  /// Begins the check of the sync source and all destinations.
  void sendTokens(VLLoopCheck& check) const;

  // --- in; one thread at a time ---

  /// A source that cannot be connected is kept all the same.
  void setSyncSource(const Endpoint& source);
  Endpoint syncSource() const { return mSyncSource.load(); }

 private:
  void locate(const SMPTETime& time, const KVMIDIEndpoint& destination) const;
  void connectSyncSource(const KVMIDIEndpoint& source) const;
  void disconnectSyncSource(const KVMIDIEndpoint& source) const;

  host::Queue& mQueue;
  midi::MIDIPortRef mOutputPort = 0;  // 0 for none
  midi::MIDIPortRef mSyncInPort = 0;  // 0 for none
  std::vector<Endpoint> mDestinations KV_ON_QUEUE(mQueue);
  MTCBlockOrder mOrder KV_ON_QUEUE(mQueue);
  std::shared_ptr<VLMTCParser> mParser;
  VLSharedCell<Endpoint> mSyncSource;
};

}  // namespace velor
