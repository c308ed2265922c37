// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "Kv-Appkit/KVLineFit.h"
#include "Velor/ltc/VLLTCMeter.h"
#include "Velor/ltc/VLLTCReport.h"
#include "Velor/ltc/VLLTCVarispeedDecoder.h"

namespace velor {

/// Measures LTC and the line that it comes over. It reads with VLLTCVarispeedDecoder, and
/// measures the signal of each frame that was read.
///
/// One thread. Realtime-safe: no.
class VLLTCAnalysis {
 public:
  explicit VLLTCAnalysis(double sampleRate);

  void process(std::span<const float> samples);
  /// The input ends. Call it once, after the last samples.
  void finish();
  /// The measurements up to now; more samples may follow.
  VLLTCReport report() const;

 private:
  struct Frame {
    VLLTCBits bits;
    double begin = 0;
    double length = 0;
    std::uint32_t type = kSMPTETimeType25;
  };
  struct Event {
    VLLTCReport::Kind kind;
    VLLTCBits before;
    VLLTCBits behind;
  };

  void take(const VLLTCBits& bits);
  void compare(const Frame& frame);
  void add(VLLTCReport::Kind kind, const VLLTCBits& behind);
  void takeUserBits(const VLLTCBits& bits);
  void chooseFormat(VLLTCReport& report) const;
  void measureRate(VLLTCReport& report) const;
  void measureSignal(VLLTCReport& report) const;

  const double mSampleRate;
  VLLTCVarispeedDecoder mDecoder;
  VLLTCMeter mMeter;
  std::vector<float> mKept;
  std::uint64_t mKeptFrom = 0;
  std::uint64_t mPlace = 0;
  float mPeak = 0;

  std::uint64_t mFrames = 0;
  std::uint64_t mReverseFrames = 0;
  VLLTCBits mFirst;
  Frame mLast;
  double mNominalRate = 25;
  // Frame numbers that were read: the highest one, and the highest one right before a new
  // second; -1 for none.
  std::int32_t mHighest = 0;
  std::int32_t mLastOfSecond = -1;

  KVLineFit mPlaces;  // of frames that follow each other
  double mNumber = 0;

  std::array<std::uint64_t, 4> mCounts{};
  std::vector<Event> mEvents;
  std::uint64_t mUserBitChanges = 0;
  std::vector<VLLTCBits> mUserBits;
};

}  // namespace velor
