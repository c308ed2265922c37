// SPDX-License-Identifier: MIT
#include "platform/midi/builtin/MIDIObjects.h"

namespace velor::midi {

MIDIUniqueID MIDIObjects::uniqueIDOfPort(const std::string& portName) noexcept {
  // FNV-1a, 32 bits.
  std::uint32_t hash = 2166136261U;
  for (const char c : portName) {
    hash = (hash ^ static_cast<std::uint8_t>(c)) * 16777619U;
  }
  return hash == 0 ? 1 : static_cast<MIDIUniqueID>(hash);
}

MIDIObjects::Object* MIDIObjects::find(MIDIObjectRef ref) {
  const auto it = mObjects.find(ref);
  return it != mObjects.end() ? &it->second : nullptr;
}

MIDIObjects::Object* MIDIObjects::find(MIDIObjectRef ref, Type type) {
  Object* object = find(ref);
  return object != nullptr && object->type == type ? object : nullptr;
}

MIDIObjectRef MIDIObjects::add(Type type, const std::string& name) {
  const MIDIObjectRef ref = mNextRef++;
  Object& object = mObjects[ref];
  object.type = type;
  object.name = name;
  object.properties[std::string(kMIDIPropertyName)] = name;
  return ref;
}

MIDIEndpointRef MIDIObjects::addEndpoint(Type type, const std::string& name) {
  const MIDIEndpointRef ref = add(type, name);
  Object& object = mObjects[ref];
  MIDIUniqueID id = uniqueIDOfPort(name);
  while (!setUniqueID(ref, object, id)) {
    id = static_cast<MIDIUniqueID>(static_cast<std::uint32_t>(id) + 1);
  }
  object.properties[std::string(kMIDIPropertyDisplayName)] = name;
  object.properties[std::string(kMIDIPropertyReceivesMTC)] = 0;
  object.properties[std::string(kMIDIPropertyTransmitsMTC)] = 0;
  mPresent = {};
  return ref;
}

MIDIEndpointRef MIDIObjects::endpointOfPort(Type type, const std::string& portName) {
  MIDIEndpointRef& ref = mByPort[{type, portName}];
  if (ref == 0) {
    ref = addEndpoint(type, portName);
    Object& object = mObjects[ref];
    object.outside = true;
    object.present = false;
    object.properties[std::string(kMIDIPropertyServerPort)] = portName;
  }
  return ref;
}

bool MIDIObjects::setPresent(Object& endpoint, bool present) {
  if (endpoint.present != present) {
    mPresent = {};
  }
  return std::exchange(endpoint.present, present);
}

void MIDIObjects::erase(MIDIObjectRef ref) {
  const auto it = mObjects.find(ref);
  if (it == mObjects.end()) {
    return;
  }
  const auto id = it->second.properties.find(kMIDIPropertyUniqueID);
  if (id != it->second.properties.end()) {
    mByID.erase(std::get<std::int32_t>(id->second));
  }
  mObjects.erase(it);
  mPresent = {};
}

const std::vector<MIDIEndpointRef>& MIDIObjects::present(Type type) {
  auto& list = mPresent[type == Type::source ? 0 : 1];
  if (!list) {
    list.emplace();
    for (const auto& [ref, object] : mObjects) {
      if (object.type == type && object.present) {
        list->push_back(ref);
      }
    }
  }
  return *list;
}

MIDIObjectRef MIDIObjects::withUniqueID(MIDIUniqueID id) const {
  const auto it = mByID.find(id);
  return it != mByID.end() && mObjects.at(it->second).present ? it->second : 0;
}

bool MIDIObjects::setUniqueID(MIDIObjectRef ref, Object& object, MIDIUniqueID id) {
  if (id == 0 || mByID.try_emplace(id, ref).first->second != ref) {
    return false;
  }
  const auto former = object.properties.find(kMIDIPropertyUniqueID);
  if (former != object.properties.end() && std::get<std::int32_t>(former->second) != id) {
    mByID.erase(std::get<std::int32_t>(former->second));
  }
  object.properties.insert_or_assign(std::string(kMIDIPropertyUniqueID), id);
  return true;
}

}  // namespace velor::midi
