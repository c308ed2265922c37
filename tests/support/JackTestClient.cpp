// SPDX-License-Identifier: MIT
#include "tests/support/JackTestClient.h"

#include <algorithm>
#include <stdexcept>

namespace velor::test {

JackTestClient::JackTestClient(const std::string& name, const char* portType)
    : mPortType(portType) {
  for (const std::string& path : jack::JackLibrary::paths()) {
    mJack = jack::JackLibrary::load(path);
    if (mJack == nullptr) {
      continue;
    }
    mJack->jack_set_error_function([](const char*) {});
    mJack->jack_set_info_function([](const char*) {});
    jack_status_t status{};
    mClient = mJack->jack_client_open(name.c_str(), JackNoStartServer, &status);
    if (mClient != nullptr) {
      return;
    }
  }
  throw std::runtime_error("no JACK server for the test's own client");
}

jack_port_t* JackTestClient::registerPort(const std::string& name, const char* type,
                                          unsigned long flags) {
  return mJack->jack_port_register(mClient, name.c_str(), type, flags, 0);
}

void JackTestClient::close() {
  mJack->jack_client_close(mClient);
}

std::string JackTestClient::fullName(const std::string& port) const {
  return std::string(mJack->jack_get_client_name(mClient)) + ":" + port;
}

bool JackTestClient::connect(const std::string& from, const std::string& to) {
  return mJack->jack_connect(mClient, from.c_str(), to.c_str()) == 0;
}

bool JackTestClient::disconnect(const std::string& from, const std::string& to) {
  return VELOR_JACK_CALL(jack_disconnect)(mClient, from.c_str(), to.c_str()) == 0;
}

bool JackTestClient::isConnected(const std::string& from, const std::string& to) const {
  jack_port_t* port = mJack->jack_port_by_name(mClient, from.c_str());
  if (port == nullptr) {
    return false;
  }
  const auto names = taken(mJack->jack_port_get_all_connections(mClient, port));
  return std::find(names.begin(), names.end(), to) != names.end();
}

std::vector<std::string> JackTestClient::ports(const std::string& pattern, const char* type) const {
  return taken(
      mJack->jack_get_ports(mClient, pattern.c_str(), type != nullptr ? type : mPortType, 0));
}

std::vector<std::string> JackTestClient::taken(const char** names) const {
  std::vector<std::string> result;
  for (const char** name = names; name != nullptr && *name != nullptr; ++name) {
    result.emplace_back(*name);
  }
  mJack->jack_free(names);
  return result;
}

}  // namespace velor::test
