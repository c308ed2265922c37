// SPDX-License-Identifier: MIT
#include "platform/power/dbus/Inhibition.h"

#include <poll.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <utility>

#include "platform/host/BusConnection.h"

namespace velor::power {
namespace {

using host::BusConnection;
using host::BusMessage;

constexpr const char* kApplication = "velor";
constexpr const char* kScreenSaver = "org.freedesktop.ScreenSaver";

BusMessage screenSaverCall(const char* method) {
  return BusConnection::makeCall(kScreenSaver, "/org/freedesktop/ScreenSaver", kScreenSaver,
                                 method);
}

// The unique name of the present screen saver; empty without one.
std::string ownerOfScreenSaver(BusConnection& connection) {
  const BusMessage call = BusConnection::makeCall(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS,
                                                  DBUS_INTERFACE_DBUS, "GetNameOwner");
  dbus_message_append_args(call.get(), DBUS_TYPE_STRING, &kScreenSaver, DBUS_TYPE_INVALID);
  const auto answer = connection.call(call);
  const char* owner = nullptr;
  return answer && dbus_message_get_args(answer->get(), nullptr, DBUS_TYPE_STRING, &owner,
                                         DBUS_TYPE_INVALID) != FALSE
             ? owner
             : "";
}

// Lasts as long as its connection; the call at its end is for services that look only for it.
class ScreenSaverInhibition final : public Inhibition {
 public:
  ScreenSaverInhibition(std::unique_ptr<BusConnection> connection, std::string owner,
                        dbus_uint32_t cookie)
      : mConnection(std::move(connection)), mOwner(std::move(owner)), mCookie(cookie) {}
  ~ScreenSaverInhibition() override {
    if (mHasEnded) {
      return;  // the next service may have given the cookie to another program
    }
    const BusMessage call = screenSaverCall("UnInhibit");
    dbus_message_append_args(call.get(), DBUS_TYPE_UINT32, &mCookie, DBUS_TYPE_INVALID);
    mConnection->send(call);
  }
  bool isHeld() override {
    mHasEnded = mHasEnded || ownerOfScreenSaver(*mConnection) != mOwner;
    return !mHasEnded;
  }

 private:
  const std::unique_ptr<BusConnection> mConnection;
  const std::string mOwner;
  const dbus_uint32_t mCookie;
  bool mHasEnded = false;
};

// Lasts until its descriptor is closed.
class SleepInhibition final : public Inhibition {
 public:
  explicit SleepInhibition(int descriptor) : mDescriptor(descriptor) {}
  ~SleepInhibition() override { close(mDescriptor); }
  // The service holds the other end.
  bool isHeld() override {
    pollfd end{mDescriptor, 0, 0};
    return ::poll(&end, 1, 0) == 0;
  }

 private:
  const int mDescriptor;
};

tl::unexpected<Error> unexpectedAnswer() {
  return failure("an answer of another form");
}

}  // namespace

Inhibition::Granted Inhibition::ofScreenSaver(const std::string& address,
                                              const std::string& reason) {
  auto connection = BusConnection::open(address);
  if (!connection) {
    return tl::unexpected(connection.error());
  }
  const BusMessage call = screenSaverCall("Inhibit");
  const char* const text = reason.c_str();
  dbus_message_append_args(call.get(), DBUS_TYPE_STRING, &kApplication, DBUS_TYPE_STRING, &text,
                           DBUS_TYPE_INVALID);
  const auto answer = (*connection)->call(call);
  if (!answer) {
    return tl::unexpected(answer.error());
  }
  dbus_uint32_t cookie = 0;
  if (dbus_message_get_args(answer->get(), nullptr, DBUS_TYPE_UINT32, &cookie, DBUS_TYPE_INVALID) ==
      FALSE) {
    return unexpectedAnswer();
  }
  return std::make_unique<ScreenSaverInhibition>(*std::move(connection),
                                                 dbus_message_get_sender(answer->get()), cookie);
}

Inhibition::Granted Inhibition::ofSleep(const std::string& address, const std::string& reason) {
  const auto connection = BusConnection::open(address);
  if (!connection) {
    return tl::unexpected(connection.error());
  }
  const BusMessage call =
      BusConnection::makeCall("org.freedesktop.login1", "/org/freedesktop/login1",
                              "org.freedesktop.login1.Manager", "Inhibit");
  const char* const what = "idle:sleep";
  const char* const text = reason.c_str();
  const char* const mode = "block";
  dbus_message_append_args(call.get(), DBUS_TYPE_STRING, &what, DBUS_TYPE_STRING, &kApplication,
                           DBUS_TYPE_STRING, &text, DBUS_TYPE_STRING, &mode, DBUS_TYPE_INVALID);
  const auto answer = (*connection)->call(call);
  if (!answer) {
    return tl::unexpected(answer.error());
  }
  int descriptor = -1;
  if (dbus_message_get_args(answer->get(), nullptr, DBUS_TYPE_UNIX_FD, &descriptor,
                            DBUS_TYPE_INVALID) == FALSE) {
    return unexpectedAnswer();
  }
  return std::make_unique<SleepInhibition>(descriptor);
}

}  // namespace velor::power
