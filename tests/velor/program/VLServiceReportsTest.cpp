// SPDX-License-Identifier: MIT
#include "Velor/program/VLServiceReports.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "tests/velor/clock/ClockFixture.h"

namespace velor {
namespace {

constexpr std::uint64_t kSecond = 1000 * kMs;

/// The side of the service manager: an abstract socket, and a watchdog of 10 s.
class VLServiceReportsTest : public ClockFixture {
 protected:
  VLServiceReportsTest() {
    const std::string name = "velor-test-" + std::to_string(getpid());
    sockaddr_un address{AF_UNIX, {}};
    name.copy(&address.sun_path[1], name.size());
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    EXPECT_EQ(0, bind(mSocket, reinterpret_cast<const sockaddr*>(&address), size));
    setenv("NOTIFY_SOCKET", ("@" + name).c_str(), 1);
    setenv("WATCHDOG_USEC", "10000000", 1);
  }
  ~VLServiceReportsTest() override {
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
    close(mSocket);
  }

  std::vector<std::string> take() const {
    std::vector<std::string> reports;
    std::array<char, 256> bytes{};
    ssize_t size = 0;
    while ((size = recv(mSocket, bytes.data(), bytes.size(), MSG_DONTWAIT)) >= 0) {
      reports.emplace_back(bytes.data(), static_cast<std::size_t>(size));
    }
    return reports;
  }

  const int mSocket = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

const Reports kTwiceAlive(2, "WATCHDOG=1");

TEST_F(VLServiceReportsTest, ARunIsReadyThenAliveTwiceInTheIntervalThenStopping) {
  std::optional<VLServiceReports> reports(clock());
  EXPECT_EQ(Reports{"READY=1"}, take());
  mHost.advance(9 * kSecond);
  EXPECT_EQ(kTwiceAlive, take());
  reports.reset();
  mHost.advance(20 * kSecond);
  EXPECT_EQ(Reports{"STOPPING=1"}, take());
}

TEST_F(VLServiceReportsTest, AClockWhoseQueueHangsIsNotReportedAliveUntilItAnswers) {
  addDestination("Desk");
  const VLServiceReports reports(clock());
  clock().start();
  mHost.advance(9 * kSecond);
  take();
  const auto answer = mHost.makeSemaphore();
  mOutside->sending = [&answer] { answer->wait(); };
  mHost.advance(30 * kSecond);
  EXPECT_EQ(Reports{}, take());
  mOutside->sending = [] {};
  answer->signal();
  mHost.advance(9 * kSecond);
  EXPECT_EQ(kTwiceAlive, take());
  clock().stop();
}

}  // namespace
}  // namespace velor
