// SPDX-License-Identifier: MIT
#include "Velor/program/VLDemonstration.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "Velor/clock/VLClock.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/devices/VLLTCGeneratorDevice.h"
#include "Velor/devices/VLLTCReaderDevice.h"
#include "Velor/mtc/VLMTCParser.h"
#include "Velor/program/VLServicesInForce.h"
#include "Velor/program/VLStandardOutput.h"
#include "Velor/program/VLStatusLine.h"
#include "kva/KAHALAudioDevice.h"
#include "kva/MIDI/KVMIDICore.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_frame.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Host.h"
#include "platform/host/Seqlock.h"

namespace velor {
namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;  // ns
constexpr std::uint64_t kDuration = 10 * kSecond;
constexpr std::uint64_t kTerminalInterval = kSecond / 10;
constexpr std::uint32_t kFormat = kSMPTETimeType25;
constexpr double kFrame = 40e6;  // ns
// What is read is told as of the middle of the bit before its frame.
constexpr double kHalfBit = kFrame / (2 * kLTCFrameBits);
// Blocks until generator and reader have met their rates.
constexpr std::uint32_t kSettling = 12;
constexpr std::uint32_t kUserBits = 0x12345678;

// The times sent and read that belong to one moment, and how it went so far.
struct Seen {
  SMPTETime sent{};
  SMPTETime read{};
  double difference = 0;  // ns by which what was read was late
  double worst = 0;       // ns, once settled
  std::uint32_t numSent = 0;
  std::uint32_t numRead = 0;
  std::uint32_t numWrong = 0;
};

// Puts both streams of MTC side by side, on the MIDI read thread.
class Comparison {
 public:
  void takeSent(const SMPTETime& time, std::uint64_t hostTime) {
    mFrame = ltc_frame_number_from_smptetime(time);
    mHostTime = static_cast<double>(hostTime);
    ++mSeen.numSent;
  }
  void takeRead(const SMPTETime& time, std::uint64_t hostTime) {
    if (mSeen.numSent == 0) {
      return;
    }
    const double passed = static_cast<double>(hostTime) + kHalfBit - mHostTime;
    const std::int32_t sent = mFrame + static_cast<std::int32_t>(std::lround(passed / kFrame));
    const std::int32_t read = ltc_frame_number_from_smptetime(time);
    mSeen.sent = ltc_smptetime_from_frame_number(sent, kFormat);
    mSeen.read = time;
    mSeen.difference = passed - (read - mFrame) * kFrame;
    ++mSeen.numRead;
    mSeen.numWrong += read == sent && time.mType == kFormat ? 0 : 1;
    if (mSeen.numRead > kSettling) {
      mSeen.worst = std::max(mSeen.worst, std::fabs(mSeen.difference));
    }
    mShared.store(mSeen);
  }
  /// Any thread.
  Seen seen() const { return mShared.load(); }

 private:
  // What was sent last.
  std::int32_t mFrame = 0;
  double mHostTime = 0;  // ns
  Seen mSeen;
  host::Seqlocked<Seen> mShared;
};

std::string lineOf(const Seen& seen, double sampleRate) {
  if (seen.numRead == 0) {
    return "sent " + invalidSMPTEString() + "   read " + invalidSMPTEString();
  }
  char difference[64];
  std::snprintf(difference, sizeof difference, "   difference %+.1f samples",
                seen.difference * 1e-9 * sampleRate);
  return "sent " + stringFromSMPTETime(seen.sent) + "   read " + stringFromSMPTETime(seen.read) +
         difference;
}

// Shows what is seen until the time is over.
class Display {
 public:
  Display(const Comparison& comparison, double sampleRate)
      : mComparison(comparison), mSampleRate(sampleRate) {
    showLater();
  }

 private:
  void showLater() {
    host::MainQueue& mainQueue = host::current().mainQueue();
    if (mLeft == 0) {
      mainQueue.stop();
      return;
    }
    const std::uint64_t interval = mLine.isVisible() ? kTerminalInterval : kSecond;
    mLeft -= interval;
    mainQueue.after(interval, [this] {
      const std::string line = lineOf(mComparison.seen(), mSampleRate);
      if (mLine.isVisible()) {
        mLine.show(line);
      } else {
        std::printf("%s\n", line.c_str());
        std::fflush(stdout);
      }
      showLater();
    });
  }

  const Comparison& mComparison;
  const double mSampleRate;
  std::uint64_t mLeft = kDuration;
  VLStatusLine mLine;
};

// The last line, and the exit status.
int conclude(const Seen& seen, std::uint32_t userbits, double sampleRate) {
  if (seen.numRead == 0) {
    std::printf("Nothing was read of what was sent.\n");
    return 1;
  }
  // The first blocks are gone before the reader has fallen into step.
  const bool isEnough = seen.numRead + kSettling >= seen.numSent;
  const bool isRight = seen.numWrong == 0 && userbits == kUserBits && isEnough;
  char text[256];
  std::snprintf(text, sizeof text,
                "%s: of %u times sent %u were read, %u of them wrong, at most %.1f samples of "
                "%.0f Hz apart; user bits %08X sent, %08X read.",
                isRight ? "What was read is what was sent" : "What was read is NOT what was sent",
                seen.numSent, seen.numRead, seen.numWrong, seen.worst * 1e-9 * sampleRate,
                sampleRate, kUserBits, userbits);
  std::printf("%s\n", text);
  return isRight ? 0 : 1;
}

}  // namespace

int VLDemonstrationRun() {
  Comparison comparison;
  // Before the services, whose read thread calls them.
  const auto sent = VLMTCParser::initWithCompletionBlock(
      [&comparison](const SMPTETime& time, std::uint64_t hostTime, double) {
        comparison.takeSent(time, hostTime);
      });
  const auto read = VLMTCParser::initWithCompletionBlock(
      [&comparison](const SMPTETime& time, std::uint64_t hostTime, double) {
        comparison.takeRead(time, hostTime);
      });
  const VLServicesInForce services(VLServicesInForce::Outside::none);
  KVMIDICore& core = KVMIDICore::sharedCore();
  VLClock& clock = VLClock::sharedClock();
  VLDeviceManager& devices = VLDeviceManager::sharedManager();

  const auto generator = devices.createGenerator();
  const auto reader = devices.createrReader();
  generator->generator()->setUserbits(kUserBits);
  const auto device = KAHALAudioDevice::initWithAudioObjectID(reader->audioObjectId());
  if (device == nullptr) {
    std::fputs("velor: there is no audio device\n", stderr);
    return 1;
  }
  const double sampleRate = device->nominalSampleRate();
  std::printf(
      "No display, no options: a look at Velor for %d seconds (--help tells what it does).\n"
      "Clock > MTC > %s > LTC on %s, %.0f Hz > %s > MTC\n",
      static_cast<int>(kDuration / kSecond), generator->name().value_or("?").c_str(),
      device->name().value_or("?").c_str(), sampleRate, reader->name().value_or("?").c_str());
  std::fflush(stdout);

  const auto tap = std::make_shared<KVMIDIEndpoint>(core.createDestination(
      core.defaultClient(), "sent", &VLMTCParser::readPackets, sent.get(), 0));
  midi::MIDIPortRef port = 0;
  midi::service().MIDIInputPortCreate(core.defaultClient(), "read", &VLMTCParser::readPackets,
                                      read.get(), &port);
  midi::service().MIDIPortConnectSource(port, reader->midiEndpoint()->endpoint(), nullptr);
  clock.setSmpteFormat(kFormat);
  clock.setTime(ltc_smptetime_from_frame_number(90000, kFormat));
  clock.addMTCDestination(generator->midiEndpoint());
  clock.addMTCDestination(tap);
  clock.start();
  {
    const Display display(comparison, sampleRate);
    host::current().mainQueue().run();
  }
  const Seen seen = comparison.seen();
  const std::uint32_t userbits = reader->userbits();
  clock.stop();
  return VLStandardOutput::end(conclude(seen, userbits, sampleRate));
}

}  // namespace velor
