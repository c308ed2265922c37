// SPDX-License-Identifier: MIT
#include "Velor/ltc/VLLTCVarispeedDecoder.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

namespace velor {
namespace {

constexpr double kMiddleRate = 27;  // frames per second
constexpr int kOctavesBelow = 3;
constexpr int kOctavesAbove = 3;

constexpr double kLeastSamples = 0.9;  // for each half bit, in the middle of an octave

constexpr std::size_t kPart = 4096;  // samples
// Without a frame for so many frames another octave may read.
constexpr double kMostMissing = 3.5;

}  // namespace

VLLTCVarispeedDecoder::VLLTCVarispeedDecoder(double sampleRate, Consumer consumer)
    : mConsumer(std::move(consumer)) {
  for (int octave = -kOctavesBelow; octave <= kOctavesAbove; ++octave) {
    const double middle = kMiddleRate * std::exp2(octave);
    // Where half bits are shorter than samples there is nothing to read.
    if (sampleRate < kLeastSamples * middle * static_cast<double>(2 * kLTCFrameBits)) {
      break;
    }
    mOctaves.push_back(std::make_unique<Octave>(sampleRate, middle / std::numbers::sqrt2,
                                                middle * std::numbers::sqrt2));
  }
}

void VLLTCVarispeedDecoder::process(std::span<const float> samples) {
  while (!samples.empty()) {
    const auto part = samples.first(std::min(kPart, samples.size()));
    processPart(part);
    samples = samples.subspan(part.size());
  }
}

void VLLTCVarispeedDecoder::processPart(std::span<const float> samples) {
  const std::uint64_t from = mPlace;
  mPlace += samples.size();
  if (mReading == nullptr) {
    for (const auto& octave : mOctaves) {
      listen(*octave, samples, from);
    }
    mKeptFrom = mPlace;
    deliver();
    return;
  }
  mKept.insert(mKept.end(), samples.begin(), samples.end());
  feed(*mReading, samples);
  deliver();
  if (static_cast<double>(mPlace) - mLastEnd > kMostMissing * mLastLength) {
    wakeOthers();
    return;
  }
  const auto next = std::max(mKeptFrom, static_cast<std::uint64_t>(std::max(0.0, mLastEnd)));
  mKept.erase(mKept.begin(), mKept.begin() + static_cast<std::ptrdiff_t>(next - mKeptFrom));
  mKeptFrom = next;
}

void VLLTCVarispeedDecoder::finish() {
  if (mReading != nullptr) {
    wakeOthers();
  }
  for (const auto& octave : mOctaves) {
    if (octave->isResting) {
      continue;
    }
    octave->clock.finish([this, &octave](const VLLTCHalfBit& halfBit) {
      found(octave->finder.push(halfBit), *octave);
    });
    found(octave->finder.finish(), *octave);
  }
  deliver();
}

void VLLTCVarispeedDecoder::wakeOthers() {
  for (const auto& octave : mOctaves) {
    if (octave.get() != mReading) {
      octave->isResting = false;
      octave->clock.restart(static_cast<double>(mKeptFrom));
      feed(*octave, mKept);
    }
  }
  mReading = nullptr;
  mKept.clear();
  mKeptFrom = mPlace;
  deliver();
}

// In silence a clock that follows nothing rests.
void VLLTCVarispeedDecoder::listen(Octave& octave, std::span<const float> samples,
                                   std::uint64_t from) {
  const bool isSilent = std::all_of(samples.begin(), samples.end(),
                                    [&](float sample) { return sample == samples.front(); });
  if (isSilent && !octave.clock.isLocked()) {
    octave.isResting = true;
    return;
  }
  if (std::exchange(octave.isResting, false)) {
    octave.clock.restart(static_cast<double>(from));
  }
  feed(octave, samples);
}

void VLLTCVarispeedDecoder::feed(Octave& octave, std::span<const float> samples) {
  octave.clock.process(samples, [this, &octave](const VLLTCHalfBit& halfBit) {
    found(octave.finder.push(halfBit), octave);
  });
}

void VLLTCVarispeedDecoder::found(const std::optional<VLLTCBits>& bits, Octave& by) {
  if (bits) {
    mFound.push_back({*bits, &by});
  }
}

void VLLTCVarispeedDecoder::deliver() {
  std::sort(mFound.begin(), mFound.end(),
            [](const Found& a, const Found& b) { return a.bits.begin < b.bits.begin; });
  for (const Found& found : mFound) {
    mRun.push(found.bits, [&](const VLLTCBits& bits) {
      mConsumer(bits);
      mReading = found.by;
      mLastEnd = bits.end;
      mLastLength = bits.end - bits.begin;
    });
  }
  mFound.clear();
}

}  // namespace velor
