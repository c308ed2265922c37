// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Kv-Appkit/KVException.h"
#include "Velor/clock/VLClock.h"
#include "kva/MIDI/KVMIDICore.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/midi/MIDIService.h"
#include "tests/support/MIDITest.h"
#include "tests/velor/mtc/MTCOnWire.h"

namespace velor {

inline constexpr std::uint64_t kMs = 1'000'000;
inline constexpr std::uint64_t kFrame25 = 40 * kMs;

inline SMPTETime at(std::int32_t hours, std::int32_t minutes, std::int32_t seconds,
                    std::int32_t frames, std::uint32_t type = kSMPTETimeType25) {
  SMPTETime t;
  t.mType = type;
  ltc_set_time(t, hours, minutes, seconds, frames);
  return t;
}

inline std::string digits(const SMPTETime& t) {
  char buffer[kLTCStringSize];
  ltc_format_string(t, buffer);
  return buffer;
}

/// Whether it is a time of its format: no number that it leaves out, none too large.
inline bool isWhole(const SMPTETime& t) {
  SMPTETime normal = t;
  ltc_normalize(normal);
  return ltc_is_valid(t) && ltc_same_time(t, normal);
}

/// Keeps every report, in the order of arrival.
class RecordingDelegate : public VLClockDelegate {
 public:
  void clockDidChangeStartTime(VLClock&) override { reports.emplace_back("time"); }
  void clockDidStartPlaying(VLClock&) override { reports.emplace_back("started"); }
  void clockDidStopPlaying(VLClock&) override { reports.emplace_back("stopped"); }
  void clockDidArm(VLClock&) override { reports.emplace_back("armed"); }
  void clockDidDisarm(VLClock&) override { reports.emplace_back("disarmed"); }
  void clockReceivesWrongFormat(VLClock&, std::uint32_t format) override {
    reports.push_back("wrong format " + std::to_string(format));
  }
  std::vector<std::string> take() { return std::exchange(reports, {}); }

  std::vector<std::string> reports;
};

/// A clock on simulated time, with MIDI in this process and a delegate.
class ClockFixture : public MIDITest {
 protected:
  explicit ClockFixture(std::uint64_t seed = 0) : MIDITest(seed) { makeClock(); }

  void makeClock() {
    mClock.reset();
    mClock = std::make_unique<VLClock>();
    mClock->setDelegate(mDelegate);
  }

  VLClock& clock() { return *mClock; }
  void advanceFrames(std::uint64_t count) { mHost.advance(count * kFrame25); }
  std::string now() { return digits(clock().time()); }

  std::shared_ptr<KVMIDIEndpoint> addDestination(const std::string& name) {
    auto endpoint = std::make_shared<KVMIDIEndpoint>(
        mOutside->appear(midi::MIDIEndpointKind::destination, name));
    clock().addMTCDestination(endpoint);
    return endpoint;
  }

  std::shared_ptr<KVMIDIEndpoint> followSource(const std::string& name) {
    auto endpoint =
        std::make_shared<KVMIDIEndpoint>(mOutside->appear(midi::MIDIEndpointKind::source, name));
    clock().setMIDISyncSource(endpoint);
    return endpoint;
  }

  std::vector<OnWire> takeSent(const KVMIDIEndpoint& destination) {
    return takeSentMTC(*mOutside, destination.endpoint());
  }

  const std::shared_ptr<RecordingDelegate> mDelegate = std::make_shared<RecordingDelegate>();
  std::unique_ptr<VLClock> mClock;
};

using Reports = std::vector<std::string>;

}  // namespace velor
