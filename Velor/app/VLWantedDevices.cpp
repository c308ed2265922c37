// SPDX-License-Identifier: MIT
#include "Velor/app/VLWantedDevices.h"

#include <algorithm>

#include "Velor/app/VLAppDelegate.h"
#include "Velor/app/VLAudioDevices.h"
#include "Velor/app/VLPortNames.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/devices/VLLTCGeneratorDevice.h"
#include "Velor/devices/VLLTCReaderDevice.h"
#include "kva/MIDI/KVMIDICore.h"

namespace velor {
namespace {

bool isPresent(midi::MIDIUniqueID id, const KVMIDICore::Endpoints& endpoints) {
  return std::any_of(endpoints.begin(), endpoints.end(),
                     [id](const auto& endpoint) { return endpoint->uniqueID() == id; });
}

// A loop that was found, or the user, may have switched off what the command line names.
bool isSwitchedOn(midi::MIDIUniqueID id, const VLDeviceManager& manager) {
  const auto destinations = manager.destinations();
  return std::any_of(destinations.begin(), destinations.end(), [id](const auto& destination) {
    const auto endpoint = destination->midiEndpoint();
    return destination->enable() && endpoint != nullptr && endpoint->uniqueID() == id;
  });
}

// Which of a device's channels carries the one signal.
std::vector<std::int32_t> mapTo(std::uint32_t channel, std::uint32_t channels) {
  std::vector<std::int32_t> map(channels, -1);
  map[channel] = 0;
  return map;
}

bool playsAt(const KVLTCGenerator& generator, audio::AudioObjectID deviceID,
             const std::vector<std::int32_t>& map) {
  std::vector<std::int32_t> own(generator.lengthOfChannelMap());
  generator.getChannelMap(own);
  return generator.audioObjectId() == deviceID && own == map;
}

}  // namespace

VLWantedDevices::Port VLWantedDevices::port(const KVMIDIEndpoint& endpoint) {
  return {endpoint.uniqueID(), VLPortName(endpoint)};
}

std::optional<VLWantedDevices> VLWantedDevices::find(const VLOptions& options, std::string& error) {
  const KVMIDICore& core = KVMIDICore::sharedCore();
  VLWantedDevices wanted;
  const auto fails = [&error](const char* option) {
    error = std::string(option) + ": " + error;
    return std::nullopt;
  };
  const auto channelOf = [](const VLAudioChannel& channel) {
    return Channel{channel.name, channel.device->objectID(), channel.channel - 1, channel.channels};
  };
  for (const std::string& name : options.mtcOut) {
    const auto endpoint = VLEndpointNamed(name, core.destinations(), "destination", error);
    if (endpoint == nullptr) {
      return fails("--mtc-out");
    }
    wanted.mDestinations.push_back(port(*endpoint));
  }
  if (options.syncSource) {
    const auto endpoint = VLEndpointNamed(*options.syncSource, core.sources(), "source", error);
    if (endpoint != nullptr) {
      wanted.mSource = port(*endpoint);
    } else if (!options.ltcIn) {
      return fails("--sync-source");
    }  // else the reader's own, which `apply` makes
  }
  KAHALAudioSystem& audio = KAHALAudioSystem::defaultSystem();
  for (const std::string& name : options.ltcOut) {
    const auto found =
        VLAudioChannelNamed(name, audio::kAudioObjectPropertyScopeOutput, audio, error);
    if (found.device == nullptr) {
      return fails("--ltc-out");
    }
    const Channel channel = channelOf(found);
    for (const Channel& other : wanted.mOutputs) {
      if (other.deviceID == channel.deviceID && other.channel == channel.channel) {
        error = "'" + channel.name + "' is named twice";
        return fails("--ltc-out");
      }
    }
    wanted.mOutputs.push_back(channel);
  }
  if (options.ltcIn) {
    const auto found =
        VLAudioChannelNamed(*options.ltcIn, audio::kAudioObjectPropertyScopeInput, audio, error);
    if (found.device == nullptr) {
      return fails("--ltc-in");
    }
    wanted.mInput = channelOf(found);
  }
  return wanted;
}

bool VLWantedDevices::apply(VLAppDelegate& app, const VLOptions& options, std::string& error) {
  VLDeviceManager& manager = VLDeviceManager::sharedManager();
  for (const Channel& output : mOutputs) {
    const std::vector<std::int32_t> map = mapTo(output.channel, output.channels);
    std::shared_ptr<VLLTCGeneratorDevice> device;
    for (const auto& each : manager.devices()) {
      const auto generator = std::dynamic_pointer_cast<VLLTCGeneratorDevice>(each);
      if (generator != nullptr && playsAt(*generator->generator(), output.deviceID, map)) {
        device = generator;
      }
    }
    const bool isNew = device == nullptr;
    if (isNew) {
      device = manager.createGenerator();
      device->generator()->setAudioObjectId(output.deviceID);
      device->generator()->setChannelMap(map);
      // The news of its input would come later, and the clock may be about to start.
      KVMIDICore::sharedCore().resyncDeviceList();
      manager.destinationsChanged();
    }
    if (isNew || options.ltcLevel) {
      device->generator()->setLevel(options.ltcLevel.value_or(VLOptions::kLTCLevel));
    }
    if (isNew || options.ltcUserBits) {
      device->generator()->setUserbits(options.ltcUserBits.value_or(0));
    }
    if (const auto destination = manager.destinationWithEndpoint(device->midiEndpoint())) {
      destination->setEnable(true);
    }
    mGenerators.push_back(device->generator());
  }
  if (mInput) {
    for (const auto& each : manager.devices()) {
      const auto reader = std::dynamic_pointer_cast<VLLTCReaderDevice>(each);
      // One whose own device is away leaves for that when it returns.
      if (reader != nullptr && reader->isOnChosenDevice() &&
          reader->audioObjectId() == mInput->deviceID && reader->channel() == mInput->channel) {
        mReader = reader;
      }
    }
    const bool isNew = mReader == nullptr;
    if (isNew) {
      mReader = manager.createrReader();
      mReader->setAudioObjectId(mInput->deviceID);
      mReader->setChannel(mInput->channel);
    }
    if (isNew || options.freewheel) {
      mReader->setFreewheelTime(options.freewheel.value_or(VLOptions::kFreewheel));
    }
  }
  for (const Port& port : mDestinations) {
    for (const auto& destination : manager.destinations()) {
      const auto endpoint = destination->midiEndpoint();
      if (endpoint != nullptr && endpoint->uniqueID() == port.uniqueID) {
        destination->setEnable(true);
      }
    }
  }
  if (options.syncSource && !mSource) {
    KVMIDICore::sharedCore().resyncDeviceList();
    const auto own =
        VLEndpointNamed(*options.syncSource, KVMIDICore::sharedCore().sources(), "source", error);
    if (own == nullptr) {
      error = "--sync-source: " + error;
      return false;
    }
    mSource = port(*own);
  }
  if (mSource) {
    app.setSyncSource(KVMIDICore::sharedCore().sourceWithUniqueId(mSource->uniqueID));
  }
  return true;
}

void VLWantedDevices::willFollowSetup(const VLAppDelegate& app) {
  const auto source = app.syncSource();
  if (mSource && source != nullptr && source->uniqueID() == mSource->uniqueID &&
      !isPresent(mSource->uniqueID, KVMIDICore::sharedCore().sources())) {
    mRearms = app.clock().armed();
  }
}

bool VLWantedDevices::didFollowSetup(VLAppDelegate& app) {
  // A play has put its source aside, and its stop brings it back.
  if (!mSource || app.syncSource() != nullptr || app.clock().running()) {
    return false;
  }
  const auto source = KVMIDICore::sharedCore().sourceWithUniqueId(mSource->uniqueID);
  if (source == nullptr) {
    return false;
  }
  app.setSyncSource(source);
  if (std::exchange(mRearms, false)) {
    app.clock().arm();
  }
  return true;
}

std::shared_ptr<VLLTCReaderDevice> VLWantedDevices::reader() const {
  if (mReader != nullptr) {
    return mReader;
  }
  for (const auto& device : VLDeviceManager::sharedManager().devices()) {
    if (auto reader = std::dynamic_pointer_cast<VLLTCReaderDevice>(device)) {
      return reader;
    }
  }
  return nullptr;
}

void VLWantedDevices::keepChannel() {
  // A change of the device's rate sets it back.
  if (mReader != nullptr && mReader->audioObjectId() == mInput->deviceID) {
    mReader->setChannel(mInput->channel);
  }
}

void VLWantedDevices::describe(VLStatus& status) const {
  const KVMIDICore& core = KVMIDICore::sharedCore();
  const VLDeviceManager& manager = VLDeviceManager::sharedManager();
  const auto source = VLClock::sharedClock().MIDISyncSource();
  if (mSource && !isPresent(mSource->uniqueID, core.sources())) {
    status.source = {mSource->name, false};
  } else if (source != nullptr) {
    status.source = {VLPortName(*source), true};
  }
  for (const Port& port : mDestinations) {
    const bool present = isPresent(port.uniqueID, core.destinations());
    if (!present || isSwitchedOn(port.uniqueID, manager)) {
      status.destinations.push_back({port.name, present});
    }
  }
  const VLDeviceManager::Devices devices = manager.devices();
  const auto isOwn = [&devices](const KVMIDIEndpoint& endpoint) {
    return std::any_of(devices.begin(), devices.end(), [&endpoint](const auto& device) {
      const auto own = device->midiEndpoint();
      return own != nullptr && own->isEqual(endpoint);
    });
  };
  for (const auto& destination : manager.destinations()) {
    const auto endpoint = destination->midiEndpoint();
    const bool isNamed =
        endpoint != nullptr &&
        std::any_of(mDestinations.begin(), mDestinations.end(), [&endpoint](const Port& port) {
          return port.uniqueID == endpoint->uniqueID();
        });
    if (destination->enable() && endpoint != nullptr && !isNamed && !isOwn(*endpoint)) {
      status.destinations.push_back({VLPortName(*endpoint), true});
    }
  }
  for (const auto& device : devices) {
    const auto generatorDevice = std::dynamic_pointer_cast<VLLTCGeneratorDevice>(device);
    if (generatorDevice == nullptr) {
      continue;
    }
    const auto& generator = generatorDevice->generator();
    const auto named = std::find(mGenerators.begin(), mGenerators.end(), generator);
    VLNamedPort port{generatorDevice->name().value_or("?"), generator->audioObjectId() != 0};
    if (named != mGenerators.end()) {
      const Channel& output = mOutputs[static_cast<std::size_t>(named - mGenerators.begin())];
      port = {output.name, generator->audioObjectId() == output.deviceID};
    }
    status.ltc.push_back({std::move(port), generator->frameRateString()});
  }
  if (const auto reader = this->reader()) {
    status.ltcIn = {mReader != nullptr
                        ? VLNamedPort{mInput->name, reader->audioObjectId() == mInput->deviceID}
                        : VLNamedPort{reader->name().value_or("?"), reader->audioObjectId() != 0},
                    {},
                    reader->getLatestSpeed(),
                    reader->userbits(),
                    reader->deviceStatus()};
  }
}

}  // namespace velor
