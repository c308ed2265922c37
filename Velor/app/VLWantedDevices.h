// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Velor/app/VLCommandLine.h"
#include "Velor/app/VLStatusLine.h"
#include "kva/MIDI/KVMIDIEndpoint.h"
#include "platform/audio/AudioTypes.h"
#include "platform/midi/MIDITypes.h"

namespace velor {

class KVLTCGenerator;
class VLAppDelegate;
class VLLTCReaderDevice;

/// The ports and audio channels that the command line names, over their absence.
/// Queue: main.
class VLWantedDevices {
 public:
  /// Finds all of them; nothing starts when one is not there: none then, and which in
  /// `error`.
  static std::optional<VLWantedDevices> find(const VLOptions& options, std::string& error);

  /// Switches on and makes what is named. A generator or a reader that is there for the
  /// same channel is taken. False, and why in `error`, when the sync source is none of the
  /// reader's either.
  bool apply(VLAppDelegate& app, const VLOptions& options, std::string& error);

  /// To be called after each change of the MIDI setup, before and after the others that
  /// hear of it: a sync source that went, and with it the arming, is taken again when it
  /// returns; true then. Not while the clock plays, so the latter once more at its stop.
  void willFollowSetup(const VLAppDelegate& app);
  bool didFollowSetup(VLAppDelegate& app);

  /// What the status line tells of them, and of what else is switched on.
  void describe(VLStatus& status) const;

  /// The one that was named, or the first; null without any.
  std::shared_ptr<VLLTCReaderDevice> reader() const;
  /// The reader keeps the channel that was named.
  void keepChannel();

 private:
  struct Port {
    midi::MIDIUniqueID uniqueID;
    std::string name;
  };
  static Port port(const KVMIDIEndpoint& endpoint);

  struct Channel {
    std::string name;
    audio::AudioObjectID deviceID;
    std::uint32_t channel;  // from 0
    std::uint32_t channels;
  };

  std::vector<Port> mDestinations;
  std::optional<Port> mSource;
  bool mRearms = false;  // when the source returns
  std::vector<Channel> mOutputs;
  std::vector<std::shared_ptr<KVLTCGenerator>> mGenerators;  // of mOutputs, once applied
  std::optional<Channel> mInput;
  std::shared_ptr<VLLTCReaderDevice> mReader;
};

}  // namespace velor
