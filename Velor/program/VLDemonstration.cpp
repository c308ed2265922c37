// SPDX-License-Identifier: MIT
#include "Velor/program/VLDemonstration.h"

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "Velor/app/VLAppDelegate.h"
#include "Velor/devices/VLLTCReaderDevice.h"
#include "Velor/program/VLCommandLine.h"
#include "Velor/program/VLHeadless.h"
#include "Velor/program/VLStandardOutput.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Host.h"

namespace velor {
namespace {

constexpr std::uint64_t kSecond = 1'000'000'000;  // ns
constexpr int kLooks = 10;
// The reader has met the rate by then.
constexpr std::uint64_t kSettling = 3 * kSecond / 2;
constexpr std::uint64_t kInterval = kSecond;
// Until the devices have seen that the clock stands.
constexpr std::uint64_t kRunOut = kSecond / 2;
// The clock's tick and the reader's block are up to two frames apart.
constexpr int kMostApart = 2;
constexpr std::uint32_t kUserBits = 0x12345678;

// Looks at the clock and the reader once a second.
class Report {
 public:
  void begin(VLAppDelegate& app, VLLTCReaderDevice& reader) {
    mApp = &app;
    mReader = &reader;
    std::printf(
        "No display, no options: Velor plays LTC for %d seconds and reads it again "
        "(--help lists all options).\n",
        kLooks);
    lookAfter(kSettling);
  }

  // The last line, and the exit status.
  int end() const {
    if (mLooks < kLooks) {
      return 0;  // by a signal
    }
    const bool isRight = mReadings == kLooks && mWorst <= kMostApart && mUserBits == kUserBits;
    std::printf(
        "%s: %d of %d times read, frames apart: at most %d; user bits %08X sent, %08X read.\n",
        isRight ? "The times read are the times sent" : "The times read are NOT those sent",
        mReadings, kLooks, mWorst, kUserBits, mUserBits);
    return isRight ? 0 : 1;
  }

 private:
  void lookAfter(std::uint64_t interval) {
    std::fflush(stdout);
    host::current().mainQueue().after(interval, [this] { look(); });
  }

  void look() {
    const SMPTETime sent = mApp->clock().time();
    SMPTETime read{};
    mReader->getLatestTime(read);
    mUserBits = mReader->userbits();
    if (ltc_is_valid(read)) {
      ++mReadings;
      mWorst = std::max(mWorst, std::abs(ltc_frame_number_from_smptetime(sent) -
                                         ltc_frame_number_from_smptetime(read)));
    }
    // A terminal has the status line.
    if (isatty(STDOUT_FILENO) == 0) {
      std::printf("sent %s   read %s\n", stringFromSMPTETime(sent).c_str(),
                  stringFromSMPTETime(read).c_str());
    }
    if (++mLooks < kLooks) {
      lookAfter(kInterval);
      return;
    }
    mApp->stop();
    mReader->setFreewheelTime(0);
    host::current().mainQueue().after(kRunOut, [] { host::current().mainQueue().stop(); });
  }

  VLAppDelegate* mApp = nullptr;
  VLLTCReaderDevice* mReader = nullptr;
  int mLooks = 0;
  int mReadings = 0;
  int mWorst = 0;  // frames
  std::uint32_t mUserBits = 0;
};

}  // namespace

int VLDemonstrationRun() {
  const VLCommandLine line = VLParseCommandLine(
      {"--headless", "--play", "--format", "25", "--start", "01:00:00:00", "--ltc-user-bits",
       "12345678", "--ltc-out", "Velor Loopback:1", "--ltc-in", "Velor Loopback:1"});
  Report report;
  VLWorld world;
  world.isApart = true;
  world.running = [&report](VLAppDelegate& app, VLLTCReaderDevice& reader) {
    report.begin(app, reader);
  };
  const int status = VLHeadlessRun(*line.options, world);
  return status != 0 ? status : VLStandardOutput::end(report.end());
}

}  // namespace velor
