// SPDX-License-Identifier: MIT
#include "Velor/devices/VLLTCGeneratorDevice.h"

#include <utility>

#include "Kv-Appkit/KVAnnouncement.h"
#include "Kv-Appkit/KVException.h"
#include "Kv-Appkit/KVRandom.h"
#include "Velor/devices/VLMIDIEndpointDevice.h"
#include "kva/MIDI/KVMIDICore.h"
#include "platform/host/Log.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"

namespace velor {

VLLTCGeneratorDevice::VLLTCGeneratorDevice(std::shared_ptr<KVLTCGenerator> generator,
                                           midi::MIDIUniqueID uniqueID)
    : VLTimecodeDestinationDevice(nullptr),
      mGenerator(std::move(generator)),
      // A stream keeps the parser for a while; the generator is the device's alone.
      mMTCParser(VLMTCParser::initWithCompletionBlock(
          [weak = std::weak_ptr(mGenerator)](const SMPTETime& time, std::uint64_t timestamp,
                                             double /*deviation*/) {
            if (const auto strong = weak.lock()) {
              strong->copyTime(time, timestamp);
            }
          })),
      mMIDIUniqueId(uniqueID),
      mGeneratingToken(mGenerator->addObserver("isGenerating", [this](const auto&) {
        const KVAnnouncement announcement(*this, "deviceStatus");
      })) {}

std::shared_ptr<VLLTCGeneratorDevice> VLLTCGeneratorDevice::initWithMIDIClient(
    midi::MIDIClientRef client, const std::string& name) {
  const std::shared_ptr<VLLTCGeneratorDevice> device(new VLLTCGeneratorDevice(
      KVLTCGenerator::initWithAudioObjectID(0, name), static_cast<midi::MIDIUniqueID>(KVRandom())));
  device->createInput(client, name);
  return device;
}

// The parser must not be read for any more when it goes.
VLLTCGeneratorDevice::~VLLTCGeneratorDevice() {
  mGeneratingToken.reset();
  try {
    destroy();
  } catch (const KVException& exception) {
    VELOR_LOG_ERROR("%s", exception.what());
  }
}

void VLLTCGeneratorDevice::createInput(midi::MIDIClientRef client, const std::string& name) {
  const auto endpoint = std::make_shared<KVMIDIEndpoint>(KVMIDICore::sharedCore().createDestination(
      client, name, &VLMTCParser::readPackets, mMTCParser.get(), mMIDIUniqueId));
  setDevice(VLMIDIEndpointDevice::deviceWithMIDIEndpoint(endpoint));
  endpoint->setReceivesMTC(true);
  endpoint->setTransmitsMTC(false);
  endpoint->setModel("Velor Generator (" VELOR_VERSION ")");
  VELOR_LOG_INFO("created MIDI Input '%s' [%d] for generator",
                 endpoint->displayName().value_or("(null)").c_str(), endpoint->uniqueID());
}

std::shared_ptr<VLLTCGeneratorDevice> VLLTCGeneratorDevice::initWithCoder(
    store::KeyedUnarchiver& coder) {
  auto generator = coder.decodeObject<KVLTCGenerator>(kGeneratorKey);
  if (generator == nullptr) {
    generator = KVLTCGenerator::initClosed();
  }
  const std::shared_ptr<VLLTCGeneratorDevice> device(
      new VLLTCGeneratorDevice(std::move(generator), coder.decodeInt32(kUniqueIDKey).value_or(0)));
  device->decodeBase(coder);
  // The stored input is of another run, or of a device that runs now.
  device->setDevice(nullptr);
  device->mStoredName = coder.decodeString(kNameKey).value_or("");
  return device;
}

void VLLTCGeneratorDevice::open() {
  mGenerator->setNickName(mStoredName);
  mGenerator->open();
  createInput(KVMIDICore::sharedCore().defaultClient(), mStoredName);
}

std::vector<KVObserverToken> VLLTCGeneratorDevice::observeEdits(
    const KVObservable::Observer& edited) {
  std::vector<KVObserverToken> tokens;
  for (const char* key : {"audioObjectId", "channelMap", "level", "userbits"}) {
    tokens.push_back(mGenerator->addObserver(key, edited));
  }
  return tokens;
}

void VLLTCGeneratorDevice::encodeWithCoder(store::KeyedArchiver& coder) const {
  VLTimecodeDestinationDevice::encodeWithCoder(coder);
  coder.encodeString(name().value_or(""), kNameKey);
  coder.encodeInt32(mMIDIUniqueId, kUniqueIDKey);
  coder.encodeObject(mGenerator, kGeneratorKey);
}

}  // namespace velor
