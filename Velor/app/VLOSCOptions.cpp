// SPDX-License-Identifier: MIT
#include "Velor/app/VLOSCOptions.h"

#include <netdb.h>

#include <algorithm>
#include <memory>
#include <set>

#include "CocoaAsyncSocket/UDPNetwork.h"
#include "Velor/osc/VLOSCClientDispatcher.h"
#include "Velor/osc/VLOSCServer.h"
#include "Velor/osc/VLUserDefinedOSCClient.h"
#include "platform/host/Host.h"

namespace velor {
namespace {

std::string textOf(const VLOSCOptions::Target& target) {
  const bool isIPv6 = target.first.find(':') != std::string::npos;
  return (isIPv6 ? "[" + target.first + "]" : target.first) + ":" + std::to_string(target.second);
}

// Reports a name that the system cannot resolve.
void lookUp(const VLOSCOptions::Target& target, const VLOSCReport& report) {
  UDPNetwork& network = udpNetwork();
  network.queue().async([&network, target, report] {
    network.resolve(
        target.first, target.second, [target, report](const UDPNetwork::Answer& answer) {
          if (answer.code != 0) {
            host::current().mainQueue().async([report, host = target.first, code = answer.code] {
              report("--osc-target: cannot resolve host '" + host + "': " + gai_strerror(code));
            });
          }
        });
  });
}

bool isAt(const VLOSCClient& client, const VLOSCOptions::Target& target) {
  return client.storedHost() == target.first && client.storedPort() == target.second;
}

void forgetHost(const std::string& address, const VLOSCReport& report) {
  VLOSCServer& server = VLOSCServer::sharedServer();
  std::set<std::size_t> rows;
  for (std::size_t i = 0; i < server.countOfHostFilter(); ++i) {
    if (server.objectInHostFilterAtIndex(i)->address() == address) {
      rows.insert(i);
    }
  }
  if (rows.empty()) {
    report("--osc-forget: host " + address + " is not in the list");
  }
  server.removeHostFilterAtIndexes(rows);
}

void forgetTarget(const VLOSCOptions::Target& target, const VLOSCReport& report) {
  VLOSCClientDispatcher& dispatcher = VLOSCClientDispatcher::sharedDispatcher();
  const auto clients = dispatcher.clients();
  std::set<std::size_t> rows;
  for (std::size_t i = 0; i < clients.size(); ++i) {
    if (isAt(*clients[i], target)) {
      rows.insert(i);
    }
  }
  if (rows.empty()) {
    report("--osc-forget: target " + textOf(target) + " is not in the list");
  }
  dispatcher.removeClientsAtIndexes(rows);
}

void allow(const std::string& address, bool keep) {
  VLOSCServer& server = VLOSCServer::sharedServer();
  std::shared_ptr<VLOSCHostFilterEntry> entry;
  for (std::size_t i = 0; i < server.countOfHostFilter() && entry == nullptr; ++i) {
    const auto each = server.objectInHostFilterAtIndex(i);
    entry = each->address() == address ? each : nullptr;
  }
  if (entry == nullptr) {
    entry = VLOSCHostFilterEntry::initWithAddress(address, {});
    server.addHostFilterObject(entry);
  }
  if (!entry->enabled()) {
    entry->setEnabled(true);
    entry->setForThisRun(!keep);
  }
}

void listen(std::uint16_t port, bool keep, const VLOSCReport& report) {
  VLOSCServer& server = VLOSCServer::sharedServer();
  // A saved port that was refused a moment ago has been reported.
  if (server.port() == port || server.refusedPort() == port) {
    return;
  }
  if (keep) {
    server.stop();
  }
  const auto started =
      keep ? server.startUdPServerAtPort(port) : server.startForThisRunAtPort(port);
  if (!started) {
    report("--osc-port: cannot use port " + std::to_string(port) + ": " +
           started.error().description());
  }
}

void addTarget(const VLOSCOptions::Target& target, bool keep, const VLOSCReport& report) {
  lookUp(target, report);
  VLOSCClientDispatcher& dispatcher = VLOSCClientDispatcher::sharedDispatcher();
  const auto clients = dispatcher.clients();
  // Beside a row that the user has switched off, which stays as it is.
  if (std::none_of(clients.begin(), clients.end(), [&target](const auto& client) {
        return client->enabled() && isAt(*client, target);
      })) {
    const auto client = VLUserDefinedOSCClient::initWithUdpHost(target.first, target.second);
    client->setForThisRun(!keep);
    dispatcher.addClient(client);
  }
}

void applyNow(const VLOSCOptions& options, const VLOSCReport& report) {
  for (const std::string& address : options.forgetHosts) {
    forgetHost(address, report);
  }
  for (const auto& target : options.forgetTargets) {
    forgetTarget(target, report);
  }
  for (const std::string& address : options.allow) {
    allow(address, options.keep);
  }
  if (options.port) {
    listen(*options.port, options.keep, report);
  }
  for (const auto& target : options.targets) {
    addTarget(target, options.keep, report);
  }
}

}  // namespace

Expected<VLOSCOptions::Target> VLOSCTargetFromText(const std::string& text) {
  const std::size_t colon = text.rfind(':');
  std::string host = text.substr(0, colon == std::string::npos ? 0 : colon);
  const std::string digits = colon == std::string::npos ? "" : text.substr(colon + 1);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  } else if (host.find(':') != std::string::npos) {
    host.clear();  // its last colon could belong to the address
  }
  if (host.empty() || digits.empty() ||
      digits.find_first_not_of("0123456789") != std::string::npos) {
    return failure("'" + text + "' is not HOST:PORT");
  }
  const int port = digits.size() <= 5 ? std::stoi(digits) : 0;
  if (port < 1 || port > 65535) {
    return failure("port " + digits + " is out of range (1 to 65535)");
  }
  return VLOSCOptions::Target(host, static_cast<std::uint16_t>(port));
}

Expected<std::string> VLHostAddressFromText(const std::string& text) {
  const auto address = SocketAddress::fromText(text, 0);
  if (!address) {
    return failure("'" + text + "' is not an IP address; expected for example 10.0.0.5 or fe80::1");
  }
  return address->host();
}

Expected<> VLOSCForgetFromText(const std::string& text, VLOSCOptions& options) {
  if (auto address = VLHostAddressFromText(text)) {
    options.forgetHosts.push_back(*std::move(address));
  } else if (auto target = VLOSCTargetFromText(text)) {
    options.forgetTargets.push_back(*std::move(target));
  } else {
    return failure("'" + text + "' is neither an IP address nor HOST:PORT");
  }
  return {};
}

void VLOSCApply(const VLOSCOptions& options, const VLOSCReport& report) {
  host::current().mainQueue().async([options, report] { applyNow(options, report); });
}

}  // namespace velor
