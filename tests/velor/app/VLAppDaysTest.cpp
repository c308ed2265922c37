// SPDX-License-Identifier: MIT
// The whole application for days of simulated time: it leads and follows in turns, with two
// generators, two readers, a clip and OSC, while ports and devices come and go and documents
// are saved and opened. A tenth of an hour unless VELOR_DAY_HOURS says more.
#include <gmock/gmock.h>
#include <malloc.h>

#include <array>
#include <cmath>
#include <cstdlib>

#include "Velor/app/VLOSCOptions.h"
#include "Velor/devices/VLLTCReaderDevice.h"
#include "kvtimecode/ltc_two_frames.h"
#include "tests/velor/app/AppFixture.h"
#include "tests/velor/osc/OSCFixture.h"

namespace velor {
namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;
constexpr int kPhase = 45;     // s that the clock runs, from 15 s before midnight
constexpr int kSettling = 3;   // s until what depends on it is in step
constexpr int kWarmUp = 6;     // phases until the memory is what it stays
constexpr double kGrowth = 2;  // MB, of any length of run, but for ...
constexpr double kKept = 250;  // B: the start of each run, to which Stop goes back
constexpr std::uint16_t kPort = 7770;

struct Format {
  std::uint32_t type;
  unsigned rateCode;  // of MTC
};
constexpr std::array<Format, 3> kFormats{
    {{kSMPTETimeType25, 1}, {kSMPTETimeType2997Drop, 2}, {kSMPTETimeType24, 0}}};

// Digits of MTC, which has the same separators for all formats.
SMPTETime timeOfDigits(const std::string& digits, std::uint32_t type) {
  int fields[4] = {};
  EXPECT_EQ(
      std::sscanf(digits.c_str(), "%d:%d:%d:%d", &fields[0], &fields[1], &fields[2], &fields[3]),
      4);
  SMPTETime time{};
  time.mType = type;
  ltc_set_time(time, fields[0], fields[1], fields[2], fields[3]);
  return time;
}

// Blocks of MTC that leave at one place: each two frames after the one before.
class Lane {
 public:
  explicit Lane(std::string name) : mName(std::move(name)) {}

  // Whatever comes next need not follow on.
  void letGo() { mLast.reset(); }
  void judge(const std::vector<OnWire>& blocks, std::uint32_t type, double jitter) {
    for (const OnWire& block : blocks) {
      if (block.isLocate) {
        letGo();
        continue;
      }
      const SMPTETime time = timeOfDigits(block.digits, type);
      if (mLast) {
        SMPTETime next = mLast->first;
        ltc_add_two_frames(next);
        EXPECT_TRUE(ltc_same_time(time, next))
            << mName << ", " << block.digits << " after " << stringFromSMPTETime(mLast->first);
        EXPECT_NEAR(static_cast<double>(block.time - mLast->second),
                    2 * ltc_seconds_per_frame(type) * 1e9, jitter)
            << mName << ", " << block.digits;
      }
      mLast = {time, block.time};
      ++blocksSeen;
    }
  }

  /// s of the day that have come at the host time.
  double timeAt(std::uint64_t hostTime) const {
    return ltc_seconds_from_smpte_time(mLast->first) +
           (static_cast<double>(hostTime) - static_cast<double>(mLast->second)) / 1e9;
  }

  std::size_t blocksSeen = 0;

 private:
  std::string mName;
  std::optional<std::pair<SMPTETime, std::uint64_t>> mLast;
};

class VLAppDays : public AppFixture {
 protected:
  VLAppDays() {
    mNetwork.addHost("desk.local", {*SocketAddress::fromText("10.0.0.9", 0)});
    mMedia.clips["clip.mov"].duration = std::chrono::hours(25);
    launch();
    app().waitForSettings();
    VLOSCOptions options;
    options.port = kPort;
    options.allow = {"10.0.0.8"};
    options.targets = {{"desk.local", 9000}};
    VLOSCApply(options, [](const std::string& text) { ADD_FAILURE() << text; });
    mDesk = appear("desk");
    mDeck = addSource("deck");
    constexpr std::array<std::array<std::int32_t, 2>, 2> kMaps{{{1, 0}, {0, 1}}};
    for (std::uint32_t channel = 0; channel < kMaps.size(); ++channel) {
      const auto generator = created();
      generator->generator()->setChannelMap(kMaps.at(channel));
      const auto reader = manager().createrReader();
      reader->setChannel(channel);
      reader->setFreewheelTime(1);
    }
    findReaders();
    for (const auto& destination : manager().destinations()) {
      destination->setEnable(true);
    }
    app().newPlaybackWindow();
    mHost.settle();
    app().mediaWindows().windows().front()->loadMediumAtURL(write("clip.mov", ""));
    pass(1);
    mLog.clear();  // a first start finds no last state
  }

  // Each document that is opened makes new ones.
  void findReaders() {
    std::size_t found = 0;
    for (const auto& device : manager().devices()) {
      if (device->type() == kVLDeviceTypeLTCReader) {
        mReaders.at(found++) = device->midiEndpoint();
      }
    }
    ASSERT_EQ(found, mReaders.size());
  }

  void pass(double seconds) { mHost.advance(static_cast<std::uint64_t>(seconds * 1e9)); }
  void command(const std::string& address, float value) {
    const Bytes data = oscMessage(address, value);
    EXPECT_TRUE(mNetwork.arrive(*SocketAddress::fromText("10.0.0.8", 50'000),
                                SocketAddress::wildcard(AF_INET, kPort), data));
    mHost.settle();
  }

  // Time from a deck for a second, at exactly its rate.
  void followForASecond(const Format& format) {
    const std::uint64_t end = mHost.AudioGetCurrentHostTime() + kSecond;
    while (mHost.AudioGetCurrentHostTime() < end) {
      for (const std::uint8_t byte : quarterFrames(
               static_cast<unsigned>(mDeckTime.mHours), static_cast<unsigned>(mDeckTime.mMinutes),
               static_cast<unsigned>(mDeckTime.mSeconds), static_cast<unsigned>(mDeckTime.mFrames),
               format.rateCode)) {
        mOutside->play(mDeck->endpoint(), mHost.AudioGetCurrentHostTime(), {0xF1, byte});
        const double due = static_cast<double>(++mDeckPieces) * ltc_seconds_per_frame(format.type);
        mHost.advance(mDeckBegin + static_cast<std::uint64_t>(due / 4 * 1e9) -
                      mHost.AudioGetCurrentHostTime());
      }
      ltc_add_two_frames(mDeckTime);
    }
  }

  void judge(const Format& format) {
    mDeskLane.judge(takeSentMTC(*mOutside, mDesk), format.type, 10);
    for (std::size_t i = 0; i < mReaders.size(); ++i) {
      // A frame is read to the sample, and followed to the sample.
      mReaderLanes.at(i).judge(takeSentMTC(*mOutside, mReaders.at(i)->endpoint()), format.type,
                               63'000);
    }
    mOutside->sent.clear();
    mCalls.clear();
    // A clip shows each time 80 ms after it was.
    const auto clip = std::chrono::duration<double>(mMedia.players.back()->currentTime());
    const auto& window = *app().mediaWindows().windows().front();
    const double ahead = clip.count() + ltc_seconds_from_smpte_time(window.clipStartTime().time()) -
                         mDeskLane.timeAt(mHost.AudioGetCurrentHostTime());
    EXPECT_NEAR(std::remainder(ahead, 86400), -0.08, 0.002);
  }
  void letGo() {
    mDeskLane.letGo();
    for (Lane& lane : mReaderLanes) {
      lane.letGo();
    }
  }

  void runPhase(std::uint64_t number) {
    const Format& format = kFormats.at(number / 2 % kFormats.size());
    const bool follows = number % 2 == 1;
    clock().setSmpteFormat(format.type);
    app().setCurrentTime(KVSMPTETime::smpteTimeWithTime(timeOfDigits("23:59:45:00", format.type)));
    app().setSyncSource(follows ? mDeck : nullptr);
    clock().setArmed(follows);
    mHost.settle();
    mDeckTime = clock().time();
    mDeckBegin = mHost.AudioGetCurrentHostTime();
    mDeckPieces = 0;
    if (!follows) {
      command("/velor/transport/play", 1);
    }
    for (int second = 0; second < kPhase; ++second) {
      follows ? followForASecond(format) : pass(1);
      EXPECT_TRUE(clock().running());
      if (second == kSettling) {
        letGo();
        mOutside->sent.clear();
      } else if (second > kSettling) {
        judge(format);
      }
      command("/velor/nobody", 1);
    }
    EXPECT_THAT(mLog.matching("error: "), testing::IsEmpty());
    mLog.clear();
    EXPECT_FALSE(mNetwork.takeSent().empty());
    command("/velor/transport/stop", 1);
    clock().setArmed(false);
    pass(3);
  }

  // Saves and opens the document, and takes the device and both ports away and brings them back.
  void change() {
    EXPECT_TRUE(app().saveApplicationStateToURL(mFolder.path() / "days.velor"));
    closeMediaWindows();
    app().loadApplicationStateFromURL(mFolder.path() / "days.velor");
    findReaders();
    mOutside->vanish(mDesk);
    mLoopback->vanish();
    pass(1);
    mLoopback->appear();
    mDesk = appear("desk");
    mOutside->vanish(mDeck->endpoint());
    mDeck = addSource("deck");
    pass(1);
    mOutside->sent.clear();
  }

  midi::MIDIEndpointRef mDesk = 0;
  std::shared_ptr<KVMIDIEndpoint> mDeck;
  SMPTETime mDeckTime{};
  std::uint64_t mDeckBegin = 0;
  std::uint64_t mDeckPieces = 0;
  std::array<std::shared_ptr<KVMIDIEndpoint>, 2> mReaders;
  Lane mDeskLane{"desk"};
  std::array<Lane, 2> mReaderLanes{Lane("reader 1"), Lane("reader 2")};
};

TEST_F(VLAppDays, TimeKeepsItsOrderAndItsPlaceEverywhereAndMemoryItsSize) {
  const char* hours = std::getenv("VELOR_DAY_HOURS");
  const double length = (hours != nullptr ? std::strtod(hours, nullptr) : 0.1) * 3600e9;
  const auto inUse = [] { return static_cast<double>(mallinfo2().uordblks) / 1e6; };
  const std::uint64_t begin = mHost.AudioGetCurrentHostTime();
  double before = 0;
  std::uint64_t phases = 0;
  while (static_cast<double>(mHost.AudioGetCurrentHostTime() - begin) < length && !HasFailure()) {
    if (phases == kWarmUp) {
      before = inUse();
    }
    runPhase(phases++);
    change();
  }
  EXPECT_GT(phases, std::size_t{kWarmUp});
  EXPECT_LT(inUse() - before, kGrowth + kKept * static_cast<double>(phases) / 1e6);
  const std::size_t atLeast = phases * (kPhase - kSettling - 2) * 12;
  EXPECT_GT(mDeskLane.blocksSeen, atLeast);
  for (const Lane& lane : mReaderLanes) {
    EXPECT_GT(lane.blocksSeen, atLeast * 98 / 100);
  }
}

}  // namespace
}  // namespace velor
