// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "kva/MIDI/KVMIDICore.h"
#include "platform/host/Error.h"

namespace velor {

/// The one endpoint that goes by `name`: its unique id, the full name of its port
/// on the server, or its display name, in this order. When none does, or several do, the error
/// lists in one line which there are.
Expected<std::shared_ptr<KVMIDIEndpoint>> VLEndpointNamed(const std::string& name,
                                                          const KVMIDICore::Endpoints& endpoints,
                                                          const char* kind);

/// One line an endpoint: id, display name, and the port's full name where that is
/// another.
std::string VLEndpointList(const KVMIDICore::Endpoints& endpoints);

/// The display name, or the id where there is none.
std::string VLPortName(const KVMIDIEndpoint& endpoint);

}  // namespace velor
