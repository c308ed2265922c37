// SPDX-License-Identifier: MIT
#include "platform/host/BusConnection.h"

#include <cstdlib>
#include <new>

namespace velor::host {
namespace {

struct FreePendingCall {
  void operator()(DBusPendingCall* pending) const { dbus_pending_call_unref(pending); }
};

class BusError {
 public:
  BusError() { dbus_error_init(&mError); }
  ~BusError() { dbus_error_free(&mError); }
  BusError(const BusError&) = delete;
  BusError& operator=(const BusError&) = delete;

  DBusError* operator&() { return &mError; }
  auto failure() const {
    return velor::failure(mError.message != nullptr ? mError.message : "no answer");
  }

 private:
  DBusError mError;
};

}  // namespace

Expected<std::unique_ptr<BusConnection>> BusConnection::open(const std::string& address) {
  BusError error;
  DBusConnection* const opened = dbus_connection_open_private(address.c_str(), &error);
  if (opened == nullptr) {
    return error.failure();
  }
  std::unique_ptr<BusConnection> connection(new BusConnection(opened));
  // What dbus_bus_register does, but with a limit.
  const auto answer =
      connection->call(makeCall(DBUS_SERVICE_DBUS, DBUS_PATH_DBUS, DBUS_INTERFACE_DBUS, "Hello"));
  if (!answer) {
    return tl::unexpected(answer.error());
  }
  const char* name = nullptr;
  if (dbus_message_get_args(answer->get(), &error, DBUS_TYPE_STRING, &name, DBUS_TYPE_INVALID) ==
      FALSE) {
    return error.failure();
  }
  dbus_bus_set_unique_name(opened, name);
  return connection;
}

std::string BusConnection::systemBus() {
  const char* const given = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  return given != nullptr && *given != 0 ? given : "unix:path=/run/dbus/system_bus_socket";
}

BusConnection::~BusConnection() {
  dbus_connection_close(mConnection);
  dbus_connection_unref(mConnection);
}

BusMessage BusConnection::makeCall(const char* service, const char* path, const char* interface,
                                   const char* method) {
  BusMessage message(dbus_message_new_method_call(service, path, interface, method));
  if (message == nullptr) {
    throw std::bad_alloc();
  }
  return message;
}

// The library's own blocking call has no limit until the bus has let the caller in.
bool BusConnection::waitUntil(const std::function<bool()>& isDone) {
  const auto end = std::chrono::steady_clock::now() + kMostWait;
  while (!isDone()) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    if (left.count() <= 0 ||
        dbus_connection_read_write_dispatch(mConnection, static_cast<int>(left.count())) == FALSE) {
      return isDone();
    }
  }
  return true;
}

Expected<BusMessage> BusConnection::call(const BusMessage& message) {
  DBusPendingCall* pending = nullptr;
  if (dbus_connection_send_with_reply(mConnection, message.get(), &pending,
                                      DBUS_TIMEOUT_INFINITE) == FALSE ||
      pending == nullptr) {
    return velor::failure("the bus has closed the connection");
  }
  const std::unique_ptr<DBusPendingCall, FreePendingCall> owned(pending);
  if (!waitUntil([pending] { return dbus_pending_call_get_completed(pending) != FALSE; })) {
    dbus_pending_call_cancel(pending);
    return velor::failure("no answer");
  }
  BusMessage answer(dbus_pending_call_steal_reply(pending));
  BusError error;
  if (dbus_set_error_from_message(&error, answer.get()) != FALSE) {
    return error.failure();
  }
  return answer;
}

void BusConnection::send(const BusMessage& message) {
  dbus_message_set_no_reply(message.get(), TRUE);
  if (dbus_connection_send(mConnection, message.get(), nullptr) != FALSE) {
    waitUntil([this] { return dbus_connection_has_messages_to_send(mConnection) == FALSE; });
  }
}

}  // namespace velor::host
