// SPDX-License-Identifier: MIT
#include "kva/MIDI/KVMIDIEndpoint.h"

#include <memory>
#include <utility>

#include "kva/MIDI/KVMIDICheck.h"
#include "platform/midi/MIDIService.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {

KVMIDIEndpoint::~KVMIDIEndpoint() {
  delete mDisplayName.load();
}

std::shared_ptr<KVMIDIEndpoint> KVMIDIEndpoint::initWithCoder(store::KeyedUnarchiver& coder) {
  const midi::MIDIUniqueID id = coder.decodeInt32(kUniqueIDKey).value_or(0);
  const std::optional<std::string> storedName = coder.decodeString(kDisplayNameKey);
  midi::MIDIObjectRef object = 0;
  if (midi::service().MIDIObjectFindByUniqueID(id, &object) != 0 || object == 0) {
    return nullptr;
  }
  auto endpoint = std::make_shared<KVMIDIEndpoint>(object);
  if (!endpoint->displayName() && storedName) {
    endpoint->keepDisplayName(*storedName);
    endpoint->setDisplayName(*storedName);
  }
  return endpoint;
}

void KVMIDIEndpoint::encodeWithCoder(store::KeyedArchiver& coder) const {
  coder.encodeInt32(uniqueID(), kUniqueIDKey);
  if (const auto name = displayName()) {
    coder.encodeString(*name, kDisplayNameKey);
  }
}

std::uint64_t KVMIDIEndpoint::hash() const noexcept {
  std::uint64_t hash = mHash.load();
  if (hash == 0) {
    // Another thread may get here first; all must see the same one.
    const std::uint64_t now = endpoint();
    hash = mHash.compare_exchange_strong(hash, now) ? now : hash;
  }
  return hash;
}

std::string KVMIDIEndpoint::description() const {
  const std::string* name = mDisplayName.load();
  const bool isKnown = name != nullptr && !name->empty();
  return (isKnown ? *name : "<unknown>") + " [" + std::to_string(mId.load()) + "]";
}

midi::MIDIUniqueID KVMIDIEndpoint::uniqueID() const {
  midi::MIDIUniqueID id = mId.load();
  if (id == 0) {
    KVMIDICheck("-[KVMIDIEndpoint uniqueID]", [this, &id] {
      return midi::service().MIDIObjectGetIntegerProperty(endpoint(), midi::kMIDIPropertyUniqueID,
                                                          &id);
    });
    mId.store(id);
  }
  return id;
}

const std::string* KVMIDIEndpoint::keepDisplayName(std::string name) const {
  auto mine = std::make_unique<const std::string>(std::move(name));
  const std::string* kept = nullptr;
  if (mDisplayName.compare_exchange_strong(kept, mine.get())) {
    return mine.release();
  }
  return kept;  // another thread's, which may be read already
}

std::optional<std::string> KVMIDIEndpoint::displayName() const {
  const std::string* known = mDisplayName.load();
  if (known == nullptr) {
    std::string name;
    const midi::OSStatus status = midi::service().MIDIObjectGetStringProperty(
        endpoint(), midi::kMIDIPropertyDisplayName, &name);
    // Other failures count for no more than what they left behind.
    if (status == midi::kMIDIUnknownProperty || (status != 0 && name.empty())) {
      return std::nullopt;
    }
    known = keepDisplayName(std::move(name));
  }
  return *known;
}

void KVMIDIEndpoint::setDisplayName(const std::string& displayName) {
  KVMIDICheck("-[KVMIDIEndpoint setDisplayName:]", [this, &displayName] {
    return midi::service().MIDIObjectSetStringProperty(endpoint(), midi::kMIDIPropertyDisplayName,
                                                       displayName);
  });
}

std::optional<std::string> KVMIDIEndpoint::model() const {
  std::string model;
  bool isUnknown = false;
  KVMIDICheck("-[KVMIDIEndpoint model]", [this, &model, &isUnknown] {
    const midi::OSStatus status =
        midi::service().MIDIObjectGetStringProperty(endpoint(), midi::kMIDIPropertyModel, &model);
    isUnknown = status == midi::kMIDIUnknownProperty;
    return isUnknown ? 0 : status;
  });
  return isUnknown ? std::nullopt : std::optional(std::move(model));
}

void KVMIDIEndpoint::setModel(const std::string& model) {
  KVMIDICheck("-[KVMIDIEndpoint setModel:]", [this, &model] {
    return midi::service().MIDIObjectSetStringProperty(endpoint(), midi::kMIDIPropertyModel, model);
  });
}

bool KVMIDIEndpoint::flag(midi::MIDIProperty property, const char* method) const {
  std::int32_t value = 0;
  KVMIDICheck(method, [this, property, &value] {
    return midi::service().MIDIObjectGetIntegerProperty(endpoint(), property, &value);
  });
  return value != 0;
}

void KVMIDIEndpoint::setFlag(midi::MIDIProperty property, bool value, const char* method) {
  KVMIDICheck(method, [this, property, value] {
    return midi::service().MIDIObjectSetIntegerProperty(endpoint(), property, value ? 1 : 0);
  });
}

bool KVMIDIEndpoint::receivesMTC() const {
  return flag(midi::kMIDIPropertyReceivesMTC, "-[KVMIDIEndpoint receivesMTC]");
}

void KVMIDIEndpoint::setReceivesMTC(bool receivesMTC) {
  setFlag(midi::kMIDIPropertyReceivesMTC, receivesMTC, "-[KVMIDIEndpoint setReceivesMTC:]");
}

bool KVMIDIEndpoint::transmitsMTC() const {
  return flag(midi::kMIDIPropertyTransmitsMTC, "-[KVMIDIEndpoint transmitsMTC]");
}

void KVMIDIEndpoint::setTransmitsMTC(bool transmitsMTC) {
  setFlag(midi::kMIDIPropertyTransmitsMTC, transmitsMTC, "-[KVMIDIEndpoint setTransmitsMTC:]");
}

void KVMIDIEndpoint::dispose() {
  KVMIDICheck("-[KVMIDIEndpoint dispose]",
              [this] { return midi::service().MIDIEndpointDispose(endpoint()); });
  mEndpoint.store(0);
}

}  // namespace velor
