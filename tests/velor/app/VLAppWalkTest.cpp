// SPDX-License-Identifier: MIT
// Hours of everything that a user and the machines around can do to the application, at
// random, against the few rules that always hold.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <random>

#include "tests/velor/app/AppFixture.h"

namespace velor {
namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;
// Some 20 minutes each; VELOR_WALK_STEPS asks for more.
int steps() {
  const char* wanted = std::getenv("VELOR_WALK_STEPS");
  return wanted != nullptr ? std::atoi(wanted) : 500;
}

class VLAppWalk : public AppFixture, public testing::WithParamInterface<std::uint64_t> {
 protected:
  VLAppWalk() : mRandom(GetParam()) {
    launch();
    addDeck();
    appear("desk");
  }

  std::uint64_t draw(std::uint64_t below) { return mRandom() % below; }
  bool drawn() { return draw(2) == 0; }
  SMPTETime drawTime() {
    SMPTETime time{};
    time.mType = clock().smpteFormat();
    ltc_set_time(time, static_cast<std::int32_t>(draw(3)), static_cast<std::int32_t>(draw(2)),
                 static_cast<std::int32_t>(draw(60)), static_cast<std::int32_t>(draw(24)));
    return time;
  }
  void addDeck() { mDecks.push_back(addSource("deck " + std::to_string(++mNamed))); }
  std::shared_ptr<KVMIDIEndpoint> drawDeck() {
    return mDecks.empty() || draw(5) == 0 ? nullptr : mDecks[draw(mDecks.size())];
  }
  void play() {
    if (!clock().running()) {
      mStored = {app().syncSource(), clock().armed()};
    }
    drawn() ? app().play() : app().play(app().server());
  }

  void act() {
    const bool wasRolling = clock().status() == VLClockRolling;
    doOne();
    mHost.settle();
    // Before an answer can end the arming.
    checkPutBack(wasRolling);
    answerQuestions();
    mHost.settle();
  }

  void doOne() {
    const std::function<void()> acts[] = {
        [this] { play(); },
        [this] { play(); },
        [this] { drawn() ? app().stop() : app().stop(app().server()); },
        [this] { app().arm(); },
        [this] { app().setSyncSource(drawDeck()); },
        [this] { addDeck(); },
        [this] { removeDeck(); },
        [this] {
          constexpr std::array kFormats{kSMPTETimeType24, kSMPTETimeType25, kSMPTETimeType2997Drop,
                                        kSMPTETimeType30, kSMPTETimeType2398};
          clock().setSmpteFormat(kFormats[draw(kFormats.size())]);
        },
        [this] { EXPECT_TRUE(app().saveApplicationStateToURL(mFolder.path() / drawDocument())); },
        [this] {
          closeMediaWindows();
          app().loadApplicationStateFromURL(mFolder.path() / drawDocument());
        },
        [this] { changeMediaWindows(); },
        [this] {
          app().setPlayRate(static_cast<float>(draw(5)) - 2);
          clock().setPreroll(drawn());
          clock().setPrerollTime(static_cast<double>(draw(3)));
        },
        [this] { playDrawnBlocks(); },
        [this] { playDrawnBlocks(); },
        [this] { drawn() ? app().addMarker() : app().addMarker(app().server()); },
        [this] { app().moveToMarker(drawn() ? 99 : 101); },
        [this] {
          app().markers().controller().setSelectionIndexes({draw(4), draw(4)});
          app().deleteMarkers();
        },
        [this] { drawn() ? app().undoManager().undo() : app().undoManager().redo(); },
        [this] { app().setCurrentTime(KVSMPTETime::smpteTimeWithTime(drawTime())); },
        [this] {
          clock().setStopTime(drawTime());
          clock().setLoopStartTime(drawTime());
          clock().setLoopEndTime(drawTime());
          clock().setPlaybackMode(
              std::array{VLPlayModeNormal, VLPlayModeStop, VLPlayModeLoop}[draw(3)]);
        },
        [this] {
          mView->setSmpteOffset(drawTime());
          mView->delegate()->offsetDidChange(*mView);
        },
        [this] { changeDevices(); },
        [this] { mHost.advance((1 + draw(120)) * kSecond); }};
    acts[draw(std::size(acts))]();
  }

  void removeDeck() {
    if (!mDecks.empty()) {
      const auto gone = mDecks.begin() + static_cast<std::ptrdiff_t>(draw(mDecks.size()));
      mOutside->vanish((*gone)->endpoint());
      mDecks.erase(gone);
    }
  }
  void playDrawnBlocks() {
    if (const auto deck = drawDeck()) {
      playBlocks(*deck, 1 + static_cast<int>(draw(4)), 5, static_cast<unsigned>(draw(4)));
    }
  }
  const char* drawDocument() { return std::array{"a.velor", "b.velor", "c.velor"}[draw(3)]; }

  void changeDevices() {
    if (manager().devices().size() < 2) {
      manager().createGenerator();
    } else {
      manager().removeDevicesAtIndexes({draw(2)});
    }
    mHost.settle();
    for (const auto& destination : manager().destinations()) {
      destination->setEnable(drawn());
    }
  }

  void changeMediaWindows() {
    closeMediaWindows(2);
    if (drawn()) {
      app().newPlaybackWindow();
    }
    for (const auto& window : app().mediaWindows().windows()) {
      if (window->mediaPlayer() == nullptr || draw(4) == 0) {
        window->loadMediumAtURL(write("clip.mp4", ""));
      }
      window->setClipStartTime(drawTime());
      window->setOnline(draw(4) != 0);
      window->setControlMasterClock(drawn());
      mHost.advance(kSecond);
      window->mediaPlayer()->player().seekToTime(std::chrono::seconds(draw(10)), {});
      drawn() ? window->mediaPlayer()->play() : window->mediaPlayer()->pause();
    }
  }

  void answerQuestions() {
    mHost.settle();
    for (auto& [alert, answer] : std::exchange(mWindow->alerts, {})) {
      answer(drawn());
    }
  }

  void check() {
    const VLClockStatus status = clock().status();
    const std::array kLegal{VLClockStopped, VLClockRolling, VLClockArmed, VLClockChasing,
                            VLClockArmedWrongFormat};
    ASSERT_NE(std::find(kLegal.begin(), kLegal.end(), status), kLegal.end()) << status;
    for (const auto& marker : app().markers().markers()) {
      if (marker->isValid()) {
        ASSERT_EQ(marker->time()->type(), clock().smpteFormat());
      }
    }
    ASSERT_EQ(mView->clockStatus(), status);
    ASSERT_EQ(mView->mainCounterIsEditable(), !clock().running());
    if (app().syncSource() == nullptr) {
      ASSERT_FALSE(status == VLClockChasing);
    }
  }

  // What a play took away is back when the clock has stopped.
  void checkPutBack(bool wasRolling) {
    if (!wasRolling || clock().status() == VLClockRolling || !mStored) {
      return;
    }
    const std::shared_ptr<KVMIDIEndpoint> source = mStored->first;
    const bool armed = mStored->second;
    mStored.reset();
    const bool isThere =
        source != nullptr && std::any_of(mDecks.begin(), mDecks.end(), [&source](const auto& deck) {
          return deck->isEqual(*source);
        });
    ASSERT_EQ(app().syncSource() != nullptr, isThere);
    ASSERT_EQ(clock().armed(), isThere && armed);
  }

  std::mt19937_64 mRandom;
  std::vector<std::shared_ptr<KVMIDIEndpoint>> mDecks;
  int mNamed = 0;
  std::optional<std::pair<std::shared_ptr<KVMIDIEndpoint>, bool>> mStored;
};

TEST_P(VLAppWalk, NoOrderOfEventsLeavesTheRules) {
  for (int step = 0; step < steps(); ++step) {
    act();
    check();
    if (HasFatalFailure()) {
      FAIL() << "at step " << step;
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, VLAppWalk, testing::Range<std::uint64_t>(1, 5));

}  // namespace
}  // namespace velor
