// SPDX-License-Identifier: MIT
#include "Velor/media/VLMediaPlaybackMTCIn.h"

#include "Kv-Appkit/KVException.h"
#include "Kv-Appkit/KVNotificationCenter.h"
#include "Velor/clock/VLClock.h"
#include "kva/MIDI/KVMIDICore.h"
#include "platform/host/Log.h"

namespace velor {

VLMediaPlaybackMTCIn& VLMediaPlaybackMTCIn::sharedInput() {
  return KVShared<VLMediaPlaybackMTCIn>::instance();
}

VLMediaPlaybackMTCIn::VLMediaPlaybackMTCIn()
    : mParser(VLMTCParser::initWithCompletionBlock(
          [this](const SMPTETime& time, std::uint64_t timestamp, double deviation) {
            onEach([=](VLMediaChase& chase) { chase.copyTime(time, timestamp, deviation); });
          })),
      mDelegate(mSelf) {
  mParser->setDelegate(mDelegate);
  mParser->setExpectedType(VLClock::sharedClock().smpteFormat());
  mTimecodeTypeObserver = KVNotificationCenter::defaultCenter().addObserver(
      VLChangedTimecodeType, [parser = mParser](const KVNotification&) {
        parser->setExpectedType(VLClock::sharedClock().smpteFormat());
      });
  KVMIDICore& core = KVMIDICore::sharedCore();
  mInput = std::make_shared<KVMIDIEndpoint>(
      core.createDestination(core.defaultClient(), "Velor Media Playback",
                             &VLMTCParser::readPackets, mParser.get(), kUniqueID));
  mInput->setReceivesMTC(true);
  mInput->setTransmitsMTC(false);
  mInput->setModel("Velor Media Input (" VELOR_VERSION ")");
  VELOR_LOG_INFO("created MIDI Input '%s' [%d] for media input",
                 mInput->displayName().value_or("(null)").c_str(), mInput->uniqueID());
}

// The read function is not running any more when the destination is gone. The parser may stay
// until its stream ends.
VLMediaPlaybackMTCIn::~VLMediaPlaybackMTCIn() {
  mParser->setDelegate(nullptr);
  try {
    mInput->dispose();
  } catch (const KVException& exception) {
    VELOR_LOG_ERROR("%s", exception.what());
  }
}

void VLMediaPlaybackMTCIn::addWindow(VLMediaChase& chase) {
  mQueue.sync([this, &chase] {
    mQueue.assertCurrent();
    mWindows.push_back(&chase);
  });
}

void VLMediaPlaybackMTCIn::removeWindow(VLMediaChase& chase) {
  mQueue.sync([this, &chase] {
    mQueue.assertCurrent();
    std::erase(mWindows, &chase);
  });
}

template <class Call>
void VLMediaPlaybackMTCIn::onEach(Call call) {
  mQueue.async([this, call] {
    mQueue.assertCurrent();
    for (VLMediaChase* const chase : mWindows) {
      call(*chase);
    }
  });
}

void VLMediaPlaybackMTCIn::parserDidStopReading(VLMTCParser& /*parser*/) {
  VELOR_LOG_INFO("MTC for media-input did stop");
  onEach([](VLMediaChase& chase) { chase.parserDidStop(); });
}

void VLMediaPlaybackMTCIn::parserDidReceiveFFMsg(VLMTCParser& /*parser*/, const SMPTETime& time) {
  VELOR_LOG_VERBOSE("parser did receive FF msg");
  onEach([time](VLMediaChase& chase) { chase.gotoTime(time); });
}

}  // namespace velor
