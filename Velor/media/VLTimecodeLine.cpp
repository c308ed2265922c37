// SPDX-License-Identifier: MIT
#include "Velor/media/VLTimecodeLine.h"

#include <algorithm>
#include <cmath>

namespace velor {
namespace {

// A place to begin with is worth so many reports.
constexpr double kFirstReports = 3;
// Reports that count, of two frames each: some five seconds.
constexpr double kMostReports = 64;
// Seconds: more than MIDI interfaces jitter, less than a frame.
constexpr double kFarOff = 0.012;
constexpr int kMostFarOff = 4;

}  // namespace

void VLTimecodeLine::begin(const Place& place) noexcept {
  mPlace = place;
  mReports = kFirstReports;
  mFarOff = 0;
}

// The gains with which a filter of place and rate is the line of least squares through n reports.
const VLTimecodeLine::Place& VLTimecodeLine::add(double position, std::uint64_t hostTime) noexcept {
  const double passed =
      static_cast<double>(static_cast<std::int64_t>(hostTime - mPlace.hostTime)) * 1e-9;
  const double off = position - mPlace.at(hostTime);
  if (std::fabs(off) > kFarOff) {
    const bool isThere = ++mFarOff >= kMostFarOff;
    mPlace = {isThere ? position : mPlace.at(hostTime), mPlace.rate, hostTime};
    mFarOff = isThere ? 0 : mFarOff;
    return mPlace;
  }
  mFarOff = 0;
  mReports = std::min(mReports + 1, kMostReports);
  const double n = mReports;
  const double placeGain = 2 * (2 * n - 1) / (n * (n + 1));
  const double rateGain = 6 / (n * (n + 1));
  mPlace.position = mPlace.at(hostTime) + placeGain * off;
  if (passed > 0) {
    mPlace.rate += rateGain * off / passed;
  }
  mPlace.hostTime = hostTime;
  return mPlace;
}

}  // namespace velor
