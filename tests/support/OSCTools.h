// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/Servers.h"
#include "tests/support/TemporaryFolder.h"

// liblo's tools, which know nothing of the program.
namespace velor::test {

/// A UDP socket at a port that was free.
class Datagrams {
 public:
  /// Of this host, by its IPv4 address.
  explicit Datagrams(const char* address);
  ~Datagrams();
  Datagrams(const Datagrams&) = delete;
  Datagrams& operator=(const Datagrams&) = delete;

  std::string port() const { return std::to_string(mPort); }
  /// To 127.0.0.1.
  void send(const std::string& port, const std::string& bytes) const;

 private:
  const int mSocket;
  std::uint16_t mPort = 0;
};

std::string freePort();

/// Sends a message of one float to 127.0.0.1.
void sendOSC(const std::string& port, const std::string& address, const std::string& value);

/// Listens at a port that was free.
class OSCDump {
 public:
  OSCDump();

  const std::string& port() const { return mPort; }
  /// What it has seen, a line a message, without its time tags.
  std::vector<std::string> seen() const;
  /// Waits until it has seen the line after the first `from` ones; its place from 1,
  /// or 0, and a failure, after 10 s.
  std::size_t waitForLine(const std::string& wanted, std::size_t from = 0) const;

 private:
  TemporaryFolder mFolder;
  const std::string mPort;
  Process mDump;
};

}  // namespace velor::test
