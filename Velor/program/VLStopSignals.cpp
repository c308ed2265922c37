// SPDX-License-Identifier: MIT
#include "Velor/program/VLStopSignals.h"

#include <atomic>
#include <csignal>
#include <cstdint>
#include <ctime>
#include <initializer_list>

namespace velor {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;  // ns

// Lock-free, as a handler needs it.
std::atomic<void (*)(int)> gHandler{nullptr};
std::atomic<std::int64_t> gFirst{0};  // ns, when the first one came

void onSignal(int number) {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  const std::int64_t now = t.tv_sec * kSecond + t.tv_nsec;
  std::int64_t first = 0;
  if (gFirst.compare_exchange_strong(first, now)) {
    gHandler.load()(number);
  } else if (now - first > kSecond) {
    std::signal(number, SIG_DFL);
    std::raise(number);  // comes when this returns
  }
}

}  // namespace

void VLStopSignalsInstall(void (*handler)(int number)) {
  gHandler.store(handler);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction action {};
    if (number == SIGHUP && sigaction(number, nullptr, &action) == 0 &&
        action.sa_handler == SIG_IGN) {
      continue;
    }
    action.sa_handler = &onSignal;
    action.sa_flags = SA_RESTART;
    sigaction(number, &action, nullptr);
  }
}

}  // namespace velor
