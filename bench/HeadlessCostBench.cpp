// SPDX-License-Identifier: MIT
// What the program costs without a window: processor and memory at 30 frames a
// second with 8 JACK destinations, and the time from its start to its first tick
// without a server. Seconds to measure for: the first argument, 20 if there is
// none.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
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

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// User and system time of a process, seconds.
double processorTime(pid_t id) {
  std::ifstream file("/proc/" + std::to_string(id) + "/stat");
  std::string text((std::istreambuf_iterator<char>(file)), {});
  text.erase(0, text.rfind(')') + 2);  // the name may hold blanks
  unsigned long user = 0;
  unsigned long system = 0;
  std::sscanf(text.c_str(), "%*c %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &user, &system);
  return static_cast<double>(user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
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

void measureCost(int period, double seconds) {
  JackServer server(period);
  server.enter();
  server.start();
  JackPeer desk("Desk");
  std::vector<std::string> arguments = {"--headless", "--format", "30", "--play"};
  for (int i = 0; i < 8; ++i) {
    desk.addInput("in" + std::to_string(i));
    arguments.insert(arguments.end(), {"--mtc-out", desk.fullName("in" + std::to_string(i))});
  }
  desk.activate();
  VelorProcess velor(arguments, server.environment());
  waitFor(10, [&desk] { return desk.recordedCount() > 64; });
  const auto start = Clock::now();
  const double before = processorTime(velor.id());
  const std::size_t eventsBefore = desk.recordedCount();
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
  const double used = processorTime(velor.id()) - before;
  // The library pins the whole memory of its server in each client; that is the
  // server's, however many there are.
  std::printf(
      "period %4d: %.2f %% of one core, %.1f MB resident of its own (and %.1f MB of the "
      "server's), %.0f messages a second\n",
      period, used / secondsSince(start) * 100,
      megabytes(velor.id(), "RssAnon") + megabytes(velor.id(), "RssFile"),
      megabytes(velor.id(), "RssShmem"),
      static_cast<double>(desk.recordedCount() - eventsBefore) / secondsSince(start));
  velor.end(SIGINT);
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
  const double seconds = argc > 1 ? std::atof(argv[1]) : 20;
  velor::test::measureStart();
  velor::test::measureCost(1024, seconds);
  velor::test::measureCost(256, seconds);
  velor::test::measureCost(128, seconds);
  return 0;
}
