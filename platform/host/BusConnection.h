// SPDX-License-Identifier: MIT
#pragma once

#include <dbus/dbus.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "platform/host/Error.h"

namespace velor::host {

struct FreeMessage {
  void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using BusMessage = std::unique_ptr<DBusMessage, FreeMessage>;

/// A connection to a message bus of its own, with a limit on each wait: a bus that accepts
/// connections but does not answer would otherwise hold the caller for half a minute. One
/// thread at a time.
class BusConnection {
 public:
  /// For each answer.
  static constexpr std::chrono::milliseconds kMostWait{1000};

  /// The address of the system bus, of which there is always one. Reads the environment.
  static std::string systemBus();

  /// `address`: as in DBUS_SESSION_BUS_ADDRESS.
  static Expected<std::unique_ptr<BusConnection>> open(const std::string& address);
  ~BusConnection();
  BusConnection(const BusConnection&) = delete;
  BusConnection& operator=(const BusConnection&) = delete;

  /// A call of `method`, to which arguments can be added.
  static BusMessage makeCall(const char* service, const char* path, const char* interface,
                             const char* method);
  /// Waits for the answer.
  Expected<BusMessage> call(const BusMessage& message);
  /// Sends without an answer.
  void send(const BusMessage& message);

 private:
  // False when that takes longer than kMostWait.
  bool waitUntil(const std::function<bool()>& isDone);

  explicit BusConnection(DBusConnection* connection) : mConnection(connection) {}

  DBusConnection* const mConnection;
};

}  // namespace velor::host
