// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <vector>

#include "Kv-Appkit/KVFourCC.h"
#include "Kv-Appkit/KVObserverList.h"
#include "Kv-Appkit/KVShared.h"
#include "Velor/media/VLMediaChase.h"
#include "Velor/mtc/VLMTCParser.h"
#include "Velor/mtc/VLMTCParserDelegate.h"
#include "kva/MIDI/KVMIDIEndpoint.h"
#include "platform/host/Queue.h"
#include "platform/host/WeakSelf.h"
#include "platform/midi/MIDITypes.h"

namespace velor {

/// Posted with the new format code (std::uint32_t) when the clock's format has changed.
inline constexpr const char* VLChangedTimecodeType = "Velor.ChangedTimecodeType";

/// The MTC input that all media windows share: a virtual MIDI destination, a parser, and the
/// queue "velor.mediainputs", on which every window gets each report. Neither the MIDI read
/// thread nor that queue waits for anyone; the main queue waits for that queue when a window
/// comes or goes.
///
/// A rate code of MTC that stands for two formats is read as the clock's, when it is one of
/// them: clips whose start is a time of 29.97 follow blocks of 29.97, not of 30.
class VLMediaPlaybackMTCIn final : public VLMTCParserDelegate {
 public:
  /// The unique ID of the MIDI destination. It never changes: documents store it.
  static constexpr midi::MIDIUniqueID kUniqueID = KVFourCC("mply");

  /// The first call, which publishes the destination, is the main thread's. Raises KVException
  /// "err" where the MIDI service fails.
  static VLMediaPlaybackMTCIn& sharedInput();
  ~VLMediaPlaybackMTCIn() override;
  VLMediaPlaybackMTCIn(const VLMediaPlaybackMTCIn&) = delete;
  VLMediaPlaybackMTCIn& operator=(const VLMediaPlaybackMTCIn&) = delete;

  host::Queue& queue() noexcept { return mQueue; }

  // Queue: main. Both return when the set is changed: the chase gets no call once it is out.
  void addWindow(VLMediaChase& chase);
  void removeWindow(VLMediaChase& chase);

 private:
  friend class KVShared<VLMediaPlaybackMTCIn>;
  VLMediaPlaybackMTCIn();

  template <class Call>
  void onEach(Call call);

  void parserDidStopReading(VLMTCParser& parser) override;
  void parserDidReceiveFFMsg(VLMTCParser& parser, const SMPTETime& time) override;

  KVObserverToken mTimecodeTypeObserver;
  host::Queue mQueue{"velor.mediainputs"};
  std::vector<VLMediaChase*> mWindows KV_ON_QUEUE(mQueue);
  const std::shared_ptr<VLMTCParser> mParser;
  std::shared_ptr<KVMIDIEndpoint> mInput;
  const host::WeakSelf<VLMediaPlaybackMTCIn> mSelf{this};
  const std::shared_ptr<VLMTCParserDelegate> mDelegate;
};

}  // namespace velor
