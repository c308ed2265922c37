// SPDX-License-Identifier: MIT
#include "Velor/app/VLOSCRemote.h"

#include <netdb.h>

#include <algorithm>
#include <memory>

#include "CocoaAsyncSocket/UDPNetwork.h"
#include "Velor/clock/VLClock.h"
#include "Velor/osc/VLOSCClientDispatcher.h"
#include "Velor/osc/VLOSCServer.h"
#include "Velor/osc/VLUserDefinedOSCClient.h"
#include "platform/host/Host.h"
#include "platform/host/Log.h"

namespace velor {
namespace {

constexpr int kFailureStatus = 1;
constexpr int kUsageStatus = 2;
constexpr std::uint64_t kLookUpTime = 5'000'000'000;  // ns, for all targets

// Each of the targets, and what getaddrinfo says of it.
struct LookUps {
  explicit LookUps(std::size_t count)
      : codes(count, EAI_AGAIN), ended(host::current().makeSemaphore()) {}
  std::vector<int> codes;
  const std::unique_ptr<host::Semaphore> ended;  // a signal for each
};

// Empty when all are known.
std::string problemOf(const std::vector<VLOSCOptions::Target>& targets) {
  const auto lookUps = std::make_shared<LookUps>(targets.size());
  UDPNetwork& network = udpNetwork();
  network.queue().sync([&] {
    for (std::size_t i = 0; i < targets.size(); ++i) {
      network.resolve(targets[i].first, targets[i].second,
                      [lookUps, i](const UDPNetwork::Answer& answer) {
                        lookUps->codes[i] = answer.code;
                        lookUps->ended->signal();
                      });
    }
  });
  const std::uint64_t deadline = host::current().AudioGetCurrentHostTime() + kLookUpTime;
  for (std::size_t i = 0; i < targets.size() && lookUps->ended->waitUntil(deadline); ++i) {
  }
  // On the queue, where an answer may come just now.
  const auto codes = network.queue().sync([&] { return lookUps->codes; });
  const auto unknown = std::find_if(codes.begin(), codes.end(), [](int code) { return code != 0; });
  if (unknown == codes.end()) {
    return "";
  }
  return "'" + targets[static_cast<std::size_t>(unknown - codes.begin())].first +
         "' is no host that is known here (" + gai_strerror(*unknown) + ")";
}

}  // namespace

std::optional<VLOSCOptions::Target> VLOSCTargetFromText(const std::string& text,
                                                        std::string& error) {
  const std::size_t colon = text.rfind(':');
  std::string host = text.substr(0, colon == std::string::npos ? 0 : colon);
  const std::string digits = colon == std::string::npos ? "" : text.substr(colon + 1);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  } else if (host.find(':') != std::string::npos) {
    host.clear();  // which of its colons is the last could not be told
  }
  if (host.empty() || digits.empty() ||
      digits.find_first_not_of("0123456789") != std::string::npos) {
    error = "'" + text + "' is no HOST:PORT";
    return std::nullopt;
  }
  const int port = digits.size() <= 5 ? std::stoi(digits) : 0;
  if (port < 1 || port > 65535) {
    error = "port " + digits + " is out of range (1 to 65535)";
    return std::nullopt;
  }
  return VLOSCOptions::Target(host, static_cast<std::uint16_t>(port));
}

std::optional<std::string> VLHostAddressFromText(const std::string& text, std::string& error) {
  const auto address = SocketAddress::fromText(text, 0);
  if (!address) {
    error = "'" + text + "' is no address (10.0.0.5 or fe80::1 for instance)";
    return std::nullopt;
  }
  return address->host();
}

int VLOSCRemote::start(const std::shared_ptr<VLOSCRemote>& self, const VLOSCOptions& options,
                       std::string& error) {
  error = problemOf(options.targets);
  if (!error.empty()) {
    error = "--osc-target: " + error;
    return kUsageStatus;
  }
  VLOSCServer& server = VLOSCServer::sharedServer();
  server.setDelegate(self);
  for (const std::string& address : options.allow) {
    const auto entry = VLOSCHostFilterEntry::initWithAddress(address, {});
    entry->setEnabled(true);
    server.addHostFilterObject(entry);
  }
  GCDAsyncUdpSocketError problem;
  if (options.port && !server.startUdPServerAtPort(*options.port, &problem)) {
    error = "--osc-port: port " + std::to_string(*options.port) +
            " cannot be used: " + problem.description();
    return kFailureStatus;
  }
  VLOSCClientDispatcher& dispatcher = VLOSCClientDispatcher::sharedDispatcher();
  for (const auto& [host, port] : options.targets) {
    dispatcher.addClient(VLUserDefinedOSCClient::initWithUdpHost(host, port));
  }
  return 0;
}

void VLOSCRemote::proceed(const SMPTETime& time) {
  if ((time.mCounter & 1U) == 0) {
    VLOSCClientDispatcher::sharedDispatcher().updateTime(time);
  }
}

void VLOSCRemote::play(VLOSCServer&) {
  if (mClock.running()) {
    return;
  }
  mArmedBefore.reset();
  if (mClock.armed()) {  // else it could not run by itself
    mArmedBefore = mClock.MIDISyncSource();
    mClock.setMIDISyncSource(nullptr);
    mClock.disarm();
  }
  mClock.start();
}

void VLOSCRemote::clockDidStopPlaying() {
  if (const auto source = std::exchange(mArmedBefore, std::nullopt)) {
    mClock.setMIDISyncSource(*source);
    mClock.arm();
  }
}

void VLOSCRemote::stop(VLOSCServer&) {
  if (mClock.running()) {
    mClock.stop();
  } else {
    mClock.setTime(mClock.startTimeSMPTE());
  }
}

void VLOSCRemote::setPlayRate(float playRate) {
  mClock.setPlayRatePercent(static_cast<double>(playRate));
}

void VLOSCRemote::tellOfMarkers() {
  if (!std::exchange(mToldOfMarkers, true)) {
    VELOR_LOG_WARNING("OSC asks for markers, of which there are none without a window yet");
  }
}

}  // namespace velor
