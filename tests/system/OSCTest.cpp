// SPDX-License-Identifier: MIT
// The program between oscsend and oscdump, which know nothing of it.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/Servers.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

// A UDP socket at a port that was free.
class Datagrams {
 public:
  explicit Datagrams(const char* address) : mSocket(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in own = addressOf(address, 0);
    socklen_t size = sizeof own;
    EXPECT_EQ(bind(mSocket, reinterpret_cast<sockaddr*>(&own), size), 0);
    EXPECT_EQ(getsockname(mSocket, reinterpret_cast<sockaddr*>(&own), &size), 0);
    mPort = ntohs(own.sin_port);
  }
  ~Datagrams() { close(mSocket); }
  Datagrams(const Datagrams&) = delete;
  Datagrams& operator=(const Datagrams&) = delete;

  std::string port() const { return std::to_string(mPort); }

  void send(const std::string& port, const std::string& bytes) const {
    const sockaddr_in to = addressOf("127.0.0.1", static_cast<std::uint16_t>(std::stoi(port)));
    EXPECT_EQ(sendto(mSocket, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                     sizeof to),
              static_cast<ssize_t>(bytes.size()));
  }

 private:
  static sockaddr_in addressOf(const char* address, std::uint16_t port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    inet_pton(AF_INET, address, &result.sin_addr);
    return result;
  }

  const int mSocket;
  std::uint16_t mPort = 0;
};

std::string freePort() {
  return Datagrams("0.0.0.0").port();
}

class OSC : public testing::Test {
 protected:
  OSC()
      : mServer(),
        mPort(freePort()),
        mTarget(freePort()),
        mDump({"/usr/bin/oscdump", "-L", mTarget}, {}, dumpFile()) {}

  std::string dumpFile() const { return (mFolder.path() / "dump").string(); }

  void command(const std::string& address, const std::string& value) {
    Process send({"/usr/bin/oscsend", "osc.udp://127.0.0.1:" + mPort, address, "f", value}, {},
                 "/dev/null");
    EXPECT_EQ(send.waitForEnd(10), 0);
  }
  // What oscdump has seen, a line a message, without its time tags.
  std::vector<std::string> seen() const {
    std::vector<std::string> lines;
    std::ifstream file(dumpFile());
    for (std::string line; std::getline(file, line);) {
      lines.push_back(line.substr(line.find(' ') + 1));
    }
    return lines;
  }
  // Waits until oscdump has seen the line after the first `from` ones; its place, or 0.
  std::size_t waitForLine(const std::string& wanted, std::size_t from = 0) {
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
  std::vector<std::string> arguments() const {
    return {"--headless",   "--osc-port",          mPort, "--osc-allow", "127.0.0.1",
            "--osc-target", "127.0.0.1:" + mTarget};
  }

  const JackServer mServer;  // not started
  TemporaryFolder mFolder;
  const std::string mPort;
  const std::string mTarget;
  Process mDump;
};

TEST_F(OSC, PlayStopArmAndSpeedActAndAreToldWithTheTimeAtHalfTheFrameRate) {
  VelorProcess velor(arguments(), mServer.environment());
  std::size_t place = waitForLine("/velor/transport/stop f 1.000000");
  command("/velor/transport/play", "1");
  place = waitForLine("/velor/transport/play f 1.000000", place);
  const std::size_t first = waitForLine("/velor/time s \"00:00:00:02\"", place);
  const std::size_t last = waitForLine("/velor/time s \"00:00:02:00\"", first);
  // 25 frames a second, of which each second one is told; a main queue that is late
  // may leave one out.
  const auto lines = seen();
  int before = 0;
  for (std::size_t i = first; i <= last; ++i) {
    int seconds = 0;
    int frames = 0;
    ASSERT_EQ(std::sscanf(lines[i - 1].c_str(), "/velor/time s \"00:00:%d:%d\"", &seconds, &frames),
              2)
        << lines[i - 1];
    const int frame = seconds * 25 + frames;
    ASSERT_EQ(frame % 2, 0);
    ASSERT_GT(frame, before);
    before = frame;
  }
  EXPECT_GT(last - first, 20U);  // of 24
  command("/velor/speed", "1.5");
  place = waitForLine("/velor/speed f 1.500000", last);
  command("/velor/speed", "7");
  place = waitForLine("/velor/speed f 2.000000", place);
  command("/velor/transport/stop", "1");
  place = waitForLine("/velor/transport/stop f 1.000000", place);
  command("/velor/transport/stop", "1");  // again: back to the start
  place = waitForLine("/velor/time s \"00:00:00:00\"", place);
  command("/velor/preroll", "1");
  place = waitForLine("/velor/preroll f 1.000000", place);
  command("/velor/arm", "1");
  place = waitForLine("/velor/arm f 1.000000", place);
  command("/velor/arm", "0");
  place = waitForLine("/velor/arm f 0.000000", place);
  command("/velor/marker/add", "1");
  command("/velor/marker/goto", "1");
  EXPECT_TRUE(waitFor(5, [&] { return velor.log().find("markers") != std::string::npos; }));
  EXPECT_EQ(velor.end(SIGTERM), 0);
  const std::string log = velor.log();
  EXPECT_EQ(log.find("markers"), log.rfind("markers")) << log;
}

TEST_F(OSC, AHostThatIsNotAllowedChangesNothing) {
  VelorProcess velor(arguments(), mServer.environment());
  const std::size_t place = waitForLine("/velor/transport/stop f 1.000000");
  const Datagrams stranger("127.0.0.2");
  const auto message = [](const std::string& address, const char* one) {
    std::string bytes = address;
    bytes.resize((bytes.size() / 4 + 1) * 4);
    return bytes + std::string(",f\0\0", 4) + std::string(one, 4);
  };
  const auto play = message("/velor/transport/play", "\x3F\x80\0\0");
  stranger.send(mPort, play);
  stranger.send(mPort, message("/velor/preroll", "\x3F\x80\0\0"));
  // One that is allowed, with the same bytes, comes behind them.
  const Datagrams friendly("127.0.0.1");
  friendly.send(mPort, message("/velor/speed", "\x3F\x80\0\0"));
  waitForLine("/velor/speed f 1.000000", place);
  for (const std::string& line : seen()) {
    EXPECT_NE(line, "/velor/transport/play f 1.000000");
    EXPECT_NE(line, "/velor/preroll f 1.000000");
  }
  friendly.send(mPort, play);
  waitForLine("/velor/transport/play f 1.000000", place);
  EXPECT_EQ(velor.end(SIGTERM), 0);
}

TEST_F(OSC, APortThatIsTakenEndsTheProgramWith1AndAWrongWordWith2) {
  const Datagrams other("0.0.0.0");
  struct Case {
    std::vector<std::string> arguments;
    int status;
    const char* told;
  };
  for (const Case& c : {
           Case{{"--osc-port", other.port()}, 1, "Address already in use"},
           Case{{"--osc-port", "0"}, 2, "--osc-port: out of range (1 to 65535)"},
           Case{{"--osc-port", "65536"}, 2, "--osc-port: out of range (1 to 65535)"},
           Case{{"--osc-allow", "127.0.0.1"}, 2, "--osc-allow needs --osc-port"},
           Case{{"--osc-port", "7770", "--osc-allow", "desk"}, 2, "--osc-allow: 'desk'"},
           Case{{"--osc-target", "127.0.0.1:65536"}, 2, "out of range (1 to 65535)"},
           Case{{"--osc-target", "::1:9000"}, 2, "'::1:9000' is no HOST:PORT"},
           Case{{"--osc-target", "desk.invalid:9000"}, 2, "'desk.invalid' is no host"},
       }) {
    SCOPED_TRACE(c.told);
    std::vector<std::string> all = {"--headless", "--play"};
    all.insert(all.end(), c.arguments.begin(), c.arguments.end());
    VelorProcess velor(all, mServer.environment());
    EXPECT_EQ(velor.waitForEnd(10), c.status);
    EXPECT_NE(velor.errors().find(c.told), std::string::npos) << velor.errors();
    EXPECT_EQ(velor.errors().find('\n'), velor.errors().size() - 1) << velor.errors();
  }
  VelorOnTerminal terminal(120, {"--headless", "--osc-port", mPort}, mServer.environment());
  EXPECT_TRUE(terminal.readUntil("OSC: " + mPort, 5)) << terminal.text();
  EXPECT_EQ(terminal.end(SIGTERM), 0);
}

}  // namespace
}  // namespace velor::test
