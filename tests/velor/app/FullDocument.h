// SPDX-License-Identifier: MIT
#pragma once

#include "Velor/devices/VLLTCReaderDevice.h"
#include "tests/velor/app/AppFixture.h"

namespace velor {

/// A run of the application whose document has all keys: a generator, a reader, a
/// destination that is on and one that is off, a sync source, five markers of which two
/// are selected, and a media window.
class FullDocument : public AppFixture {
 protected:
  static constexpr std::uint32_t kFormat = kSMPTETimeType30;

  FullDocument() {
    launch();
    const auto desk = appear("desk");
    appear("lamp");
    mDeck = addSource("deck");
    clock().setSmpteFormat(kFormat);
    destinationOf(desk)->setEnable(true);
    // Before the generator, whose input each opening makes anew, behind all others.
    app().newPlaybackWindow();
    mHost.settle();
    created()->generator()->setUserbits(0x12345678);
    const auto reader = manager().createrReader();
    reader->setChannel(1);
    reader->setFreewheelTime(7);
    reader->setConditionsInput(true);
    mHost.settle();
    app().setSyncSource(mDeck);
    const auto at = [](const char* text) { return timeOf(text, kFormat); };
    clock().setSmpteOffset(at("00:00:00:29"));
    clock().setLoopEndTime(at("05:00:00:00"));
    clock().setLoopStartTime(at("04:00:00:00"));
    clock().setStopTime(at("03:00:00:00"));
    clock().setPreroll(true);
    clock().setPrerollTime(7.5);
    app().setPlayRate(1);
    clock().setPlayMode(VLPlayModeLoop);
    for (const char* time : {"05:00:00:00", "04:00:00:00", "03:00:00:00", "02:00:00:00"}) {
      goTo(time);
      app().addMarker();
    }
    goTo("01:00:00:00");
    app().addMarker();
    app().markers().controller().setSelectionIndexes({1, 3});
    goTo("01:30:00:00");
    const auto& window = app().mediaWindows().windows().at(0);
    window->loadMediumAtURL(write("walk-in.mp4", ""));
    mHost.advance(100'000'000);
    window->setClipStartTime(at("02:00:00:00"));
    window->setControlMasterClock(true);
    window->setAudioSumMode(1);
    window->setVolume(0.5F);
    const auto path = mFolder.path() / "full.velor";
    EXPECT_TRUE(app().saveApplicationStateToURL(path));
    mDocument = contents(path);
  }

  std::shared_ptr<KVMIDIEndpoint> mDeck;
  std::string mDocument;
};

}  // namespace velor
