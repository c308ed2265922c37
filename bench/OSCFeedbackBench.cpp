// SPDX-License-Identifier: MIT
// What feedback costs: a clock at 30 frames a second that tells 64 targets of the
// time, beside the same clock with none. Prints the share of one core of the whole
// process; takes the seconds of each of its rows as an argument.
#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "CocoaAsyncSocket/GCDAsyncUdpSocket.h"
#include "Velor/clock/VLClock.h"
#include "Velor/osc/VLOSCClientDispatcher.h"
#include "Velor/osc/VLUserDefinedOSCClient.h"
#include "bench/OSCService.h"
#include "bench/TickErrors.h"

namespace velor {
namespace {

constexpr std::uint16_t kFirstPort = 41'000;

double processorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double shareOfACore(double seconds) {
  host::MainQueue& mainQueue = host::current().mainQueue();
  const std::uint64_t begin = now();
  const double before = processorSeconds();
  mainQueue.after(static_cast<std::uint64_t>(seconds * 1e9), [&mainQueue] { mainQueue.stop(); });
  mainQueue.run();
  return (processorSeconds() - before) * 1e9 / static_cast<double>(now() - begin);
}

int run(double seconds) {
  const host::SystemHost host;
  const OSCService service;
  VLClock& clock = VLClock::sharedClock();
  VLOSCClientDispatcher& dispatcher = VLOSCClientDispatcher::sharedDispatcher();
  clock.setSmpteFormat(kSMPTETimeType30);
  std::uint64_t told = 0;
  clock.setProceedBlock([&](const SMPTETime* time) {
    if ((time->mCounter & 1U) == 0) {
      dispatcher.updateTime(*time);
      ++told;
    }
  });
  clock.start();
  std::printf("targets  share of a core  datagrams/s\n");
  for (const unsigned targets : {0U, 64U}) {
    // Each has somebody who listens, as in life; what is not read is dropped there.
    const auto nobody = std::make_shared<GCDAsyncUdpSocketDelegate>();
    std::vector<std::shared_ptr<GCDAsyncUdpSocket>> listeners;
    for (unsigned i = 0; i < targets; ++i) {
      const auto port = static_cast<std::uint16_t>(kFirstPort + i);
      listeners.push_back(
          GCDAsyncUdpSocket::initWithDelegate(nobody, &host::current().mainQueue()));
      if (!listeners.back()->bindToPort(port)) {
        std::fprintf(stderr, "port %u is taken\n", static_cast<unsigned>(port));
        return 1;
      }
      dispatcher.addClient(VLUserDefinedOSCClient::initWithUdpHost("127.0.0.1", port));
    }
    shareOfACore(0.5);
    const std::uint64_t before = told;
    const double share = shareOfACore(seconds);
    std::printf("%7u  %14.2f%%  %11.0f\n", targets, share * 100,
                static_cast<double>((told - before) * targets) / seconds);
    for (const auto& listener : listeners) {
      listener->close();
    }
  }
  clock.stop();
  clock.setProceedBlock(nullptr);
  return 0;
}

}  // namespace
}  // namespace velor

int main(int argc, char** argv) {
  return velor::run(argc > 1 ? std::atof(argv[1]) : 10);
}
