// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/audio/AudioOutside.h"
#include "platform/audio/jack/JackSampleClock.h"
#include "platform/audio/jack/JackStream.h"
#include "platform/jack/JackClient.h"

namespace velor::audio {

/// The audio of a JACK server, or of PipeWire in its place. Each other client with audio
/// ports is a device of the client's name, which is its UID too. Each port is a stream of
/// the device, with the port's name. An open stream has a port of ours for each port of the
/// device; those in the channel map are connected.
///
/// A stream that ends keeps its ports for a moment, silent, and whoever opens the same
/// stream again gets them: a player that stops and starts again loses no cycle, and other
/// programs lose no connection.
///
/// All devices of a server have one count of samples, which begins again when the server
/// returns.
class JackAudio final : public AudioOutside, private jack::JackParticipant {
 public:
  /// `client` may be shared with other services.
  explicit JackAudio(
      std::shared_ptr<jack::JackClient> client = std::make_shared<jack::JackClient>());
  ~JackAudio() override;

  void start(AudioInside& inside) override;
  void stop() override;
  std::unique_ptr<AudioDeviceStream> open(AudioObjectID device,
                                          const AudioStreamRequest& request) override;
  OSStatus translateTime(AudioObjectID device, const AudioTimeStamp& in,
                         AudioTimeStamp& out) noexcept override;
  /// Refuses: all clients of a server share its period, which the user has chosen.
  void requestBufferFrames(AudioObjectID, std::uint32_t) override {}
  std::string description() override { return mJack->description(); }
  std::optional<AudioServerStatus> serverStatus() override;

 private:
  static constexpr std::size_t kMaxDevices = 256;
  static constexpr std::size_t kMaxStreams = 64;

  // A client of the server.
  struct Device {
    AudioDeviceDescription description;
    std::vector<std::string> inputPorts;  // full names; those that we record
    std::vector<std::string> outputPorts;
    AudioObjectID id = kAudioObjectUnknown;

    const std::vector<std::string>& ports(AudioDirection direction) const {
      return direction == AudioDirection::input ? inputPorts : outputPorts;
    }
  };
  using Devices = std::map<std::string, Device>;  // by UID

  class Handle;

  // On mQueue.
  void opened() override {}
  void closed() override;
  void rescan(const std::set<std::string>& renewed) override;
  void xrunsChanged() override { announceServer(); }
  void report() override { rescan({}); }
  Devices lookForDevices() const;
  void addPort(Devices& devices, const std::string& fullName, jack_port_t* port) const;
  void announce(Devices found);
  void announceServer();
  void setPresent(AudioObjectID device, bool present);
  std::shared_ptr<JackStream> takeOverRested(const Device& device,
                                             const AudioStreamRequest& request);
  void setChannelMap(JackStream& stream, const AudioChannelMap& map);
  bool putInService(JackStream& stream, const Device& device);
  void rest(JackStream& stream);
  void takeOutOfService(JackStream& stream);
  void close(JackStream& stream);
  void remove(const std::shared_ptr<JackStream>& stream);

  void process(const host::RealtimeContext& realtime,
               const jack::JackCycle& cycle) noexcept override;

  const std::shared_ptr<jack::JackClient> mJack;
  host::Queue& mQueue;
  AudioInside* mInside = nullptr;

  // On mQueue.
  Devices mDevices;  // those that are there
  std::vector<std::shared_ptr<JackStream>> mStreams;
  std::optional<AudioServerStatus> mAnnounced;

  // For the process callback.
  std::array<std::atomic<JackStream*>, kMaxStreams> mActive{};

  JackSampleClock mClock;
  std::array<std::atomic<AudioObjectID>, kMaxDevices> mPresent{};
};

}  // namespace velor::audio
