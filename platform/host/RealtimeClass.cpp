// SPDX-License-Identifier: MIT
#include "platform/host/RealtimeClass.h"

#include <dbus/dbus.h>
#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>

#include "platform/host/BusConnection.h"

namespace velor::host {
namespace {

// rtkit grants at most 20. Audio servers and their clients have higher priorities or
// these. Only the order of ours matters: the timer thread only posts, so it may
// interrupt the others.
constexpr int kTimerPriority = 18;
constexpr int kMidiReadPriority = 17;
constexpr int kTimingPriority = 16;
// Cycles take long compared with the others, and have a period's time.
constexpr int kAudioPriority = 15;
constexpr int kRtkitNiceLevel = -15;
// rtkit asks for a limit on uninterrupted real-time work; it allows at most 200 ms.
constexpr rlim_t kRealtimeLimitUs = 200000;

int priorityOf(ThreadRole role) noexcept {
  switch (role) {
    case ThreadRole::timer:
      return kTimerPriority;
    case ThreadRole::midiRead:
      return kMidiReadPriority;
    case ThreadRole::audio:
      return kAudioPriority;
    case ThreadRole::timing:
    case ThreadRole::ordinary:
      break;
  }
  return kTimingPriority;
}

bool tryFifo(int priority) noexcept {
  sched_param parameters{};
  parameters.sched_priority = priority;
  return pthread_setschedparam(pthread_self(), SCHED_FIFO | SCHED_RESET_ON_FORK, &parameters) == 0;
}

// One call to rtkit for the calling thread: `method` with the thread's id and
// `argument`, of the D-Bus type `argumentType`. A bus that did not answer is not asked again:
// each thread would start late.
bool callRtkit(const char* method, int argumentType, const void* argument) noexcept {
  static std::atomic<bool> sIsMute{false};
  if (sIsMute) {
    return false;
  }
  const auto begun = std::chrono::steady_clock::now();
  const auto bus = BusConnection::open(BusConnection::systemBus());
  bool granted = false;
  if (bus) {
    const BusMessage call =
        BusConnection::makeCall("org.freedesktop.RealtimeKit1", "/org/freedesktop/RealtimeKit1",
                                "org.freedesktop.RealtimeKit1", method);
    const auto thread = static_cast<dbus_uint64_t>(gettid());
    granted = dbus_message_append_args(call.get(), DBUS_TYPE_UINT64, &thread, argumentType,
                                       argument, DBUS_TYPE_INVALID) != FALSE &&
              (*bus)->call(call).has_value();
  }
  if (!granted && std::chrono::steady_clock::now() - begun >= BusConnection::kMostWait) {
    sIsMute = true;
  }
  return granted;
}

bool tryRtkitRealtime(int priority) noexcept {
  rlimit limit{};
  if (getrlimit(RLIMIT_RTTIME, &limit) != 0) {
    return false;
  }
  limit.rlim_cur = std::min(limit.rlim_cur, kRealtimeLimitUs);
  limit.rlim_max = std::min(limit.rlim_max, kRealtimeLimitUs);
  if (setrlimit(RLIMIT_RTTIME, &limit) != 0) {
    return false;
  }
  const auto value = static_cast<dbus_uint32_t>(priority);
  return callRtkit("MakeThreadRealtime", DBUS_TYPE_UINT32, &value);
}

bool tryRtkitNice() noexcept {
  const dbus_int32_t value = kRtkitNiceLevel;
  return callRtkit("MakeThreadHighPriority", DBUS_TYPE_INT32, &value);
}

void setFinestTimerSlack() noexcept {
  prctl(PR_SET_TIMERSLACK, 1UL);
}

}  // namespace

const RealtimeAttempts kSystemRealtimeAttempts = {tryFifo, tryRtkitRealtime, tryRtkitNice,
                                                  setFinestTimerSlack};

RealtimeGrant takeRealtimeClass(ThreadRole role, const RealtimeAttempts& attempts) noexcept {
  const int priority = priorityOf(role);
  if (attempts.fifo(priority)) {
    return RealtimeGrant::fifo;
  }
  if (attempts.rtkitRealtime(priority)) {
    return RealtimeGrant::rtkitRealtime;
  }
  attempts.finestTimerSlack();
  return attempts.rtkitNice() ? RealtimeGrant::rtkitNice : RealtimeGrant::ordinary;
}

std::string realtimeWarning(RealtimeGrant grant) {
  static constexpr const char* kRemedy =
      "; timing may jitter under load (remedy: put this user into the group audio or pipewire and "
      "log in again)";
  switch (grant) {
    case RealtimeGrant::fifo:
      break;
    case RealtimeGrant::rtkitRealtime:
      return std::string("SCHED_FIFO was refused, rtkit granted real-time scheduling") + kRemedy;
    case RealtimeGrant::rtkitNice:
      return std::string("real-time scheduling was refused, rtkit granted a high priority") +
             kRemedy;
    case RealtimeGrant::ordinary:
      return std::string("real-time scheduling was refused, threads stay ordinary ones") + kRemedy;
  }
  return {};
}

}  // namespace velor::host
