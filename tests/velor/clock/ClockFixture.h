// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "Kv-Appkit/KVShared.h"
#include "Velor/clock/VLClock.h"
#include "kva/MIDI/KVMIDICore.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/SimulatedHost.h"
#include "platform/midi/MIDIService.h"
#include "platform/midi/builtin/MIDIObjectTable.h"
#include "tests/support/FakeOutside.h"

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
class ClockFixture : public testing::Test {
 protected:
  /// What one call of the transmitter, or one locate, put on the wire.
  struct OnWire {
    bool isLocate;
    std::uint64_t time;  // host time of the first packet; 0 is at once
    std::string digits;  // "hh:mm:ss:ff"
    unsigned rateCode;
    bool operator==(const OnWire&) const = default;
  };

  explicit ClockFixture(std::uint64_t seed = 0) : mHost(seed) {
    midi::setService(&mTable);
    makeClock(VLClockTimeSources::system());
  }
  ~ClockFixture() override {
    mClock.reset();
    mHost.advance(1000 * kMs);  // the end of a stream lets its parser go
    KVSharedInstances::clear();
    midi::setService(nullptr);
  }

  void makeClock(VLClockTimeSources sources) {
    mClock.reset();
    mClock = std::make_unique<VLClock>(std::move(sources));
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

  /// Everything that has gone to the destination since the last call, read by the
  /// tables of the MTC standard.
  std::vector<OnWire> takeSent(const KVMIDIEndpoint& destination) {
    std::vector<OnWire> result;
    unsigned fields[4] = {};  // frames, seconds, minutes, hours and rate
    unsigned expectedPiece = 0;
    std::erase_if(mOutside->sent, [&](const midi::FakeOutside::Sent& sent) {
      if (sent.endpoint != destination.endpoint()) {
        return false;
      }
      const auto& bytes = sent.bytes;
      if (bytes.size() == 2 && bytes[0] == 0xF1) {
        const unsigned piece = bytes[1] >> 4;
        const unsigned nibble = bytes[1] & 0xFU;
        EXPECT_EQ(piece, expectedPiece);
        expectedPiece = (piece + 1) % 8;
        if (piece == 0) {
          result.push_back({false, sent.time, {}, 0});
        }
        fields[piece / 2] = piece % 2 == 0 ? nibble : fields[piece / 2] | nibble << 4;
        if (piece == 7) {
          finish(result.back(), fields[3] & 0x1F, fields[2], fields[1], fields[0], fields[3] >> 5);
        }
      } else if (bytes.size() == 10 && bytes[0] == 0xF0 && bytes[3] == 0x01 && bytes[4] == 0x01) {
        result.push_back({true, sent.time, {}, 0});
        finish(result.back(), bytes[5] & 0x1F, bytes[6], bytes[7], bytes[8], bytes[5] >> 5);
      }
      return true;
    });
    return result;
  }

  host::SimulatedHost mHost;
  midi::FakeOutside* mOutside = new midi::FakeOutside;
  midi::MIDIObjectTable mTable{std::unique_ptr<midi::MIDIOutside>(mOutside)};
  const std::shared_ptr<RecordingDelegate> mDelegate = std::make_shared<RecordingDelegate>();
  std::unique_ptr<VLClock> mClock;

 private:
  static void finish(OnWire& item, unsigned hours, unsigned minutes, unsigned seconds,
                     unsigned frames, unsigned rateCode) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%02u:%02u:%02u:%02u", hours, minutes, seconds, frames);
    item.digits = buffer;
    item.rateCode = rateCode;
  }
};

using Reports = std::vector<std::string>;

}  // namespace velor
