// SPDX-License-Identifier: MIT
#include "Velor/program/VLPortNames.h"

#include "platform/midi/MIDIService.h"
#include "platform/store/Printable.h"

namespace velor {
namespace {

// Empty for one that the server does not know by a name, such as our own.
std::string serverPortOf(const KVMIDIEndpoint& endpoint) {
  std::string name;
  midi::service().MIDIObjectGetStringProperty(endpoint.endpoint(), midi::kMIDIPropertyServerPort,
                                              &name);
  return name;
}

}  // namespace

std::string VLPortName(const KVMIDIEndpoint& endpoint) {
  return endpoint.displayName().value_or(std::to_string(endpoint.uniqueID()));
}

Expected<std::shared_ptr<KVMIDIEndpoint>> VLEndpointNamed(const std::string& name,
                                                          const KVMIDICore::Endpoints& endpoints,
                                                          const char* kind) {
  using Matches = bool (*)(const KVMIDIEndpoint&, const std::string&);
  constexpr Matches kWays[] = {[](const KVMIDIEndpoint& endpoint, const std::string& wanted) {
                                 return std::to_string(endpoint.uniqueID()) == wanted;
                               },
                               [](const KVMIDIEndpoint& endpoint, const std::string& wanted) {
                                 return serverPortOf(endpoint) == wanted;
                               },
                               [](const KVMIDIEndpoint& endpoint, const std::string& wanted) {
                                 return VLPortName(endpoint) == wanted;
                               }};
  for (const Matches matches : kWays) {
    std::vector<std::shared_ptr<KVMIDIEndpoint>> found;
    for (const auto& endpoint : endpoints) {
      if (matches(*endpoint, name)) {
        found.push_back(endpoint);
      }
    }
    if (found.size() == 1) {
      return found.front();
    }
    if (!found.empty()) {
      std::string error =
          std::string("several MIDI ") + kind + "s are named '" + name + "'; use an id:";
      for (const auto& endpoint : found) {
        error += " " + std::to_string(endpoint->uniqueID()) + " (" + serverPortOf(*endpoint) + ")";
      }
      return failure(error);
    }
  }
  std::string error = std::string("no MIDI ") + kind + " is named '" + name + "'; ";
  if (endpoints.empty()) {
    error += std::string("there are none (MIDI: ") + midi::service().serverDescription() + ")";
    return failure(error);
  }
  error += "there are:";
  const char* separator = " ";
  for (const auto& endpoint : endpoints) {
    error += separator;
    error += "'" + VLPortName(*endpoint) + "'";
    separator = ", ";
  }
  return failure(error);
}

std::string VLEndpointList(const KVMIDICore::Endpoints& endpoints) {
  std::string text;
  for (const auto& endpoint : endpoints) {
    std::string id = std::to_string(endpoint->uniqueID());
    id.resize(std::max<std::size_t>(id.size(), 11), ' ');
    const std::string name = VLPortName(*endpoint);
    const std::string port = serverPortOf(*endpoint);
    text.append("  ").append(id).append("  ").append(store::printable(name));
    if (!port.empty() && port != name) {
      text.append("  (").append(store::printable(port)).append(")");
    }
    text += "\n";
  }
  return text.empty() ? "  none\n" : text;
}

}  // namespace velor
