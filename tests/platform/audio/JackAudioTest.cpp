// SPDX-License-Identifier: MIT
// Against real servers, and a client that knows nothing of this one.
#include "platform/audio/jack/JackAudio.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/host/Seqlock.h"
#include "platform/host/SystemHost.h"
#include "platform/midi/builtin/MIDIObjectTable.h"
#include "platform/midi/jack/JackMIDI.h"
#include "tests/support/JackCable.h"
#include "tests/support/JackPeer.h"
#include "tests/support/Servers.h"

namespace velor::audio {
namespace {

// What was announced, by UID.
class Announced final : public AudioInside {
 public:
  struct Device {
    AudioObjectID id = kAudioObjectUnknown;
    bool present = false;
    AudioDeviceDescription description;
  };

  AudioObjectID deviceAppeared(AudioOutside&, const AudioDeviceDescription& device) override {
    const std::lock_guard lock(mMutex);
    Device& entry = mDevices[device.uid];
    if (entry.id == kAudioObjectUnknown) {
      entry.id = static_cast<AudioObjectID>(mDevices.size()) + 1;
    }
    entry.present = true;
    entry.description = device;
    return entry.id;
  }
  void deviceVanished(AudioObjectID device) override {
    const std::lock_guard lock(mMutex);
    for (auto& [uid, entry] : mDevices) {
      entry.present = entry.present && entry.id != device;
    }
  }

  void serverChanged() override {}

  // Null when it is not there.
  std::optional<Device> find(const std::string& uid) {
    const std::lock_guard lock(mMutex);
    const auto it = mDevices.find(uid);
    return it != mDevices.end() && it->second.present ? std::optional(it->second) : std::nullopt;
  }
  bool await(const std::string& uid) {
    return test::waitFor(5, [&] { return find(uid).has_value(); });
  }
  std::size_t presentCount() {
    const std::lock_guard lock(mMutex);
    return static_cast<std::size_t>(std::count_if(mDevices.begin(), mDevices.end(),
                                                  [](auto& each) { return each.second.present; }));
  }

 private:
  std::mutex mMutex;
  std::map<std::string, Device> mDevices;
};

std::uint32_t channelsOf(const AudioDeviceDescription::Side& side) {
  return static_cast<std::uint32_t>(side.streams.size());
}

// As many channels as any device here has, each to the one of the same place.
AudioStreamRequest request(AudioDirection direction, const std::string& name, AudioCycleProc proc,
                           void* refCon) {
  return {direction, name, 4, {0, 1, 2, 3}, proc, refCon};
}

// Plays 1 on every channel.
struct Player {
  std::atomic<std::uint64_t> cycles{0};
  static void play(const host::RealtimeContext&, void* self, const AudioTimeStamp&,
                   std::uint32_t frames, std::span<float* const> channels) noexcept {
    for (float* const channel : channels) {
      if (channel != nullptr) {
        std::fill_n(channel, frames, 1.0F);
      }
    }
    ++static_cast<Player*>(self)->cycles;
  }
  // Whether cycles come from now on.
  bool awaitCycles() {
    return test::waitFor(3, [this, before = cycles.load()] { return cycles > before + 3; });
  }
};

// The latest cycle that came in, and whether something was played to all of its channels.
struct Listener {
  std::atomic<std::uint64_t> count{0};
  std::atomic<bool> hears{false};
  host::Seqlocked<AudioTimeStamp> time{AudioTimeStamp{}};
  static void hear(const host::RealtimeContext&, void* self, const AudioTimeStamp& time,
                   std::uint32_t, std::span<float* const> channels) noexcept {
    auto& listener = *static_cast<Listener*>(self);
    listener.hears = std::all_of(channels.begin(), channels.end(),
                                 [](auto* channel) { return channel == nullptr || *channel != 0; });
    listener.time.store(time);
    ++listener.count;
  }
};

template <class Server>
class JackAudioOnServer : public testing::Test {
 protected:
  JackAudioOnServer() {
    mServer.enter();
    mServer.start();
  }
  ~JackAudioOnServer() override {
    mStreams.clear();
    mAudio.stop();
  }

  void startWithCable() {
    mCable = std::make_unique<test::JackCable>("Cable", 2);
    mAudio.start(mInside);
    ASSERT_TRUE(mInside.await("Cable"));
    openStreams();
    ASSERT_TRUE(test::waitFor(5, [this] { return mListener.hears.load(); }));
  }
  void openStreams() {
    const AudioObjectID device = mInside.find("Cable").value().id;
    mStreams.push_back(
        mAudio.open(device, request(AudioDirection::output, "Generator", &Player::play, &mPlayer)));
    mStreams.push_back(
        mAudio.open(device, request(AudioDirection::input, "Reader", &Listener::hear, &mListener)));
    ASSERT_TRUE(mStreams[0] != nullptr && mStreams[1] != nullptr);
  }
  // Both streams from now on, and with each other.
  bool awaitSound() {
    return mPlayer.awaitCycles() && test::waitFor(5, [this, before = mListener.count.load()] {
             return mListener.count > before && mListener.hears;
           });
  }

  Server mServer;
  host::SystemHost mHost;
  Announced mInside;
  JackAudio mAudio;
  Player mPlayer;
  Listener mListener;
  std::unique_ptr<test::JackCable> mCable;
  std::vector<std::unique_ptr<AudioDeviceStream>> mStreams;
};

using Servers = testing::Types<test::JackServer, test::PipeWireServer>;
TYPED_TEST_SUITE(JackAudioOnServer, Servers);

// The device of the server itself.
template <class Server>
constexpr const char* kHardware = "system";
template <>
constexpr const char* kHardware<test::PipeWireServer> = "velor-null";

TYPED_TEST(JackAudioOnServer, DevicesAreTheClientsWithAudioAsTheySayOfThemselves) {
  this->mAudio.start(this->mInside);
  ASSERT_TRUE(this->mInside.await(kHardware<TypeParam>));
  const auto hardware = this->mInside.find(kHardware<TypeParam>)->description;
  const bool isSink = std::string(kHardware<TypeParam>) == "velor-null";
  EXPECT_EQ(channelsOf(hardware.output), 2U);
  EXPECT_TRUE(hardware.output.isDefault);
  EXPECT_EQ(channelsOf(hardware.input), isSink ? 0U : 2U);  // what it monitors is no input
  EXPECT_EQ(hardware.input.isDefault, !isSink);
  EXPECT_EQ(hardware.sampleRate, 48000);

  auto cable = std::make_unique<test::JackCable>("Cable", 3, 77);
  ASSERT_TRUE(test::waitFor(5, [this] {
    const auto found = this->mInside.find("Cable");
    return found && channelsOf(found->description.input) == 3 &&
           channelsOf(found->description.output) == 3;
  }));
  const auto device = *this->mInside.find("Cable");
  EXPECT_FALSE(device.description.input.isDefault || device.description.output.isDefault);
  this->openStreams();
  // What a client says of its ports; ours would be 0.
  EXPECT_TRUE(test::waitFor(8, [this] {
    const auto found = this->mInside.find("Cable");
    return found->description.input.latency == 77 && found->description.output.latency == 77;
  }));
  ASSERT_TRUE(test::waitFor(3, [&cable] { return cable->ports("Velor:.*").size() == 6; }));
  EXPECT_EQ(cable->ports("Velor:Generator out_3").size(), 1U);
  EXPECT_FALSE(this->mInside.find("Velor").has_value());
  this->mStreams.clear();
  EXPECT_TRUE(test::waitFor(3, [&cable] { return cable->ports("Velor:.*").empty(); }));
  cable.reset();
  ASSERT_TRUE(test::waitFor(5, [this] { return !this->mInside.find("Cable"); }));
  EXPECT_EQ(this->mAudio.open(device.id, request(AudioDirection::output, "late", nullptr, nullptr)),
            nullptr);
  AudioTimeStamp out;
  EXPECT_EQ(this->mAudio.translateTime(device.id, {0, 1, kAudioTimeStampHostTimeValid}, out),
            kAudioHardwareBadDeviceError);
}

TYPED_TEST(JackAudioOnServer, TheTimeOfAnInputIsThatAtTheConnector) {
  constexpr int kLatency = 480;
  const test::JackCable cable("Cable", 2, kLatency);
  this->mAudio.start(this->mInside);
  ASSERT_TRUE(this->mInside.await("Cable"));
  this->openStreams();
  ASSERT_TRUE(test::waitFor(8, [this] {
    return this->mListener.hears &&
           this->mInside.find("Cable")->description.input.latency == kLatency;
  }));
  test::waitFor(0.1, [] { return false; });
  // The latency before that at which the device's count stood there.
  const AudioTimeStamp last = this->mListener.time.load();
  AudioTimeStamp atCount;
  ASSERT_EQ(
      this->mAudio.translateTime(this->mInside.find("Cable")->id,
                                 {last.mSampleTime, 0, kAudioTimeStampSampleTimeValid}, atCount),
      0);
  EXPECT_NEAR(static_cast<double>(atCount.mHostTime) - static_cast<double>(last.mHostTime),
              kLatency * 1e9 / 48000, 100'000);
}

TYPED_TEST(JackAudioOnServer, StreamsThatAreHeldGoOnWhenTheServerIsBack) {
  this->startWithCable();
  auto other = std::make_unique<test::JackCable>("Other", 1);
  ASSERT_TRUE(other->connect("Velor:Generator out_1", "Other:in_1"));
  test::waitFor(0.3, [] { return false; });
  const AudioObjectID id = this->mInside.find("Cable")->id;

  for (const auto pause : {std::chrono::milliseconds(0), std::chrono::milliseconds(100)}) {
    this->mServer.kill();
    ASSERT_TRUE(test::waitFor(5, [this] { return this->mInside.presentCount() == 0; }));
    AudioTimeStamp out;
    EXPECT_EQ(this->mAudio.translateTime(id, {0, 1, kAudioTimeStampHostTimeValid}, out),
              kAudioHardwareNotRunningError);
    EXPECT_EQ(this->mAudio.description(), "");
    EXPECT_FALSE(this->mAudio.serverStatus().has_value());
    this->mCable.reset();
    other.reset();
    this->mServer.start();
    ASSERT_TRUE(this->mInside.await(kHardware<TypeParam>));
    // The device may be back later than the server, and port by port.
    this->mCable = std::make_unique<test::JackCable>("Cable", 2, 0, pause);
    other = std::make_unique<test::JackCable>("Other", 1);
    ASSERT_TRUE(this->mInside.await("Cable"));
    EXPECT_EQ(this->mInside.find("Cable")->id, id);
    EXPECT_TRUE(test::waitFor(5, [this, &other] {
      return this->mCable->ports("Velor:.*").size() == 4 &&
             other->isConnected("Velor:Generator out_1", "Other:in_1");
    }));
    EXPECT_TRUE(this->awaitSound());
  }
}

TYPED_TEST(JackAudioOnServer, ADeviceThatGoesOrChangesItsChannelsTakesItsStreamsAlong) {
  this->startWithCable();
  test::JackCable observer("Observer", 1);
  for (const int channels : {1, 4, 2}) {
    this->mCable.reset();
    ASSERT_TRUE(test::waitFor(5, [this] { return !this->mInside.find("Cable"); }));
    ASSERT_TRUE(test::waitFor(5, [&] { return observer.ports("Velor:.*").empty(); }));
    const std::uint64_t silentSince = this->mPlayer.cycles;
    test::waitFor(0.2, [] { return false; });
    EXPECT_EQ(this->mPlayer.cycles, silentSince);
    this->mCable = std::make_unique<test::JackCable>("Cable", channels);
    EXPECT_TRUE(test::waitFor(5, [&] {
      return observer.ports("Velor:.*").size() == 2U * static_cast<unsigned>(channels) &&
             observer.isConnected("Velor:Generator out_" + std::to_string(channels),
                                  "Cable:in_" + std::to_string(channels));
    })) << channels;
    EXPECT_TRUE(this->awaitSound());
  }
}

// Counts the ports that come and go on a server.
class PortWatch : public test::JackTestClient {
 public:
  PortWatch() : JackTestClient("Watch", JACK_DEFAULT_AUDIO_TYPE) {
    mJack->jack_set_port_registration_callback(
        mClient, [](jack_port_id_t, int, void* self) { ++static_cast<PortWatch*>(self)->changes; },
        this);
    mJack->jack_activate(mClient);
  }
  ~PortWatch() { close(); }

  std::atomic<int> changes{0};
};

TYPED_TEST(JackAudioOnServer, AStreamThatIsOpenedAgainAtOnceKeepsItsPorts) {
  test::JackCable cable("Cable", 2);
  test::JackCable other("Other", 2);
  this->mAudio.start(this->mInside);
  ASSERT_TRUE(this->mInside.await("Cable"));
  ASSERT_TRUE(this->mInside.await("Other"));
  PortWatch watch;
  this->openStreams();
  ASSERT_TRUE(this->awaitSound());
  ASSERT_TRUE(test::waitFor(5, [&watch] { return watch.changes >= 4; }));
  for (int round = 0; round < 3; ++round) {
    const int changes = watch.changes;
    this->mStreams.clear();
    this->openStreams();
    EXPECT_TRUE(this->awaitSound());
    test::waitFor(0.5, [] { return false; });  // what went would have gone
    EXPECT_EQ(watch.changes, changes);
  }
  // On another device it is another stream, by the same names.
  this->mStreams.clear();
  this->mStreams.push_back(this->mAudio.open(
      this->mInside.find("Other")->id,
      request(AudioDirection::output, "Generator", &Player::play, &this->mPlayer)));
  EXPECT_TRUE(test::waitFor(5, [&watch] {
    return watch.isConnected("Velor:Generator out_1", "Other:in_1") &&
           watch.isConnected("Velor:Generator out_2", "Other:in_2") &&
           watch.ports("Velor:.*").size() == 2;
  }));
  EXPECT_FALSE(watch.isConnected("Velor:Generator out_2", "Cable:in_2"));
}

// The server's graph and jackd's own clients are busy when ports come and go.
TYPED_TEST(JackAudioOnServer, WhatAClientGainsAndLosesDoesNotTouchTheChannelThatIsUsed) {
  // A track that comes before the one with LTC, so that its loss moves that one up.
  test::JackPeer desk("Desk");
  desk.renew("track 1", JACK_DEFAULT_AUDIO_TYPE);
  desk.recordAudio("LTC in", 20);
  desk.activate();
  this->mAudio.start(this->mInside);
  ASSERT_TRUE(test::waitFor(5, [this] {
    const auto found = this->mInside.find("Desk");
    return found && found->description.output.streams ==
                        std::vector<AudioDeviceDescription::Stream>{{"track 1", 1}, {"LTC in", 1}};
  }));
  const AudioObjectID device = this->mInside.find("Desk")->id;
  auto wanted = request(AudioDirection::output, "Generator", &Player::play, &this->mPlayer);
  wanted.channels = 1;
  wanted.map = {-1, 0};
  auto& stream = *this->mStreams.emplace_back(this->mAudio.open(device, wanted));
  using Tracks = std::vector<std::string>;
  const auto connected = [&desk] {
    Tracks found;
    for (const std::string& ours : desk.ports("Velor:.*", JACK_DEFAULT_AUDIO_TYPE)) {
      for (const char* theirs : {"LTC in", "track 1", "track 2", "track 3"}) {
        if (desk.isConnected(ours, desk.fullName(theirs))) {
          found.emplace_back(theirs);
        }
      }
    }
    return found;
  };
  const auto awaitMap = [&](const AudioChannelMap& map, const Tracks& tracks) {
    EXPECT_TRUE(
        test::waitFor(5, [&] { return stream.channelMap() == map && connected() == tracks; }));
  };
  awaitMap({-1, 0}, {"LTC in"});
  ASSERT_TRUE(test::waitFor(5, [&] {
    const auto heard = desk.recordedAudio();
    return !heard.empty() && heard.back() != 0;
  }));
  const std::size_t begin = desk.recordedAudio().size();

  desk.renew("track 2", JACK_DEFAULT_AUDIO_TYPE);
  awaitMap({-1, 0, -1}, {"LTC in"});
  desk.remove("track 1");
  awaitMap({0, -1}, {"LTC in"});
  desk.renew("track 3", JACK_DEFAULT_AUDIO_TYPE);
  ASSERT_TRUE(test::waitFor(5, [&] { return stream.channelMap().size() == 3; }));
  desk.remove("track 2");
  ASSERT_TRUE(test::waitFor(5, [&] { return stream.channelMap().size() == 2; }));
  EXPECT_TRUE(this->mPlayer.awaitCycles());
  const auto heard = desk.recordedAudio();
  EXPECT_EQ(std::count(heard.begin() + static_cast<std::ptrdiff_t>(begin), heard.end(), 0.0F), 0);

  // The user moves it; what is not used is let go of.
  const auto names = this->mInside.find("Desk")->description.output.streams;
  const bool isFirst = names[0].name == "track 3";
  stream.setChannelMap(isFirst ? AudioChannelMap{0, -1} : AudioChannelMap{-1, 0});
  awaitMap(isFirst ? AudioChannelMap{0, -1} : AudioChannelMap{-1, 0}, {"track 3"});
  // A channel that goes is remembered.
  desk.remove("track 3");
  awaitMap({-1}, {});
  desk.renew("track 3", JACK_DEFAULT_AUDIO_TYPE);
  ASSERT_TRUE(test::waitFor(5, [&] { return stream.channelMap().size() == 2; }));
  EXPECT_TRUE(test::waitFor(5, [&] { return connected() == Tracks{"track 3"}; }));
}

TEST(JackAudioBesideMIDI, OneClientCarriesBothAndEitherMayEndFirst) {
  test::JackServer server;
  server.enter();
  server.start();
  host::SystemHost host;
  const test::JackCable cable("Cable", 2);
  for (const bool audioEndsFirst : {true, false}) {
    Announced inside;
    Player player;
    const auto client = std::make_shared<jack::JackClient>();
    auto midi = std::make_unique<midi::MIDIObjectTable>(std::make_unique<midi::JackMIDI>(client));
    auto audio = std::make_unique<JackAudio>(client);
    midi::MIDIClientRef midiClient = 0;
    midi::MIDIEndpointRef source = 0;
    midi->MIDIClientCreate("Velor", nullptr, nullptr, &midiClient);
    midi->MIDISourceCreate(midiClient, "LTC Reader 1", &source);
    audio->start(inside);
    ASSERT_TRUE(inside.await("Cable"));
    auto stream = audio->open(inside.find("Cable")->id,
                              request(AudioDirection::output, "Generator", &Player::play, &player));
    const auto portsAre = [&cable](const std::vector<std::string>& midiPorts,
                                   std::size_t audioPorts) {
      return test::waitFor(5, [&] {
        return cable.ports("Velor.*", JACK_DEFAULT_MIDI_TYPE) == midiPorts &&
               cable.ports("Velor:.*").size() == audioPorts;
      });
    };
    EXPECT_TRUE(portsAre({"Velor:LTC Reader 1"}, 2));
    if (audioEndsFirst) {
      stream.reset();
      audio.reset();
      EXPECT_TRUE(portsAre({"Velor:LTC Reader 1"}, 0));
    } else {
      midi.reset();
      EXPECT_TRUE(portsAre({}, 2));
      EXPECT_TRUE(player.awaitCycles());
      stream.reset();
    }
  }
}

TEST(JackAudioChanges, APeriodThatAnotherClientSetsIsToldAndItIsNotOursToSet) {
  test::JackServer server;
  server.enter();
  server.start();
  host::SystemHost host;
  Announced inside;
  JackAudio audio;
  audio.start(inside);
  const auto device = inside.find("system");
  ASSERT_TRUE(device.has_value());  // what is there at once is told at once
  test::JackPeer other("Other");
  other.activate();
  other.setPeriod(2048);
  EXPECT_TRUE(
      test::waitFor(5, [&] { return inside.find("system")->description.bufferFrames == 2048; }));
  audio.requestBufferFrames(device->id, 512);
  audio.stop();  // behind all that was asked
  EXPECT_EQ(other.captureLatency("system:capture_1"), 2048);
}

TEST(JackAudioChanges, TheRateAndPeriodOfALivePipeWireAreToldWhileItPlays) {
  test::PipeWireServer server;
  server.enter();
  server.start();
  host::SystemHost host;
  Announced inside;
  JackAudio audio;
  audio.start(inside);
  ASSERT_TRUE(inside.await("velor-null"));
  const AudioObjectID device = inside.find("velor-null")->id;
  Player player;
  const auto stream =
      audio.open(device, request(AudioDirection::output, "player", &Player::play, &player));
  ASSERT_NE(stream, nullptr);
  for (const auto& [rate, period] : {std::pair(44100, 256U), std::pair(96000, 2048U)}) {
    server.force(rate, static_cast<int>(period));
    EXPECT_TRUE(test::waitFor(5, [&, wantedRate = rate, wantedPeriod = period] {
      const auto found = inside.find("velor-null");
      return found && found->description.sampleRate == wantedRate &&
             found->description.bufferFrames == wantedPeriod;
    })) << rate;
    EXPECT_NE(audio.description().find(std::to_string(rate)), std::string::npos);
    EXPECT_EQ(audio.serverStatus(), (AudioServerStatus{double(rate), period, 0}));
    // The count runs at the new rate.
    const std::uint64_t now = host.AudioGetCurrentHostTime();
    AudioTimeStamp stamps[2];
    for (std::uint64_t second = 0; second < 2; ++second) {
      ASSERT_EQ(audio.translateTime(device,
                                    {0, now + second * 1'000'000'000, kAudioTimeStampHostTimeValid},
                                    stamps[second]),
                0);
    }
    EXPECT_NEAR(stamps[1].mSampleTime - stamps[0].mSampleTime, rate, rate / 500.0);
    EXPECT_TRUE(player.awaitCycles());
  }
}

}  // namespace
}  // namespace velor::audio
