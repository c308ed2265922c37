// SPDX-License-Identifier: MIT
#include "tests/support/OSCTools.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>

namespace velor::test {
namespace {

sockaddr_in addressOf(const char* address, std::uint16_t port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = htons(port);
  inet_pton(AF_INET, address, &result.sin_addr);
  return result;
}

}  // namespace

Datagrams::Datagrams(const char* address) : mSocket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in own = addressOf(address, 0);
  socklen_t size = sizeof own;
  EXPECT_EQ(bind(mSocket, reinterpret_cast<sockaddr*>(&own), size), 0);
  EXPECT_EQ(getsockname(mSocket, reinterpret_cast<sockaddr*>(&own), &size), 0);
  mPort = ntohs(own.sin_port);
}

Datagrams::~Datagrams() {
  close(mSocket);
}

void Datagrams::send(const std::string& port, const std::string& bytes) const {
  const sockaddr_in to = addressOf("127.0.0.1", static_cast<std::uint16_t>(std::stoi(port)));
  EXPECT_EQ(sendto(mSocket, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                   sizeof to),
            static_cast<ssize_t>(bytes.size()));
}

std::string freePort() {
  return Datagrams("0.0.0.0").port();
}

void sendOSC(const std::string& port, const std::string& address, const std::string& value) {
  Process send({"/usr/bin/oscsend", "osc.udp://127.0.0.1:" + port, address, "f", value}, {},
               "/dev/null");
  EXPECT_EQ(send.waitForEnd(10), 0);
}

OSCDump::OSCDump()
    : mPort(freePort()),
      mDump({"/usr/bin/oscdump", "-L", mPort}, {}, (mFolder.path() / "dump").string()) {}

std::vector<std::string> OSCDump::seen() const {
  std::vector<std::string> lines;
  std::ifstream file(mFolder.path() / "dump");
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line.substr(line.find(' ') + 1));
  }
  return lines;
}

std::size_t OSCDump::waitForLine(const std::string& wanted, std::size_t from) const {
  std::size_t found = 0;
  waitFor(10, [&] {
    const auto lines = seen();
    for (std::size_t i = from; i < lines.size() && found == 0; ++i) {
      found = lines[i] == wanted ? i + 1 : 0;
    }
    return found != 0;
  });
  EXPECT_NE(found, 0U) << wanted;
  return found;
}

}  // namespace velor::test
