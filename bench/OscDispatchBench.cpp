// SPDX-License-Identifier: MIT
// Messages of OSC a second, from the bytes of datagrams to the commands of the program's
// address space, beside liblo with the same seven methods and without its queue and its
// coercion. Both read the same bytes and must hit the same commands; they take turns, so
// that what else the machine does falls on both.
#include <benchmark/benchmark.h>
#include <lo/lo.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <iterator>
#include <vector>

#include "oscpkt/src/oscpkt.h"
#include "tests/support/TemporaryFolder.h"

namespace velor::oscpkt {
namespace {

constexpr int kRounds = 401;
constexpr std::size_t kMessagesPerRound = 7'000;
constexpr double kGoal = 1;

// In the order of the decision.
constexpr std::array<const char*, 7> kAddresses = {
    "/velor/transport/play", "/velor/transport/stop", "/velor/marker/goto", "/velor/marker/add",
    "/velor/speed",          "/velor/preroll",        "/velor/arm"};
constexpr std::array<const char*, 7> kPatterns = {
    "/velor/transport/pl?y",   "/velor/transport/s*", "/velor/marker/g[n-p]to",
    "/velor/marker/{add,set}", "/velor/sp?ed",        "/velor/pre*",
    "/velor/a[a-z]m"};

using Hits = std::array<std::uint64_t, kAddresses.size()>;
using Datagram = std::vector<std::uint8_t>;

Datagram datagramOf(const char* address) {
  Message message(address);
  message.pushFloat(1);
  OscPacketWriter writer;
  writer.addMessage(message);
  return {writer.packetData(), writer.packetData() + writer.packetSize()};
}

Datagram bundleOf(const std::vector<Datagram>& messages) {
  Datagram bundle = {'#', 'b', 'u', 'n', 'd', 'l', 'e', 0, 0, 0, 0, 0, 0, 0, 0, 1};
  for (const Datagram& message : messages) {
    bundle.insert(bundle.end(), {0, 0, 0, static_cast<std::uint8_t>(message.size())});
    bundle.insert(bundle.end(), message.begin(), message.end());
  }
  return bundle;
}

class Own {
 public:
  void dispatch(const Datagram& datagram) {
    OscPacketReader reader(datagram.data(), datagram.size());
    while (const Message* message = reader.popMessage()) {
      decide(*message);
    }
  }
  [[nodiscard]] const Hits& hits() const { return mHits; }

 private:
  void decide(const Message& message) {
    if (message.partialMatch("/velor").error() != OscOk) {
      return;
    }
    if (message.partialMatch("/velor/transport").error() == OscOk) {
      takes(message, 0, isPositive) || takes(message, 1, isPositive);
    } else if (message.partialMatch("/velor/marker").error() == OscOk) {
      takes(message, 2, isNormal) || takes(message, 3, isPositive);
    } else {
      takes(message, 4, isAny) || takes(message, 5, isAny) || takes(message, 6, isAny);
    }
  }

  template <class Test>
  bool takes(const Message& message, std::size_t command, Test test) {
    float value = 0;
    if (!message.fullMatch(kAddresses[command]).popFloat(value).isFullyRead() || !test(value)) {
      return false;
    }
    ++mHits[command];
    return true;
  }

  static bool isPositive(float value) { return value > 0; }
  static bool isNormal(float value) { return std::isnormal(value); }
  static bool isAny(float) { return true; }

  Hits mHits{};
};

class Liblo {
 public:
  // A server must have a socket; no datagram meets it, and no other machine sees it.
  Liblo() : mServer(lo_server_new_with_proto((mFolder.path() / "s").c_str(), LO_UNIX, nullptr)) {
    if (mServer == nullptr) {
      std::fprintf(stderr, "liblo makes no server\n");
      std::exit(1);
    }
    lo_server_enable_queue(mServer, 0, 0);
    lo_server_enable_coercion(mServer, 0);
    for (std::size_t i = 0; i < kAddresses.size(); ++i) {
      lo_server_add_method(mServer, kAddresses[i], "f",
                           i == 2  ? takeNormal
                           : i < 4 ? takePositive
                                   : takeAny,
                           &mHits[i]);
    }
  }
  ~Liblo() { lo_server_free(mServer); }
  Liblo(const Liblo&) = delete;
  Liblo& operator=(const Liblo&) = delete;

  void dispatch(const Datagram& datagram) {
    // It takes the bytes as its own, and leaves them as they are.
    lo_server_dispatch_data(mServer, const_cast<std::uint8_t*>(datagram.data()), datagram.size());
  }
  [[nodiscard]] const Hits& hits() const { return mHits; }

 private:
  // 0 is for a message that is done with; another method may try it otherwise.
  static int count(bool taken, void* hits) {
    *static_cast<std::uint64_t*>(hits) += taken ? 1 : 0;
    return taken ? 0 : 1;
  }
  static int takePositive(const char*, const char*, lo_arg** argv, int, lo_message, void* hits) {
    return count(argv[0]->f > 0, hits);
  }
  static int takeNormal(const char*, const char*, lo_arg** argv, int, lo_message, void* hits) {
    return count(std::isnormal(argv[0]->f), hits);
  }
  static int takeAny(const char*, const char*, lo_arg**, int, lo_message, void* hits) {
    return count(true, hits);
  }

  const test::TemporaryFolder mFolder;
  lo_server mServer;
  Hits mHits{};
};

// On the processor, so that no other process counts.
double secondsOfThisThread() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

template <class Dispatcher>
double messagesPerSecond(Dispatcher& dispatcher, const std::vector<Datagram>& datagrams,
                         std::size_t messages) {
  const double start = secondsOfThisThread();
  for (std::size_t done = 0; done < kMessagesPerRound; done += messages) {
    for (const Datagram& datagram : datagrams) {
      dispatcher.dispatch(datagram);
    }
    benchmark::ClobberMemory();
  }
  return static_cast<double>(kMessagesPerRound) / (secondsOfThisThread() - start);
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

bool compare(const char* what, const std::vector<Datagram>& datagrams) {
  Own own;
  Liblo liblo;
  std::vector<double> ownRates;
  std::vector<double> libloRates;
  std::vector<double> ratios;
  for (int round = 0; round < kRounds; ++round) {
    ownRates.push_back(messagesPerSecond(own, datagrams, kAddresses.size()));
    libloRates.push_back(messagesPerSecond(liblo, datagrams, kAddresses.size()));
    ratios.push_back(ownRates.back() / libloRates.back());
  }
  if (own.hits() != liblo.hits() || own.hits()[0] == 0) {
    std::printf("%s: the two do not hit the same commands:\n", what);
    for (std::size_t i = 0; i < kAddresses.size(); ++i) {
      std::printf("  %-22s %10ju %10ju\n", kAddresses[i], std::uintmax_t{own.hits()[i]},
                  std::uintmax_t{liblo.hits()[i]});
    }
    return false;
  }
  const double ratio = median(ratios);
  std::printf("%-24s %10.0f %10.0f %7.2f   %.2f to %.2f\n", what, median(ownRates),
              median(libloRates), ratio, *std::min_element(ratios.begin(), ratios.end()),
              *std::max_element(ratios.begin(), ratios.end()));
  return ratio >= kGoal;
}

int run() {
  std::vector<Datagram> plain;
  std::transform(kAddresses.begin(), kAddresses.end(), std::back_inserter(plain), datagramOf);
  std::vector<Datagram> patterns;
  std::transform(kPatterns.begin(), kPatterns.end(), std::back_inserter(patterns), datagramOf);
  std::printf("messages dispatched a second, median of %d rounds of %zu; goal: ratio of %.0f\n",
              kRounds, kMessagesPerRound, kGoal);
  std::printf("%-24s %10s %10s %7s   %s\n", "", "velor", "liblo", "ratio", "from, to");
  bool good = compare("plain addresses", plain);
  good = compare("bundles of seven", {bundleOf(plain)}) && good;
  good = compare("wildcards", patterns) && good;
  good = compare("bundled wildcards", {bundleOf(patterns)}) && good;
  return good ? 0 : 1;
}

}  // namespace
}  // namespace velor::oscpkt

int main() {
  return velor::oscpkt::run();
}
