// SPDX-License-Identifier: MIT
#include "Velor/osc/VLUserDefinedOSCClient.h"

#include "Kv-Appkit/KVAssert.h"

namespace velor {

std::shared_ptr<VLUserDefinedOSCClient> VLUserDefinedOSCClient::initWithUdpHost(
    const std::optional<std::string>& host, std::uint16_t port) {
  std::shared_ptr<VLUserDefinedOSCClient> client(new VLUserDefinedOSCClient);
  client->initFromUdpHost(host, port);
  return client;
}

std::shared_ptr<VLUserDefinedOSCClient> VLUserDefinedOSCClient::initWithCoder(
    store::KeyedUnarchiver& coder) {
  std::shared_ptr<VLUserDefinedOSCClient> client(new VLUserDefinedOSCClient);
  client->initFromCoder(coder);
  return client;
}

void VLUserDefinedOSCClient::setNilValueForKey(std::string_view key) {
  KV_REQUIRE_PARAMETER(key == "port", "key");
  setPort(kDefaultPort);
}

}  // namespace velor
