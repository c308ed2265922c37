// SPDX-License-Identifier: MIT
// Datagrams a second that reach a delegate while another thread sends as fast as
// it can over the loopback interface: beside a server thread of liblo and a bare
// loop of recv. Each gets the same OSC message and takes its float out; liblo
// also checks the whole message and looks for the method, as it always does.
// Seconds for each run: the first argument, 1 if there is none; five runs of each,
// in turns, of which the median is told.
#include <lo/lo.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "CocoaAsyncSocket/GCDAsyncUdpSocket.h"
#include "CocoaAsyncSocket/SystemUDPNetwork.h"
#include "platform/host/SystemHost.h"

namespace velor {
namespace {

constexpr int kRuns = 5;
// OSC 1.0: address, type tags, one big-endian float (1.0), all padded to 4 bytes.
constexpr char kMessage[] = "/velor/speed\0\0\0\0,f\0\0\x3F\x80\0";
constexpr std::size_t kMessageBytes = 24;
static_assert(sizeof kMessage == kMessageBytes);

std::atomic<std::uint64_t> gReceived{0};
std::atomic<float> gValue{0};

bool take(const std::uint8_t* data, std::size_t size) {
  if (size != kMessageBytes || std::memcmp(data, kMessage, 20) != 0) {
    return false;
  }
  std::uint32_t bits = 0;
  std::memcpy(&bits, data + 20, sizeof bits);
  bits = __builtin_bswap32(bits);
  float value = 0;
  std::memcpy(&value, &bits, sizeof value);
  gValue.store(value, std::memory_order_relaxed);
  gReceived.fetch_add(1, std::memory_order_relaxed);
  return true;
}

struct Result {
  double received;  // a second
  double sent;
};

Result flood(std::uint16_t port, double seconds) {
  const int sender = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const SocketAddress to = *SocketAddress::fromText("127.0.0.1", port);
  if (::connect(sender, to.data(), to.size()) != 0) {
    std::perror("connect");
    std::exit(1);
  }
  using Clock = std::chrono::steady_clock;
  const auto start = Clock::now();
  const auto end = start + std::chrono::duration<double>(seconds);
  gReceived.store(0);
  std::uint64_t sent = 0;
  while (Clock::now() < end) {
    for (int i = 0; i < 64; ++i) {
      sent += ::send(sender, kMessage, kMessageBytes, 0) > 0 ? 1 : 0;
    }
  }
  const std::uint64_t received = gReceived.load();
  const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
  ::close(sender);
  return {static_cast<double>(received) / elapsed, static_cast<double>(sent) / elapsed};
}

class Delegate final : public GCDAsyncUdpSocketDelegate {
 public:
  void udpSocketDidReceiveData(const std::shared_ptr<GCDAsyncUdpSocket>&,
                               std::span<const std::uint8_t> data, const SocketAddress&) override {
    take(data.data(), data.size());
  }
};

// As the OSC server has it: with a filter that asks for the sender's text.
Result runSocket(double seconds) {
  host::Queue queue("bench");
  const auto delegate = std::make_shared<Delegate>();
  const auto socket = GCDAsyncUdpSocket::initWithDelegate(delegate, &queue);
  socket->setReceiveFilter(
      [](std::span<const std::uint8_t>, const SocketAddress& from) {
        return GCDAsyncUdpSocket::hostFromAddress(from) == "127.0.0.1";
      },
      &queue);
  const auto begun = socket->bindToPort(0).and_then([&] { return socket->beginReceiving(); });
  if (!begun) {
    std::fprintf(stderr, "%s\n", begun.error().description().c_str());
    std::exit(1);
  }
  const Result result = flood(socket->localPort(), seconds);
  socket->close();
  return result;
}

Result runLiblo(double seconds) {
  const lo_server_thread server = lo_server_thread_new(nullptr, nullptr);
  if (server == nullptr) {
    std::exit(1);
  }
  lo_server_thread_add_method(
      server, "/velor/speed", "f",
      [](const char*, const char*, lo_arg** arguments, int, lo_message, void*) {
        gValue.store(arguments[0]->f, std::memory_order_relaxed);
        gReceived.fetch_add(1, std::memory_order_relaxed);
        return 0;
      },
      nullptr);
  lo_server_thread_start(server);
  const Result result =
      flood(static_cast<std::uint16_t>(lo_server_thread_get_port(server)), seconds);
  lo_server_thread_free(server);
  return result;
}

Result runBareLoop(double seconds) {
  const int receiver = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const SocketAddress any = *SocketAddress::fromText("127.0.0.1", 0);
  sockaddr_storage bound{};
  socklen_t size = sizeof bound;
  if (::bind(receiver, any.data(), any.size()) != 0 ||
      ::getsockname(receiver, reinterpret_cast<sockaddr*>(&bound), &size) != 0) {
    std::perror("bind");
    std::exit(1);
  }
  const SocketAddress local(reinterpret_cast<const sockaddr*>(&bound), size);
  std::thread thread([receiver] {
    std::array<std::uint8_t, 9216> room;
    sockaddr_storage from{};
    for (;;) {
      socklen_t fromSize = sizeof from;
      const ssize_t bytes = ::recvfrom(receiver, room.data(), room.size(), 0,
                                       reinterpret_cast<sockaddr*>(&from), &fromSize);
      if (bytes == 1) {
        return;  // the end
      }
      take(room.data(), static_cast<std::size_t>(bytes));
    }
  });
  const Result result = flood(local.port(), seconds);
  const int sender = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // there is room then
  ::sendto(sender, "", 1, 0, local.data(), local.size());
  thread.join();
  ::close(sender);
  ::close(receiver);
  return result;
}

Result median(std::vector<Result> results) {
  std::sort(results.begin(), results.end(),
            [](const Result& a, const Result& b) { return a.received < b.received; });
  return results[results.size() / 2];
}

}  // namespace
}  // namespace velor

int main(int argc, char** argv) {
  using namespace velor;
  const double seconds = argc > 1 ? std::atof(argv[1]) : 1;
  host::SystemHost host;
  SystemUDPNetwork network(SystemUDPNetwork::Reach::loopback);
  setUDPNetwork(&network);
  std::vector<Result> socket;
  std::vector<Result> liblo;
  std::vector<Result> bare;
  for (int run = 0; run < kRuns; ++run) {
    socket.push_back(runSocket(seconds));
    liblo.push_back(runLiblo(seconds));
    bare.push_back(runBareLoop(seconds));
  }
  const Result ours = median(socket);
  const Result theirs = median(liblo);
  const Result loop = median(bare);
  for (const auto& [name, result] :
       {std::pair("GCDAsyncUdpSocket", ours), std::pair("liblo server thread", theirs),
        std::pair("bare recvfrom loop", loop)}) {
    std::printf("%-20s %8.0f received a second of %8.0f sent (%.0f %%)\n", name, result.received,
                result.sent, 100 * result.received / result.sent);
  }
  std::printf("GCDAsyncUdpSocket to liblo %.2f, to the bare loop %.2f\n",
              ours.received / theirs.received, ours.received / loop.received);
  return 0;
}
