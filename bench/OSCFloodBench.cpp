// SPDX-License-Identifier: MIT
// What a flood does to the clock: 50,000 datagrams a second of another process, half
// of them good messages from made-up hosts that are refused, half of them damaged ones
// from a host that is allowed. Prints how late the clock's timer wakes without and
// with it, how the memory goes, and what became of good commands meanwhile. Takes the
// seconds of the flood as an argument. A good command that acts twice or out of its
// order, and memory that grows by a megabyte, are failures; those that the system
// dropped for want of room, of which the log tells, are counted as lost.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Velor/clock/VLClock.h"
#include "Velor/osc/VLOSCServer.h"
#include "bench/OSCService.h"
#include "bench/TickErrors.h"
#include "oscpkt/src/oscpkt.h"
#include "platform/host/Log.h"

namespace velor {
namespace {

constexpr std::uint16_t kPort = 41'770;
constexpr unsigned kFloodRate = 50'000;  // datagrams a second
constexpr unsigned kBatch = 50;          // of them, at once
constexpr unsigned kMadeUpHosts = 600;
constexpr unsigned kCommandRate = 100;  // good commands a second
constexpr const char* kAllowed = "127.0.0.1";
constexpr const char* kDesk = "127.0.0.3";
constexpr double kClockRate = 4;                                // 100 ticks a second
constexpr std::uint64_t kMostGrowth = std::uint64_t{1} << 20U;  // bytes

sockaddr_in addressOf(const char* host, std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  inet_pton(AF_INET, host, &address.sin_addr);
  return address;
}

int socketAt(const char* host) {
  const int number = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const sockaddr_in own = addressOf(host, 0);
  const sockaddr_in to = addressOf("127.0.0.1", kPort);
  if (bind(number, reinterpret_cast<const sockaddr*>(&own), sizeof own) != 0 ||
      connect(number, reinterpret_cast<const sockaddr*>(&to), sizeof to) != 0) {
    std::perror(host);
    std::exit(1);
  }
  return number;
}

std::vector<std::uint8_t> messageOf(const char* address, float value) {
  oscpkt::Message message{std::string(address)};
  message.pushFloat(value);
  oscpkt::OscPacketWriter writer;
  writer.addMessage(message);
  return {writer.packetData(), writer.packetData() + writer.packetSize()};
}

void sendOn(int number, const std::vector<std::uint8_t>& data) {
  // What the system refuses is lost, as on any network.
  [[maybe_unused]] const ssize_t sent = send(number, data.data(), data.size(), 0);
}

// The other process; writes how much it has sent into the pipe when it is told to end.
[[noreturn]] void flood(double seconds, int report) {
  std::vector<int> strangers;
  for (unsigned i = 0; i < kMadeUpHosts; ++i) {
    strangers.push_back(
        socketAt(("127.1." + std::to_string(i / 200) + "." + std::to_string(i % 200 + 1)).c_str()));
  }
  const int allowed = socketAt(kAllowed);
  const auto good = messageOf("/velor/transport/play", 1);
  auto damaged = messageOf("/velor/transport/play", 1);
  damaged.resize(damaged.size() - 2);
  std::uint64_t sent = 0;
  constexpr std::uint64_t kInterval = kSecond / (kFloodRate / kBatch);
  std::uint64_t next = now();
  for (const std::uint64_t end = next + static_cast<std::uint64_t>(seconds * 1e9); next < end;
       next += kInterval) {
    while (now() < next) {
      const timespec pause{0, 100'000};
      nanosleep(&pause, nullptr);
    }
    for (unsigned i = 0; i < kBatch; ++i, ++sent) {
      if (sent % 2 == 0) {
        sendOn(strangers[sent / 2 % strangers.size()], good);
      } else {
        sendOn(allowed, damaged);
      }
    }
  }
  [[maybe_unused]] const ssize_t written = write(report, &sent, sizeof sent);
  std::_Exit(0);
}

std::uint64_t residentBytes() {
  std::ifstream file("/proc/self/statm");
  std::uint64_t all = 0;
  std::uint64_t resident = 0;
  file >> all >> resident;
  return resident * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
}

// Takes the speed of each command as its number.
struct Desk final : VLOSCServerDelegate {
  explicit Desk(VLClock& theClock) : clock(theClock) {}
  void play(VLOSCServer&) override { ++strange; }
  void stop(VLOSCServer&) override { ++strange; }
  void gotoPrevMarker() override { ++strange; }
  void gotoNextMarker() override { ++strange; }
  void addMarker(VLOSCServer&) override { ++strange; }
  void setPlayRate(float number) override {
    taken.push_back(static_cast<unsigned>(number));
    clock.setPlayRate(kClockRate * (1 + number * 1e-9));
  }

  VLClock& clock;
  std::vector<unsigned> taken;
  unsigned strange = 0;
};

// Sends good commands while it lasts, with these numbers; the next one.
unsigned command(unsigned number, double seconds) {
  host::MainQueue& mainQueue = host::current().mainQueue();
  std::thread sender([&] {
    const int desk = socketAt(kDesk);
    std::uint64_t next = now();
    for (const std::uint64_t end = next + static_cast<std::uint64_t>(seconds * 1e9); next < end;
         next += kSecond / kCommandRate) {
      while (now() < next) {
        const timespec pause{0, 500'000};
        nanosleep(&pause, nullptr);
      }
      sendOn(desk, messageOf("/velor/speed", static_cast<float>(number++)));
    }
    close(desk);
    mainQueue.after(kSecond / 2, [&mainQueue] { mainQueue.stop(); });
  });
  mainQueue.run();
  sender.join();
  return number;
}

int run(double seconds) {
  WatchedHost host;
  host::setLogSink([](host::LogLevel level, std::string_view line) {
    if (level <= host::kLogWarning) {
      std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
    }
  });
  const OSCService service;
  VLClock clock;
  clock.setPlayRate(kClockRate);
  const auto desk = std::make_shared<Desk>(clock);
  desk->taken.reserve(static_cast<std::size_t>(seconds * 3 * kCommandRate));
  VLOSCServer& server = VLOSCServer::sharedServer();
  server.setDelegate(desk);
  for (const char* address : {kAllowed, kDesk}) {
    const auto entry = VLOSCHostFilterEntry::initWithAddress(address, {});
    entry->setEnabled(true);
    server.addHostFilterObject(entry);
  }
  if (const auto started = server.startUdPServerAtPort(kPort); !started) {
    std::fprintf(stderr, "%s\n", started.error().description().c_str());
    return 1;
  }
  const auto ticks = static_cast<std::size_t>(seconds * 110) + 200;
  TickErrors quiet(ticks);
  TickErrors flooded(ticks);
  clock.start();
  unsigned number = command(0, 1);
  host.watch(&quiet);
  number = command(number, seconds);
  host.watch(nullptr);

  int report[2];
  if (pipe(report) != 0) {
    return 1;
  }
  // Only system calls and what needs no lock of another thread happen over there.
  const pid_t child = fork();
  if (child == 0) {
    flood(seconds + 3, report[1]);
  }
  number = command(number, 2);  // the list fills, and everybody's buffers
  const std::uint64_t before = residentBytes();
  host.watch(&flooded);
  number = command(number, seconds);
  host.watch(nullptr);
  const std::uint64_t after = residentBytes();
  std::uint64_t sent = 0;
  const bool reported = read(report[0], &sent, sizeof sent) == static_cast<ssize_t>(sizeof sent);
  waitpid(child, nullptr, 0);
  clock.stop();
  server.stop();

  unsigned astray = desk->strange;
  unsigned expected = 0;
  for (const unsigned each : desk->taken) {
    astray += each < expected ? 1 : 0;
    expected = each + 1;
  }
  const std::size_t lost = number - desk->taken.size();
  std::printf("flood: %.0f datagrams/s, list of hosts: %zu\n",
              reported ? static_cast<double>(sent) / (seconds + 3) : 0.0,
              server.countOfHostFilter());
  std::printf("tick error, us   ticks  median     p99    most\n");
  for (auto* each : {&quiet, &flooded}) {
    std::printf("%-14s  %6zu  %6.1f  %6.1f  %6.1f\n", each == &quiet ? "quiet" : "under flood",
                each->count(), each->microseconds(0.5), each->microseconds(0.99),
                each->microseconds(1));
  }
  std::printf("ratio                   %6.2f  %6.2f\n",
              flooded.microseconds(0.5) / quiet.microseconds(0.5),
              flooded.microseconds(0.99) / quiet.microseconds(0.99));
  std::printf("memory: %+.0f KiB over the flood\n",
              (static_cast<double>(after) - static_cast<double>(before)) / 1024);
  std::printf("good commands: %u sent, %zu lost, %u twice, out of order or strange\n", number, lost,
              astray);
  host::setLogSink({});
  return astray == 0 && after < before + kMostGrowth ? 0 : 1;
}

}  // namespace
}  // namespace velor

int main(int argc, char** argv) {
  return velor::run(argc > 1 ? std::atof(argv[1]) : 60);
}
