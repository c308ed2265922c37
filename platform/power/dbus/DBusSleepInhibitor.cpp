// SPDX-License-Identifier: MIT
#include "platform/power/dbus/DBusSleepInhibitor.h"

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "platform/host/BusConnection.h"
#include "platform/host/Log.h"
#include "platform/host/Queue.h"
#include "platform/power/dbus/Inhibition.h"

namespace velor::power {
namespace {

std::string environment(const char* name) {
  const char* const value = std::getenv(name);
  return value != nullptr ? value : "";
}

// Not by the library, which would start a bus where there is none.
std::string sessionBus() {
  if (std::string given = environment("DBUS_SESSION_BUS_ADDRESS"); !given.empty()) {
    return given;
  }
  const std::filesystem::path socket =
      std::filesystem::path(environment("XDG_RUNTIME_DIR")) / "bus";
  std::error_code ignored;
  return socket.is_absolute() && std::filesystem::exists(socket, ignored)
             ? "unix:path=" + socket.string()
             : "";
}

}  // namespace

DBusSleepInhibitor::Addresses DBusSleepInhibitor::Addresses::ofEnvironment() {
  return {sessionBus(), host::BusConnection::systemBus()};
}

class DBusSleepInhibitor::Bus {
 public:
  using Ask = Inhibition::Granted (*)(const std::string& address, const std::string& reason);

  Bus(const char* label, const char* what, std::string address, Ask ask)
      : mWhat(what), mAddress(std::move(address)), mAsk(ask), mQueue(label) {}
  ~Bus() { want({}); }
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  // Null releases.
  void want(std::optional<std::string> reason) {
    mQueue.async([this, reason = std::move(reason)]() mutable {
      mReason = std::move(reason);
      mHasTold = false;
      follow();
    });
  }

 private:
  void follow() {
    if (!mReason) {
      mGranted = nullptr;
      return;
    }
    if (mGranted == nullptr || !mGranted->isHeld()) {
      askAgain();
    }
    if (!std::exchange(mLookPending, true)) {
      mQueue.after(kRetryInterval, [this] {
        mLookPending = false;
        follow();
      });
    }
  }
  void askAgain() {
    mGranted = nullptr;
    auto granted = mAddress.empty() ? failure("no such bus") : mAsk(mAddress, *mReason);
    if (granted) {
      mGranted = *std::move(granted);
      return;
    }
    if (!std::exchange(mHasTold, true)) {
      VELOR_LOG_DEBUG("cannot inhibit the %s: %s", mWhat, granted.error().text.c_str());
    }
  }

  const char* const mWhat;
  const std::string mAddress;
  const Ask mAsk;
  // The queue's.
  std::optional<std::string> mReason;  // null: not wanted
  std::unique_ptr<Inhibition> mGranted;
  bool mHasTold = false;
  bool mLookPending = false;
  host::Queue mQueue;  // ends first
};

DBusSleepInhibitor::DBusSleepInhibitor(const Addresses& addresses)
    : mScreenSaver(std::make_unique<Bus>("velor.screensaver", "screen saver", addresses.session,
                                         &Inhibition::ofScreenSaver)),
      mSleep(std::make_unique<Bus>("velor.sleep", "sleep of the system", addresses.system,
                                   &Inhibition::ofSleep)) {}

DBusSleepInhibitor::~DBusSleepInhibitor() = default;

void DBusSleepInhibitor::inhibit(const std::string& reason) {
  mScreenSaver->want(reason);
  mSleep->want(reason);
}

void DBusSleepInhibitor::release() {
  mScreenSaver->want({});
  mSleep->want({});
}

}  // namespace velor::power
