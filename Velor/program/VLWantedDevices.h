// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Velor/program/VLOptions.h"
#include "Velor/program/VLStatusLine.h"
#include "kva/MIDI/KVMIDIEndpoint.h"
#include "platform/audio/AudioTypes.h"
#include "platform/host/Error.h"
#include "platform/midi/MIDITypes.h"

namespace velor {

class KVLTCGenerator;
class VLAppDelegate;
class VLLTCGeneratorDevice;
class VLLTCReaderDevice;

/// The MIDI ports and audio channels that the command line names: finds each, switches it
/// on or makes its generator or reader, and reconnects the sync source when it returns.
/// Queue: main.
class VLWantedDevices {
 public:
  /// Finds all of them. Fails when one is missing; with --wait a missing one is left for
  /// `follow`.
  static Expected<VLWantedDevices> find(const VLOptions& options);

  /// Switches on and makes those that were found; a generator or a reader that already has
  /// the channel is used. Without --keep what this adds is not saved. Fails when the sync
  /// source is not the reader's port either.
  Expected<> apply(VLAppDelegate& app);

  /// Why each missing one was not found, for people.
  std::vector<std::string> missing() const { return missing(true); }

  /// Call before and after each change of the MIDI setup, and `follow` also after each change
  /// of the audio devices or their channels and after each stop of the clock: takes those that
  /// have appeared, and a sync source that has returned, and arms the clock as it was. Not
  /// while the clock plays. True when the sync source was set.
  void willFollowSetup(const VLAppDelegate& app);
  bool follow(VLAppDelegate& app);

  /// Fills in the ports for the status line, also those that no option names.
  void describe(VLStatus& status) const;

  /// The reader of --ltc-in, null while its device is missing; without that option the
  /// first one, null without any.
  std::shared_ptr<VLLTCReaderDevice> reader() const;
  /// Sets the reader's channel again after a change of the device.
  void keepChannel();

 private:
  struct Port {
    midi::MIDIUniqueID uniqueID;
    std::string name;
  };
  struct Channel {
    std::string name;
    audio::AudioObjectID deviceID;
    std::uint32_t channel;  // from 0
    std::uint32_t channels;
    std::string port;  // of the device, which moves when others come and go
  };
  // A device that an option names: missing until it is found, then unused until it is applied.
  template <class Found>
  struct Wanted {
    explicit Wanted(std::string typed) : text(std::move(typed)) {}

    std::string text;  // as typed
    std::optional<Found> found;
    Error problem;  // why it was not found
    bool isInUse = false;

    bool isReady() const { return found && !isInUse; }
    std::string name() const { return found ? found->name : text; }
  };

  explicit VLWantedDevices(const VLOptions& options);
  void findMissing();
  void findPort(Wanted<Port>& wanted, bool isSource);
  void findChannel(Wanted<Channel>& wanted, audio::AudioDirection scope);
  void takeFound();
  std::vector<std::string> missing(bool withSource) const;
  std::shared_ptr<KVLTCGenerator> takeOutput(const Channel& output);
  void takeInput(const Channel& input);
  /// False when the destination has disappeared since it was found.
  bool switchOn(midi::MIDIUniqueID uniqueID);
  VLLTCOutput describe(const VLLTCGeneratorDevice& device) const;
  void describeDestinations(VLStatus& status) const;

  VLOptions mOptions;
  std::vector<Wanted<Port>> mDestinations;
  std::optional<Wanted<Port>> mSource;
  bool mArmsOnReturn = false;  // of the source
  std::vector<Wanted<Channel>> mOutputs;
  std::vector<std::shared_ptr<KVLTCGenerator>> mGenerators;  // of mOutputs; null until taken
  std::optional<Wanted<Channel>> mInput;
  std::shared_ptr<VLLTCReaderDevice> mReader;
};

}  // namespace velor
