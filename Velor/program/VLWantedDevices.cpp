// SPDX-License-Identifier: MIT
#include "Velor/program/VLWantedDevices.h"

#include <algorithm>

#include "Kv-Appkit/KVException.h"
#include "Velor/app/VLAppDelegate.h"
#include "Velor/devices/VLDeviceManager.h"
#include "Velor/devices/VLLTCGeneratorDevice.h"
#include "Velor/devices/VLLTCReaderDevice.h"
#include "Velor/program/VLAudioDevices.h"
#include "Velor/program/VLPortNames.h"
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

// Whether the signal goes to a channel that is there.
bool isMapped(const KVLTCGenerator& generator) {
  std::vector<std::int32_t> map(generator.lengthOfChannelMap());
  generator.getChannelMap(map);
  return std::find(map.begin(), map.end(), 0) != map.end();
}

// With the device that stands in for a missing one.
VLNamedPort audioPort(const std::string& name, bool present, audio::AudioObjectID deviceID) {
  VLNamedPort port{name, present, {}};
  if (!present && deviceID != audio::kAudioObjectUnknown) {
    try {
      port.standIn = KAHALAudioDevice::initWithAudioObjectID(deviceID)->name().value_or("?");
    } catch (const KVException&) {
      // That one has gone, too.
    }
  }
  return port;
}

}  // namespace

VLWantedDevices::VLWantedDevices(const VLOptions& options) : mOptions(options) {
  for (const std::string& text : options.mtcOut) {
    mDestinations.emplace_back(text);
  }
  for (const std::string& text : options.ltcOut) {
    mOutputs.emplace_back(text);
  }
  mGenerators.resize(mOutputs.size());
  if (options.syncSource) {
    mSource.emplace(*options.syncSource);
  }
  if (options.ltcIn) {
    mInput.emplace(*options.ltcIn);
  }
}

// --- finding ---

Expected<VLWantedDevices> VLWantedDevices::find(const VLOptions& options) {
  VLWantedDevices wanted(options);
  wanted.findMissing();
  // `apply` may make the source, as the reader's port.
  const auto missing = wanted.missing(!options.ltcIn);
  if (!missing.empty() && !options.wait) {
    return failure(missing.front());
  }
  return wanted;
}

void VLWantedDevices::findMissing() {
  for (auto& destination : mDestinations) {
    findPort(destination, false);
  }
  if (mSource) {
    findPort(*mSource, true);
  }
  for (auto& output : mOutputs) {
    findChannel(output, audio::AudioDirection::output);
  }
  if (mInput) {
    findChannel(*mInput, audio::AudioDirection::input);
  }
}

void VLWantedDevices::findPort(Wanted<Port>& wanted, bool isSource) {
  if (wanted.found) {
    return;
  }
  const KVMIDICore& core = KVMIDICore::sharedCore();
  const auto endpoint =
      VLEndpointNamed(wanted.text, isSource ? core.sources() : core.destinations(),
                      isSource ? "source" : "destination");
  if (!endpoint) {
    wanted.problem.text = (isSource ? "--sync-source: " : "--mtc-out: ") + endpoint.error().text;
    return;
  }
  wanted.found = Port{(*endpoint)->uniqueID(), VLPortName(**endpoint)};
}

void VLWantedDevices::findChannel(Wanted<Channel>& wanted, audio::AudioDirection scope) {
  if (wanted.found) {
    return;
  }
  const char* option = scope == audio::AudioDirection::input ? "--ltc-in: " : "--ltc-out: ";
  const auto named = VLAudioChannelNamed(wanted.text, scope, KAHALAudioSystem::defaultSystem());
  if (!named) {
    wanted.problem.text = option + named.error().text;
    return;
  }
  const Channel channel{named->name, named->device->objectID(), named->channel - 1, named->channels,
                        named->port};
  const bool isTwice =
      &wanted != &*mInput &&
      std::any_of(mOutputs.begin(), mOutputs.end(), [&](const Wanted<Channel>& other) {
        return other.found && other.found->deviceID == channel.deviceID &&
               other.found->channel == channel.channel;
      });
  if (isTwice) {
    wanted.problem.text = option + ("'" + channel.name + "' is named twice");
    return;
  }
  wanted.found = channel;
}

std::vector<std::string> VLWantedDevices::missing(bool withSource) const {
  std::vector<std::string> problems;
  const auto add = [&problems]<class Found>(const Wanted<Found>& wanted) {
    if (!wanted.found) {
      problems.push_back(wanted.problem.text);
    }
  };
  std::for_each(mDestinations.begin(), mDestinations.end(), add);
  if (mSource && withSource) {
    add(*mSource);
  }
  std::for_each(mOutputs.begin(), mOutputs.end(), add);
  if (mInput) {
    add(*mInput);
  }
  return problems;
}

// --- taking what was found ---

Expected<> VLWantedDevices::apply(VLAppDelegate& app) {
  takeFound();
  if (!mSource) {
    return {};
  }
  if (!mSource->found) {
    KVMIDICore::sharedCore().resyncDeviceList();
    findPort(*mSource, true);
  }
  if (!mSource->found && !mOptions.wait) {
    return tl::unexpected(mSource->problem);
  }
  // While the named one is missing the clock follows no other.
  app.setSyncSource(mSource->found
                        ? KVMIDICore::sharedCore().sourceWithUniqueId(mSource->found->uniqueID)
                        : nullptr);
  mArmsOnReturn = mOptions.arm && app.syncSource() == nullptr;
  return {};
}

void VLWantedDevices::takeFound() {
  for (std::size_t i = 0; i < mOutputs.size(); ++i) {
    if (mOutputs[i].isReady()) {
      mGenerators[i] = takeOutput(*mOutputs[i].found);
      mOutputs[i].isInUse = true;
    }
  }
  if (mInput && mInput->isReady()) {
    takeInput(*mInput->found);
    mInput->isInUse = true;
  }
  for (auto& destination : mDestinations) {
    if (destination.isReady()) {
      destination.isInUse = switchOn(destination.found->uniqueID);
    }
  }
}

std::shared_ptr<KVLTCGenerator> VLWantedDevices::takeOutput(const Channel& output) {
  VLDeviceManager& manager = VLDeviceManager::sharedManager();
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
    if (!mOptions.keep) {
      manager.makeTemporary(*device);
    }
    // The notification of its input would come later, and the clock may be about to start.
    KVMIDICore::sharedCore().resyncDeviceList();
  }
  if (isNew || mOptions.ltcLevel) {
    device->generator()->setLevel(mOptions.ltcLevel.value_or(VLOptions::kLTCLevel));
  }
  if (isNew || mOptions.ltcUserBits) {
    device->generator()->setUserbits(mOptions.ltcUserBits.value_or(0));
  }
  switchOn(device->midiEndpoint()->uniqueID());
  return device->generator();
}

void VLWantedDevices::takeInput(const Channel& input) {
  VLDeviceManager& manager = VLDeviceManager::sharedManager();
  for (const auto& each : manager.devices()) {
    const auto reader = std::dynamic_pointer_cast<VLLTCReaderDevice>(each);
    // One whose own device is missing leaves for that when it returns.
    if (reader != nullptr && reader->isOnChosenDevice() &&
        reader->audioObjectId() == input.deviceID && reader->channel() == input.channel) {
      mReader = reader;
    }
  }
  const bool isNew = mReader == nullptr;
  if (isNew) {
    mReader = manager.createrReader();
    mReader->setAudioObjectId(input.deviceID);
    mReader->setChannel(input.channel);
    if (!mOptions.keep) {
      manager.makeTemporary(*mReader);
    }
  }
  if (isNew || mOptions.freewheel) {
    mReader->setFreewheelTime(mOptions.freewheel.value_or(VLOptions::kFreewheel));
  }
  if (mOptions.ltcCondition) {
    mReader->setConditionsInput(*mOptions.ltcCondition);
  }
}

bool VLWantedDevices::switchOn(midi::MIDIUniqueID uniqueID) {
  VLDeviceManager& manager = VLDeviceManager::sharedManager();
  // It may have appeared a moment ago; the manager is notified later.
  manager.destinationsChanged();
  bool isThere = false;
  for (const auto& destination : manager.destinations()) {
    const auto endpoint = destination->midiEndpoint();
    if (endpoint == nullptr || endpoint->uniqueID() != uniqueID) {
      continue;
    }
    if (mOptions.keep) {
      destination->setEnable(true);
    } else {
      manager.enableTemporarily(*destination);
    }
    isThere = true;
  }
  return isThere;
}

// --- following ---

void VLWantedDevices::willFollowSetup(const VLAppDelegate& app) {
  const auto source = app.syncSource();
  if (mSource && mSource->found && source != nullptr &&
      source->uniqueID() == mSource->found->uniqueID &&
      !isPresent(mSource->found->uniqueID, KVMIDICore::sharedCore().sources())) {
    mArmsOnReturn = app.clock().armed();
  }
}

bool VLWantedDevices::follow(VLAppDelegate& app) {
  findMissing();
  takeFound();
  // A play has put its source aside, and its stop brings it back.
  if (!mSource || !mSource->found || app.syncSource() != nullptr || app.clock().running()) {
    return false;
  }
  const auto source = KVMIDICore::sharedCore().sourceWithUniqueId(mSource->found->uniqueID);
  if (source == nullptr) {
    return false;
  }
  app.setSyncSource(source);
  if (std::exchange(mArmsOnReturn, false)) {
    app.clock().arm();
  }
  return true;
}

std::shared_ptr<VLLTCReaderDevice> VLWantedDevices::reader() const {
  if (mInput) {
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
  if (mReader == nullptr || mReader->audioObjectId() != mInput->found->deviceID) {
    return;
  }
  // A change of the device's rate resets it.
  try {
    const auto ports = KAHALAudioDevice::initWithAudioObjectID(mInput->found->deviceID)
                           ->portNamesInScope(audio::AudioDirection::input);
    const auto port = std::find(ports.begin(), ports.end(), mInput->found->port);
    if (port != ports.end()) {
      mReader->setChannel(static_cast<std::uint32_t>(port - ports.begin()));
    }
  } catch (const KVException&) {
    // The device has gone again.
  }
}

// --- the status line ---

void VLWantedDevices::describe(VLStatus& status) const {
  const auto source = VLClock::sharedClock().MIDISyncSource();
  const auto sources = KVMIDICore::sharedCore().sources();
  if (mSource && !(mSource->found && isPresent(mSource->found->uniqueID, sources))) {
    status.source = {mSource->name(), false, {}};
  } else if (source != nullptr) {
    status.source = {VLPortName(*source), true, {}};
  }
  describeDestinations(status);
  for (const auto& device : VLDeviceManager::sharedManager().devices()) {
    if (const auto generator = std::dynamic_pointer_cast<VLLTCGeneratorDevice>(device)) {
      status.ltc.push_back(describe(*generator));
    }
  }
  for (const auto& output : mOutputs) {
    if (!output.found) {
      status.ltc.push_back({{output.text, false, {}}, "-- fps"});
    }
  }
  if (const auto reader = this->reader()) {
    status.ltcIn = {audioPort(mInput ? mInput->name() : reader->name().value_or("?"),
                              reader->isOnChosenDevice(), reader->audioObjectId()),
                    {},
                    reader->getLatestSpeed(),
                    reader->userbits(),
                    reader->deviceStatus()};
  } else if (mInput) {
    status.ltcIn.emplace().port = {mInput->name(), false, {}};
  }
}

void VLWantedDevices::describeDestinations(VLStatus& status) const {
  const VLDeviceManager& manager = VLDeviceManager::sharedManager();
  const auto present = KVMIDICore::sharedCore().destinations();
  for (const auto& port : mDestinations) {
    const bool isThere = port.found && isPresent(port.found->uniqueID, present);
    if (!isThere || isSwitchedOn(port.found->uniqueID, manager)) {
      status.destinations.push_back({port.name(), isThere, {}});
    }
  }
  const VLDeviceManager::Devices devices = manager.devices();
  const auto isOwn = [&devices](const KVMIDIEndpoint& endpoint) {
    return std::any_of(devices.begin(), devices.end(), [&endpoint](const auto& device) {
      const auto own = device->midiEndpoint();
      return own != nullptr && own->isEqual(endpoint);
    });
  };
  const auto isNamed = [this](const KVMIDIEndpoint& endpoint) {
    return std::any_of(mDestinations.begin(), mDestinations.end(),
                       [&endpoint](const Wanted<Port>& port) {
                         return port.found && port.found->uniqueID == endpoint.uniqueID();
                       });
  };
  for (const auto& destination : manager.destinations()) {
    const auto endpoint = destination->midiEndpoint();
    if (destination->enable() && endpoint != nullptr && !isNamed(*endpoint) && !isOwn(*endpoint)) {
      status.destinations.push_back({VLPortName(*endpoint), true, {}});
    }
  }
}

VLLTCOutput VLWantedDevices::describe(const VLLTCGeneratorDevice& device) const {
  const auto& generator = device.generator();
  const auto named = std::find(mGenerators.begin(), mGenerators.end(), generator);
  VLNamedPort port = audioPort(device.name().value_or("?"), generator->isOnChosenDevice(),
                               generator->audioObjectId());
  if (named != mGenerators.end()) {
    port.name = mOutputs[static_cast<std::size_t>(named - mGenerators.begin())].name();
    port.present = port.present && isMapped(*generator);
  }
  return {std::move(port), generator->frameRateString()};
}

}  // namespace velor
