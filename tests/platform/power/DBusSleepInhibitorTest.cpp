// SPDX-License-Identifier: MIT
#include "platform/power/dbus/DBusSleepInhibitor.h"

#include <dbus/dbus.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/host/BusConnection.h"
#include "platform/host/RealtimeClass.h"
#include "platform/host/SystemHost.h"
#include "sim/SimulatedHost.h"
#include "tests/support/LogRecord.h"
#include "tests/support/Servers.h"
#include "tests/support/TemporaryFolder.h"

namespace velor::power {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

/// The screen saver and the login service, both on one bus.
class Desktop {
 public:
  explicit Desktop(const std::string& address) {
    // The bus may have just been started.
    EXPECT_TRUE(test::waitFor(5, [&] {
      mConnection = dbus_connection_open_private(address.c_str(), nullptr);
      return mConnection != nullptr;
    }));
    dbus_bus_register(mConnection, nullptr);
    for (const char* name : {"org.freedesktop.ScreenSaver", "org.freedesktop.login1"}) {
      dbus_bus_request_name(mConnection, name, DBUS_NAME_FLAG_DO_NOT_QUEUE, nullptr);
    }
    mThread = std::thread([this] {
      while (!mEnding) {
        serve();
      }
    });
  }
  ~Desktop() {
    mEnding = true;
    mThread.join();
    dbus_connection_close(mConnection);
    dbus_connection_unref(mConnection);
    for (const int each : mHeld) {
      close(each);
    }
  }

  std::vector<std::string> calls() {
    const std::lock_guard lock(mMutex);
    return mCalls;
  }
  /// Whether a lock of the login service that was granted is still held.
  bool holdsSleep() {
    const std::lock_guard lock(mMutex);
    pollfd end{mHeld.empty() ? -1 : mHeld.back(), POLLIN, 0};
    return !mHeld.empty() && ::poll(&end, 1, 0) == 0;
  }

 private:
  void serve() {
    dbus_connection_read_write(mConnection, 10);
    while (DBusMessage* message = dbus_connection_pop_message(mConnection)) {
      if (dbus_message_get_type(message) == DBUS_MESSAGE_TYPE_METHOD_CALL) {
        answer(message);
      }
      dbus_message_unref(message);
    }
  }
  void answer(DBusMessage* message) {
    const std::string member = dbus_message_get_member(message);
    std::string text = std::string(dbus_message_get_path(message)) + " " +
                       dbus_message_get_interface(message) + "." + member;
    DBusMessageIter argument;
    for (bool more = dbus_message_iter_init(message, &argument) != FALSE; more;
         more = dbus_message_iter_next(&argument) != FALSE) {
      DBusBasicValue value{};
      dbus_message_iter_get_basic(&argument, &value);
      text += " " + (dbus_message_iter_get_arg_type(&argument) == DBUS_TYPE_STRING
                         ? std::string(value.str)
                         : std::to_string(value.u32));
    }
    DBusMessage* reply = dbus_message_new_method_return(message);
    const std::lock_guard lock(mMutex);
    mCalls.push_back(text);
    if (dbus_message_has_interface(message, "org.freedesktop.login1.Manager") != FALSE) {
      std::array<int, 2> ends{};
      EXPECT_EQ(::pipe(ends.data()), 0);
      dbus_message_append_args(reply, DBUS_TYPE_UNIX_FD, &ends[1], DBUS_TYPE_INVALID);
      close(ends[1]);
      mHeld.push_back(ends[0]);
    } else if (member == "Inhibit") {
      const dbus_uint32_t cookie = 4711;
      dbus_message_append_args(reply, DBUS_TYPE_UINT32, &cookie, DBUS_TYPE_INVALID);
    }
    if (dbus_message_get_no_reply(message) == FALSE) {
      dbus_connection_send(mConnection, reply, nullptr);
      dbus_connection_flush(mConnection);
    }
    dbus_message_unref(reply);
  }

  DBusConnection* mConnection = nullptr;
  std::atomic<bool> mEnding{false};
  std::mutex mMutex;
  std::vector<std::string> mCalls;  // under mMutex
  std::vector<int> mHeld;           // under mMutex; ends of pipes whose others were granted
  std::thread mThread;
};

class BusFixture : public testing::Test {
 protected:
  std::string path(const char* name) const { return (mFolder.path() / name).string(); }
  std::string address() const { return "unix:path=" + path("bus"); }
  void startBus() { mBus = test::startBus(path("bus"), path("bus.log")); }
  static bool soon(const std::function<bool()>& condition) { return test::waitFor(1, condition); }

  static constexpr const char* kScreenSaverCall =
      "/org/freedesktop/ScreenSaver org.freedesktop.ScreenSaver.Inhibit velor Show";
  static constexpr const char* kSleepCall =
      "/org/freedesktop/login1 org.freedesktop.login1.Manager.Inhibit idle:sleep velor Show block";
  static constexpr const char* kReleaseCall =
      "/org/freedesktop/ScreenSaver org.freedesktop.ScreenSaver.UnInhibit 4711";

  test::TemporaryFolder mFolder;
  test::Process mBus;
  const LogRecord mLog;
};

// Time is simulated, so that a retry takes none; the bus is real.
class DBusSleepInhibitorTest : public BusFixture {
 protected:
  host::SimulatedHost mHost;
};

// Waits are real.
class DBusSleepInhibitorWaits : public BusFixture {
 protected:
  DBusSleepInhibitorWaits() {
    sockaddr_un name{};
    name.sun_family = AF_UNIX;
    path("mute").copy(name.sun_path, sizeof name.sun_path - 1);
    EXPECT_EQ(::bind(mMute, reinterpret_cast<sockaddr*>(&name), sizeof name), 0);
    EXPECT_EQ(::listen(mMute, 8), 0);
  }
  ~DBusSleepInhibitorWaits() override { close(mMute); }
  /// Accepts connections, and no more.
  std::string mute() const { return "unix:path=" + path("mute"); }

  host::SystemHost mHost;

 private:
  const int mMute = ::socket(AF_UNIX, SOCK_STREAM, 0);
};

TEST_F(DBusSleepInhibitorTest, BothServicesAreAskedOnceAndReleasedWithinASecond) {
  startBus();
  Desktop desktop(address());
  DBusSleepInhibitor inhibitor({address(), address()});
  for (std::size_t run = 1; run <= 2; ++run) {
    inhibitor.inhibit("Show");
    inhibitor.inhibit("Show");
    mHost.settle();
    EXPECT_EQ(desktop.calls().size(), 3 * run - 1);
    EXPECT_TRUE(desktop.holdsSleep());
    inhibitor.release();
    mHost.settle();
    EXPECT_TRUE(soon([&] { return desktop.calls().size() == 3 * run; }));
    EXPECT_TRUE(soon([&] { return !desktop.holdsSleep(); }));
  }
  auto first = desktop.calls();
  first.resize(3);
  EXPECT_THAT(first, UnorderedElementsAre(kScreenSaverCall, kSleepCall, kReleaseCall));
  EXPECT_EQ(first.back(), kReleaseCall);
}

TEST_F(DBusSleepInhibitorTest, AServiceThatIsStartedAgainIsAskedAgain) {
  startBus();
  DBusSleepInhibitor inhibitor({address(), address()});
  std::optional<Desktop> desktop(address());
  inhibitor.inhibit("Show");
  mHost.settle();
  mHost.advance(3 * DBusSleepInhibitor::kRetryInterval);
  EXPECT_EQ(desktop->calls().size(), 2U) << "it holds";
  desktop.reset();
  mHost.advance(DBusSleepInhibitor::kRetryInterval);  // nobody to ask
  desktop.emplace(address());
  mHost.advance(DBusSleepInhibitor::kRetryInterval);
  EXPECT_THAT(desktop->calls(), UnorderedElementsAre(kScreenSaverCall, kSleepCall));
  EXPECT_TRUE(desktop->holdsSleep());
}

TEST_F(DBusSleepInhibitorTest, AMissingBusOrServiceIsAskedAgainWithoutALineOfTheLog) {
  DBusSleepInhibitor inhibitor({address(), ""});
  inhibitor.inhibit("Show");
  mHost.settle();
  startBus();
  mHost.advance(DBusSleepInhibitor::kRetryInterval);  // a bus, but no service
  Desktop desktop(address());
  EXPECT_THAT(desktop.calls(), IsEmpty());
  mHost.advance(DBusSleepInhibitor::kRetryInterval);
  EXPECT_THAT(desktop.calls(), ElementsAre(kScreenSaverCall));
  inhibitor.release();
  mHost.advance(DBusSleepInhibitor::kRetryInterval);
  EXPECT_TRUE(soon([&] { return desktop.calls().size() == 2; }));
  mHost.advance(10 * DBusSleepInhibitor::kRetryInterval);
  EXPECT_EQ(desktop.calls().size(), 2U);
  EXPECT_THAT(mLog.matching(""), IsEmpty());
}

TEST_F(DBusSleepInhibitorWaits, ABusThatNeverAnswersHoldsNeitherTheCallerNorTheOtherBusNorTheEnd) {
  startBus();
  const auto begun = std::chrono::steady_clock::now();
  const auto elapsed = [&] { return std::chrono::steady_clock::now() - begun; };
  {
    Desktop desktop(address());
    DBusSleepInhibitor inhibitor({mute(), address()});
    inhibitor.inhibit("Show");
    inhibitor.release();
    inhibitor.inhibit("Show");
    EXPECT_LT(elapsed(), std::chrono::milliseconds(100));
    EXPECT_TRUE(soon([&] { return desktop.calls().size() == 2 && desktop.holdsSleep(); }));
    EXPECT_LT(elapsed(), host::BusConnection::kMostWait);
  }
  EXPECT_LT(elapsed(), std::chrono::seconds(10));
}

TEST_F(DBusSleepInhibitorWaits, AThreadAsksABusThatNeverAnswersForItsClassOnce) {
  const char* const former = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  const std::string kept = former != nullptr ? former : "";
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", mute().c_str(), 1);
  const auto begun = std::chrono::steady_clock::now();
  for (int thread = 0; thread < 20; ++thread) {
    EXPECT_FALSE(host::kSystemRealtimeAttempts.rtkitNice());
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begun, 3 * host::BusConnection::kMostWait);
  former != nullptr ? ::setenv("DBUS_SYSTEM_BUS_ADDRESS", kept.c_str(), 1)
                    : ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

}  // namespace
}  // namespace velor::power
