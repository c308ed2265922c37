// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "platform/midi/MIDIOutside.h"
#include "platform/midi/MIDITypes.h"

namespace velor::midi {

/// The clients, ports and endpoints of a MIDI service with their properties, found by
/// reference, by unique id, by place in a list, and those of the outside by the name of
/// their port. The owner's lock guards it.
class MIDIObjects {
 public:
  enum class Type : std::uint8_t { client, outputPort, inputPort, source, destination };

  struct Object {
    Type type;
    std::string name;
    MIDIClientRef client = 0;  // the owner of ports and virtual endpoints
    bool outside = false;
    bool present = true;                  // of the outside: is there now
    std::optional<ReceiverRef> receiver;  // input ports and virtual destinations
    MIDINotifyProc notifyProc = nullptr;  // clients
    void* notifyRefCon = nullptr;         // clients
    std::map<std::string, std::variant<std::int32_t, std::string>, std::less<>> properties;

    bool isEndpoint() const { return type == Type::source || type == Type::destination; }
  };
  /// By reference, which is the order of creation, too.
  using Map = std::map<MIDIObjectRef, Object>;

  /// The id of an endpoint of the outside by the name of its port: the same in
  /// every run, and never 0.
  static MIDIUniqueID uniqueIDOfPort(const std::string& portName) noexcept;

  const Map& all() const { return mObjects; }
  /// Null for a reference to nothing.
  Object* find(MIDIObjectRef ref);
  /// Null for an object of another type, too.
  Object* find(MIDIObjectRef ref, Type type);

  MIDIObjectRef add(Type type, const std::string& name);
  /// A virtual endpoint; its id is made of its name.
  MIDIEndpointRef addEndpoint(Type type, const std::string& name);
  /// The endpoint of the outside that has this port, made when it is new; not present
  /// then. It keeps its reference and id over its absence.
  MIDIEndpointRef endpointOfPort(Type type, const std::string& portName);
  /// Whether an endpoint of the outside is there; gives what it was.
  bool setPresent(Object& endpoint, bool present);
  void erase(MIDIObjectRef ref);

  /// The sources, or the destinations, that are present.
  const std::vector<MIDIEndpointRef>& present(Type type);
  /// The object that has this id and is present; 0 when there is none.
  MIDIObjectRef withUniqueID(MIDIUniqueID id) const;

  template <class Value>
  OSStatus getProperty(MIDIObjectRef ref, MIDIProperty property, Value* value) {
    const Object* object = find(ref);
    if (object == nullptr) {
      return kMIDIObjectNotFound;
    }
    const auto it = object->properties.find(property);
    if (it == object->properties.end()) {
      return kMIDIUnknownProperty;
    }
    const auto* found = std::get_if<Value>(&it->second);
    if (found == nullptr) {
      return kMIDIWrongPropertyType;
    }
    *value = *found;
    return 0;
  }

  template <class Value>
  OSStatus setProperty(MIDIObjectRef ref, MIDIProperty property, const Value& value) {
    Object* object = find(ref);
    if (object == nullptr) {
      return kMIDIObjectNotFound;
    }
    const auto it = object->properties.find(property);
    if (it != object->properties.end() && !std::holds_alternative<Value>(it->second)) {
      return kMIDIWrongPropertyType;
    }
    if (property == kMIDIPropertyUniqueID) {
      if constexpr (std::is_same_v<Value, std::int32_t>) {
        return setUniqueID(ref, *object, value) ? 0 : kMIDIIDNotUnique;
      } else {
        return kMIDIWrongPropertyType;
      }
    }
    object->properties.insert_or_assign(std::string(property), value);
    return 0;
  }

 private:
  // False when it is 0 or another object's.
  bool setUniqueID(MIDIObjectRef ref, Object& object, MIDIUniqueID id);

  MIDIObjectRef mNextRef = 1;
  Map mObjects;
  std::map<MIDIUniqueID, MIDIObjectRef> mByID;
  std::map<std::pair<Type, std::string>, MIDIEndpointRef> mByPort;
  // Sources and destinations, made when asked for; none after a change.
  std::array<std::optional<std::vector<MIDIEndpointRef>>, 2> mPresent;
};

}  // namespace velor::midi
