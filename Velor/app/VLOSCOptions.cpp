// SPDX-License-Identifier: MIT
#include "Velor/app/VLOSCOptions.h"

#include <netdb.h>

#include <algorithm>
#include <memory>

#include "CocoaAsyncSocket/UDPNetwork.h"
#include "Velor/osc/VLOSCClientDispatcher.h"
#include "Velor/osc/VLOSCServer.h"
#include "Velor/osc/VLUserDefinedOSCClient.h"
#include "platform/host/Host.h"

namespace velor {
namespace {

// Tells in the background whether the name of the host is known.
void lookUp(const VLOSCOptions::Target& target, const VLOSCTell& tell) {
  UDPNetwork& network = udpNetwork();
  network.queue().async([&network, target, tell] {
    network.resolve(target.first, target.second, [target, tell](const UDPNetwork::Answer& answer) {
      if (answer.code != 0) {
        host::current().mainQueue().async([tell, host = target.first, code = answer.code] {
          tell("--osc-target: '" + host + "' is no host that is known here (" + gai_strerror(code) +
               ")");
        });
      }
    });
  });
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

void VLOSCApply(const VLOSCOptions& options, const VLOSCTell& tell) {
  VLOSCServer& server = VLOSCServer::sharedServer();
  for (const std::string& address : options.allow) {
    std::shared_ptr<VLOSCHostFilterEntry> entry;
    for (std::size_t i = 0; i < server.countOfHostFilter() && entry == nullptr; ++i) {
      const auto each = server.objectInHostFilterAtIndex(i);
      entry = each->address() == address ? each : nullptr;
    }
    const bool isNew = entry == nullptr;
    if (isNew) {
      entry = VLOSCHostFilterEntry::initWithAddress(address, {});
    }
    entry->setEnabled(true);
    if (isNew) {
      server.addHostFilterObject(entry);
    }
  }
  if (options.port && server.port() != *options.port) {
    server.stop();
    GCDAsyncUdpSocketError problem;
    if (!server.startUdPServerAtPort(*options.port, &problem)) {
      tell("--osc-port: port " + std::to_string(*options.port) +
           " cannot be used: " + problem.description());
    }
  }
  VLOSCClientDispatcher& dispatcher = VLOSCClientDispatcher::sharedDispatcher();
  const VLOSCClientDispatcher::Clients clients = dispatcher.clients();
  for (const VLOSCOptions::Target& target : options.targets) {
    lookUp(target, tell);
    const bool isThere = std::any_of(clients.begin(), clients.end(), [&target](const auto& client) {
      return client->host() == target.first && client->port() == target.second;
    });
    if (!isThere) {
      dispatcher.addClient(VLUserDefinedOSCClient::initWithUdpHost(target.first, target.second));
    }
  }
}

}  // namespace velor
