// SPDX-License-Identifier: MIT
// What the program costs without a window: processor and memory at 30 frames a
// second with 8 JACK destinations, beside a bare JACK client with 8 ports,
// connected likewise, that does nothing; and the time from its start to its first tick without a
// server. Seconds to measure for: the first argument, 20 if there is none.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/JackPeer.h"
#include "tests/support/Servers.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kPorts = 8;
constexpr const char* kBare = "bare";  // the argument of the bare client

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// What all threads of a process have run so far, seconds. (Its count of ticks would
// miss or catch what runs in step with them.)
double processorTime(pid_t id) {
  double ns = 0;
  for (const auto& thread :
       std::filesystem::directory_iterator("/proc/" + std::to_string(id) + "/task")) {
    std::ifstream file(thread.path() / "schedstat");
    double ran = 0;
    file >> ran;
    ns += ran;
  }
  return ns / 1e9;
}

// A line of the process's status, kilobytes there, megabytes here.
double megabytes(pid_t id, const std::string& name) {
  std::ifstream file("/proc/" + std::to_string(id) + "/status");
  std::string line;
  while (std::getline(file, line)) {
    if (line.rfind(name + ":", 0) == 0) {
      return std::atof(line.c_str() + name.size() + 1) / 1024;
    }
  }
  return 0;
}

struct Cost {
  double percent;    // of one core
  double ownMemory;  // MB
  // The library pins the whole memory of its server in each client; that is the
  // server's, however many clients there are.
  double serverMemory;  // MB
};

Cost costOf(pid_t id, double seconds) {
  const auto start = Clock::now();
  const double before = processorTime(id);
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  return {(processorTime(id) - before) / secondsSince(start) * 100,
          megabytes(id, "RssAnon") + megabytes(id, "RssFile"), megabytes(id, "RssShmem")};
}

void print(const char* name, int period, const Cost& cost) {
  std::printf(
      "period %4d, %-11s %.2f %% of one core, %.1f MB of its own, %.1f MB of the server's\n",
      period, name, cost.percent, cost.ownMemory, cost.serverMemory);
}

void measureCost(int period, double seconds) {
  JackServer server(period);
  server.start();
  JackPeer desk("Desk");
  std::vector<std::string> arguments = {"--headless", "--format", "30", "--play"};
  for (int i = 0; i < kPorts; ++i) {
    desk.addInput("in" + std::to_string(i));
    arguments.insert(arguments.end(), {"--mtc-out", desk.fullName("in" + std::to_string(i))});
  }
  desk.activate();
  {
    const Process bare({"/proc/self/exe", kBare}, server.environment(), "/dev/null");
    // Connected as the program will be: waking its neighbours is what a client's
    // cycle costs above all.
    for (int i = 0; i < kPorts; ++i) {
      const std::string port = std::to_string(i);
      waitFor(5, [&] { return desk.connect("Bare:out" + port, desk.fullName("in" + port)); });
    }
    print("bare client", period, costOf(bare.id(), seconds));
  }
  VelorProcess velor(arguments, server.environment());
  waitFor(10, [&desk] { return desk.recordedCount() > 64; });
  const std::size_t before = desk.recordedCount();
  print("velor", period, costOf(velor.id(), seconds));
  std::printf("             which sent %.0f messages a second\n",
              static_cast<double>(desk.recordedCount() - before) / seconds);
  velor.end(SIGINT);
}

int runBare() {
  JackPeer bare("Bare", 1);
  for (int i = 0; i < kPorts; ++i) {
    bare.addOutput("out" + std::to_string(i));
  }
  bare.activate();
  pause();
  return 0;
}

void measureStart() {
  JackServer server;  // not started
  std::vector<double> times;
  for (int i = 0; i < 11; ++i) {
    const auto start = Clock::now();
    VelorOnTerminal velor(120, {"--headless", "--format", "30", "--play", "--start", "11:00:00:00"},
                          server.environment());
    velor.readUntil("11:00:00:01", 5);
    times.push_back(secondsSince(start) * 1000);
    velor.end(SIGINT);
  }
  std::sort(times.begin(), times.end());
  std::printf(
      "start to first tick, without a server: median %.0f ms, worst %.0f ms "
      "(33 ms of them are the tick's own)\n",
      times[times.size() / 2], times.back());
}

}  // namespace
}  // namespace velor::test

int main(int argc, char** argv) {
  if (argc > 1 && std::string(argv[1]) == velor::test::kBare) {
    return velor::test::runBare();
  }
  const double seconds = argc > 1 ? std::atof(argv[1]) : 20;
  velor::test::measureStart();
  velor::test::measureCost(1024, seconds);
  velor::test::measureCost(256, seconds);
  velor::test::measureCost(128, seconds);
  return 0;
}
