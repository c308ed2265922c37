// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "Velor/mtc/VLMTC.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/SystemHost.h"
#include "platform/midi/builtin/MIDIObjectTable.h"

namespace velor {
namespace {

constexpr std::uint64_t kMs = 1'000'000;
constexpr std::uint64_t kSilence = 129'449'838;  // four frames at 30.9 a second, ns

// Hours, minutes and seconds of one number, so that a mixture of two times is seen;
// a freewheel of 22 frames leaves them so.
SMPTETime numbered(unsigned n) {
  SMPTETime time;
  time.mType = n % 2 == 0 ? kSMPTETimeType30 : kSMPTETimeType24;
  const auto number = static_cast<std::int32_t>(n % 20);
  ltc_set_time(time, number, number, number, 0);
  return time;
}

class VLMTCThreads : public testing::Test {
 protected:
  VLMTCThreads() { midi::setService(&mTable); }
  ~VLMTCThreads() override { midi::setService(nullptr); }

  VLMTC* make(double freewheelTime) {
    VLMTC* mtc = nullptr;
    EXPECT_EQ(VLMTCCreate(&mtc), 0);
    VLMTCSetFramerate(mtc, 30.9);
    VLMTCSetFreewheelTime(mtc, freewheelTime);
    VLMTCSetStateCallback(
        mtc,
        [](VLMTC*, VLMTCState state, void* test) {
          static_cast<VLMTCThreads*>(test)->mStops += state == kVLMTCDidStopFreewheel ? 1 : 0;
        },
        this);
    return mtc;
  }
  void runMainFor(std::uint64_t duration) {
    mHost.mainQueue().after(duration, [this] { mHost.mainQueue().stop(); });
    mHost.mainQueue().run();
  }
  // As the reader's callback.
  bool send(VLMTC* mtc, unsigned n) {
    const SMPTETime time = numbered(n);
    const host::RealtimeContext realtime;
    VLMTCSetFramerate(mtc, n % 2 == 0 ? 30.9 : 30.5);
    return VLMTCSendTime(realtime, mtc, &time, mHost.AudioGetCurrentHostTime()) !=
           midi::kMIDIMessageSendErr;
  }

  host::SystemHost mHost;
  midi::MIDIObjectTable mTable{nullptr};
  int mStops = 0;
};

TEST_F(VLMTCThreads, LTCMayComeAndGoAtAnyMomentWhileOthersLookAndStop) {
  for (const double freewheelTime : {0.002, 0.0, -1.0}) {
    VLMTC* mtc = make(freewheelTime);
    std::atomic<bool> ending{false};
    int halves = 0;
    int refused = 0;
    mStops = 0;
    const auto reader = mHost.startThread("reader", [&] {
      for (unsigned n = 0; n < 80; ++n) {
        refused += send(mtc, n) ? 0 : 1;
        // Back around the beginning and the end of the freewheel.
        const std::uint64_t pause = n % 20 == 19 ? kSilence + (n / 20) * kMs : kMs / 2;
        mHost.mach_wait_until(mHost.AudioGetCurrentHostTime() + pause);
      }
    });
    std::thread other([&] {
      while (!ending.load()) {
        SMPTETime time;
        VLMTCGetTime(mtc, &time, nullptr, nullptr);
        halves += time.mHours == time.mMinutes && time.mMinutes == time.mSeconds ? 0 : 1;
        if (freewheelTime < 0) {
          VLMTCStopFreewheeling(mtc);
        }
      }
    });
    runMainFor(5 * kSilence);
    reader->join();
    runMainFor(2 * kSilence);
    ending.store(true);
    other.join();
    bool reading = true;
    VLMTCGetTime(mtc, nullptr, &reading, nullptr);
    EXPECT_FALSE(reading) << "the last silence has ended it";
    EXPECT_EQ(halves, 0);
    EXPECT_EQ(refused, 0);
    EXPECT_GE(mStops, 1);
    VLMTCDispose(mtc);
  }
}

TEST_F(VLMTCThreads, DisposalMayMeetSilenceAndTimesThatWereJustHandedOver) {
  for (unsigned round = 0; round < 12; ++round) {
    VLMTC* mtc = make(round % 3 == 0 ? 0.0 : round % 3 == 1 ? 0.0005 : -1.0);
    mHost.startThread("reader", [&] { EXPECT_TRUE(send(mtc, 0)); })->join();
    if (round >= 3) {
      runMainFor(kSilence - kMs / 2 + round * kMs / 10);
    }
    VLMTCDispose(mtc);
    mStops = 0;
    runMainFor(kMs);
    EXPECT_EQ(mStops, 0);
  }
}

}  // namespace
}  // namespace velor
