// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "Kv-Appkit/KVShared.h"
#include "Velor/app/VLPortNames.h"
#include "Velor/app/VLServicesInForce.h"
#include "Velor/clock/VLClock.h"
#include "Velor/devices/VLDeviceManager.h"
#include "kva/MIDI/KVMIDICore.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/SystemHost.h"
#include "tests/support/JackPeer.h"
#include "tests/support/Servers.h"
#include "tests/system/MTCStream.h"

namespace velor::test {

/// The clock in this process on a JACK server of its own, with a recorder that is
/// a client of its own.
class ClockOnJack : public testing::Test {
 protected:
  ClockOnJack() {
    mServer.enter();
    mServer.start();
    mRecorder = std::make_unique<JackPeer>("Recorder");
    mRecorder->addInput("in");
    mRecorder->addInput("second");
    mRecorder->activate();
    mHost = std::make_unique<host::SystemHost>();
    mService = std::make_unique<VLServicesInForce>();
    VLDeviceManager::sharedManager();
  }
  ~ClockOnJack() override {
    clock().stop();
    KVSharedInstances::clear();
    mService.reset();
    mHost.reset();
  }

  VLClock& clock() { return VLClock::sharedClock(); }

  void enable(const std::string& port) {
    std::string error;
    auto endpoint =
        VLEndpointNamed(port, KVMIDICore::sharedCore().destinations(), "destination", error);
    ASSERT_NE(endpoint, nullptr) << error;
    const auto device = VLDeviceManager::sharedManager().destinationWithEndpoint(endpoint);
    ASSERT_NE(device, nullptr);
    device->setEnable(true);
  }

  // Runs the main loop until the condition holds; its last answer.
  bool until(double seconds, const std::function<bool()>& condition) {
    return waitFor(seconds, [this, &condition] {
      mHost->mainQueue().drainPending();
      return condition();
    });
  }

  // Runs the main loop for so long.
  void run(double seconds) {
    until(seconds, [] { return false; });
  }

  SMPTETime timeOf(int hours, int minutes, int seconds, int frames) {
    SMPTETime time{};
    time.mType = clock().smpteFormat();
    ltc_set_time(time, hours, minutes, seconds, frames);
    return time;
  }

  Stream stream(int port = 0) { return readStream(mRecorder->recorded(), port); }

  JackServer mServer{128};
  std::unique_ptr<JackPeer> mRecorder;
  std::unique_ptr<host::SystemHost> mHost;
  std::unique_ptr<VLServicesInForce> mService;
};

}  // namespace velor::test
