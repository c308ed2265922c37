// SPDX-License-Identifier: MIT
// Against real servers, and a client that knows nothing of this one.
#include "platform/audio/jack/JackAudio.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

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
  return side.streams.empty() ? 0 : side.streams[0].channels;
}

// Its channel c plays, at the sample time t, the number t mod 2^16 + c / 4: exact in
// a sample, so that whoever hears it knows when it was played, and on which channel.
constexpr double kLap = 65536;
constexpr float kChannelStep = 0.25F;

struct Player {
  std::atomic<std::uint64_t> cycles{0};
  static void play(const host::RealtimeContext&, void* self, const AudioTimeStamp& time,
                   std::uint32_t frames, std::span<float* const> channels) noexcept {
    for (std::size_t c = 0; c < channels.size(); ++c) {
      for (std::uint32_t i = 0; i < frames; ++i) {
        channels[c][i] = static_cast<float>(std::fmod(time.mSampleTime + i, kLap)) +
                         kChannelStep * static_cast<float>(c);
      }
    }
    ++static_cast<Player*>(self)->cycles;
  }
};

// Notes each first sample of a cycle, and whether the cycle goes on evenly from there.
struct Listener {
  struct Cycle {
    AudioTimeStamp time;
    std::uint32_t frames = 0;
    std::array<float, 2> first{};
    bool even = true;
  };
  std::vector<Cycle> cycles = std::vector<Cycle>(8192);
  std::atomic<std::size_t> count{0};

  static void hear(const host::RealtimeContext&, void* self, const AudioTimeStamp& time,
                   std::uint32_t frames, std::span<float* const> channels) noexcept {
    auto& listener = *static_cast<Listener*>(self);
    const std::size_t place = listener.count.load();
    if (place == listener.cycles.size()) {
      return;
    }
    Cycle& cycle = listener.cycles[place];
    cycle.time = time;
    cycle.frames = frames;
    for (std::size_t c = 0; c < channels.size() && c < 2; ++c) {
      cycle.first[c] = channels[c][0];
      for (std::uint32_t i = 1; i < frames; ++i) {
        const float step = channels[c][i] - channels[c][i - 1];
        cycle.even = cycle.even && (step == 1.0F || step == static_cast<float>(1 - kLap));
      }
    }
    listener.count.store(place + 1);
  }

  // Whether the latest cycle holds what was played to it.
  bool hears() const {
    const std::size_t heard = count.load();
    return heard > 0 && cycles[heard - 1].even && cycles[heard - 1].first[0] != 0;
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

  void openStreams() {
    const auto device = mInside.find("Cable");
    ASSERT_TRUE(device.has_value());
    mPlayer = std::make_unique<Player>();
    mListener = std::make_unique<Listener>();
    mStreams.push_back(
        mAudio.open(device->id, AudioDirection::output, "Generator", &Player::play, mPlayer.get()));
    mStreams.push_back(
        mAudio.open(device->id, AudioDirection::input, "Reader", &Listener::hear, mListener.get()));
    ASSERT_NE(mStreams[0], nullptr);
    ASSERT_NE(mStreams[1], nullptr);
  }

  Server mServer;
  host::SystemHost mHost;
  Announced mInside;
  JackAudio mAudio;
  std::unique_ptr<Player> mPlayer;
  std::unique_ptr<Listener> mListener;
  std::vector<std::unique_ptr<AudioDeviceStream>> mStreams;
};

using Servers = testing::Types<test::JackServer, test::PipeWireServer>;
TYPED_TEST_SUITE(JackAudioOnServer, Servers);

// The device of the server itself.
template <class Server>
constexpr const char* kHardware = "system";
template <>
constexpr const char* kHardware<test::PipeWireServer> = "velor-null";

TYPED_TEST(JackAudioOnServer, DevicesAreTheClientsWithAudioAndKeepTheirIds) {
  this->mAudio.start(this->mInside);
  ASSERT_TRUE(this->mInside.await(kHardware<TypeParam>));
  const auto hardware = this->mInside.find(kHardware<TypeParam>)->description;
  const bool isSink = std::string(kHardware<TypeParam>) == "velor-null";
  EXPECT_EQ(channelsOf(hardware.output), 2U);
  EXPECT_TRUE(hardware.output.isDefault);
  EXPECT_EQ(channelsOf(hardware.input), isSink ? 0U : 2U);  // what it monitors is no input
  EXPECT_EQ(hardware.input.isDefault, !isSink);
  EXPECT_EQ(hardware.sampleRate, 48000);

  AudioObjectID id = kAudioObjectUnknown;
  for (int round = 0; round < 2; ++round) {
    auto cable = std::make_unique<test::JackCable>("Cable", 3, 77);
    ASSERT_TRUE(test::waitFor(5, [this] {
      const auto found = this->mInside.find("Cable");
      return found && channelsOf(found->description.input) == 3 &&
             channelsOf(found->description.output) == 3;
    }));
    const auto device = *this->mInside.find("Cable");
    EXPECT_TRUE(round == 0 || device.id == id);
    id = device.id;
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
    EXPECT_EQ(this->mAudio.open(id, AudioDirection::output, "late", &Player::play, nullptr),
              nullptr);
    AudioTimeStamp out;
    EXPECT_EQ(this->mAudio.translateTime(id, {0, 1, kAudioTimeStampHostTimeValid}, out),
              kAudioHardwareBadDeviceError);
  }
}

TYPED_TEST(JackAudioOnServer, WhatIsPlayedIsHeardSampleForSampleAndItsTimeIsTold) {
  constexpr int kLatency = 480;
  test::JackCable cable("Cable", 2, kLatency);
  this->mAudio.start(this->mInside);
  ASSERT_TRUE(this->mInside.await("Cable"));
  this->openStreams();
  const Listener& listener = *this->mListener;
  ASSERT_TRUE(test::waitFor(8, [&] {
    return listener.hears() && this->mInside.find("Cable")->description.input.latency == kLatency;
  }));
  test::waitFor(0.1, [] { return false; });
  const std::size_t from = listener.count.load();
  ASSERT_TRUE(test::waitFor(10, [&] { return listener.count.load() >= from + 100; }));

  const AudioObjectID device = this->mInside.find("Cable")->id;
  double travelled = -1;
  std::size_t broken = 0;
  for (std::size_t i = from; i < from + 100; ++i) {
    const auto& cycle = listener.cycles[i];
    const auto& before = listener.cycles[i - 1];
    // A server that was kept from the processor leaves a gap in its count.
    if (cycle.time.mSampleTime != before.time.mSampleTime + before.frames) {
      ++broken;
      continue;
    }
    EXPECT_TRUE(cycle.even);
    // The way there and back, by the numbers heard: the same in each cycle.
    const double way =
        std::fmod(cycle.time.mSampleTime - static_cast<double>(cycle.first[0]) + kLap, kLap);
    EXPECT_TRUE(travelled < 0 || way == travelled) << way << " after " << travelled;
    travelled = way;
    EXPECT_EQ(cycle.first[1], cycle.first[0] + kChannelStep);
  }
  EXPECT_LE(broken, 5U);
  const auto& last = listener.cycles[from + 99];
  EXPECT_EQ(std::fmod(travelled, last.frames), 0.0);
  EXPECT_LE(travelled, 2.0 * last.frames);

  // The host time of an input is that at the connector: the latency before that at
  // which the device's count stood there.
  AudioTimeStamp atCount;
  AudioTimeStamp asked = last.time;
  asked.mFlags = kAudioTimeStampSampleTimeValid;
  ASSERT_EQ(this->mAudio.translateTime(device, asked, atCount), 0);
  EXPECT_NEAR(static_cast<double>(atCount.mHostTime) - static_cast<double>(last.time.mHostTime),
              kLatency * 1e9 / 48000, 100'000);
  // And the count stands where another client woke with it: not before its time,
  // and as a rule soon after.
  std::vector<double> delays;
  for (int i = 0; i < 50; ++i) {
    test::waitFor(0.02, [] { return false; });
    const auto wake = cable.lastWake();
    AudioTimeStamp out;
    ASSERT_EQ(
        this->mAudio.translateTime(device, {0, wake.hostTime, kAudioTimeStampHostTimeValid}, out),
        0);
    const auto count = static_cast<std::uint32_t>(static_cast<std::int64_t>(out.mSampleTime));
    delays.push_back(static_cast<std::int32_t>(count - wake.frame));
  }
  std::sort(delays.begin(), delays.end());
  EXPECT_GE(delays.front(), -48);  // 1 ms
  EXPECT_LE(delays[delays.size() / 2], last.frames);
}

TYPED_TEST(JackAudioOnServer, StreamsThatAreHeldGoOnWhenTheServerIsBack) {
  auto cable = std::make_unique<test::JackCable>("Cable", 2);
  auto other = std::make_unique<test::JackCable>("Other", 1);
  this->mAudio.start(this->mInside);
  ASSERT_TRUE(this->mInside.await("Cable"));
  this->openStreams();
  ASSERT_TRUE(test::waitFor(5, [this] { return this->mListener->hears(); }));
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
    const std::uint64_t played = this->mPlayer->cycles;
    const std::size_t heard = this->mListener->count;
    cable.reset();
    other.reset();
    this->mServer.start();
    ASSERT_TRUE(this->mInside.await(kHardware<TypeParam>));
    // The device may be back later than the server, and port by port.
    cable = std::make_unique<test::JackCable>("Cable", 2, 0, pause);
    other = std::make_unique<test::JackCable>("Other", 1);
    ASSERT_TRUE(this->mInside.await("Cable"));
    EXPECT_EQ(this->mInside.find("Cable")->id, id);
    EXPECT_TRUE(test::waitFor(5, [&] {
      return cable->ports("Velor:.*").size() == 4 && this->mPlayer->cycles > played &&
             this->mListener->count > heard && this->mListener->hears();
    }));
    EXPECT_TRUE(test::waitFor(
        5, [&] { return other->isConnected("Velor:Generator out_1", "Other:in_1"); }));
  }
}

TYPED_TEST(JackAudioOnServer, ADeviceThatGoesOrChangesItsChannelsTakesItsStreamsAlong) {
  auto cable = std::make_unique<test::JackCable>("Cable", 2);
  test::JackCable observer("Observer", 1);
  this->mAudio.start(this->mInside);
  ASSERT_TRUE(this->mInside.await("Cable"));
  this->openStreams();
  ASSERT_TRUE(test::waitFor(5, [this] { return this->mListener->hears(); }));
  for (const int channels : {1, 4, 2}) {
    cable.reset();
    ASSERT_TRUE(test::waitFor(5, [this] { return !this->mInside.find("Cable"); }));
    ASSERT_TRUE(test::waitFor(5, [&] { return observer.ports("Velor:.*").empty(); }));
    const std::uint64_t silentSince = this->mPlayer->cycles;
    test::waitFor(0.2, [] { return false; });
    EXPECT_EQ(this->mPlayer->cycles, silentSince);
    cable = std::make_unique<test::JackCable>("Cable", channels);
    EXPECT_TRUE(test::waitFor(5, [&] {
      return observer.ports("Velor:.*").size() == 2U * static_cast<unsigned>(channels) &&
             observer.isConnected("Velor:Generator out_" + std::to_string(channels),
                                  "Cable:in_" + std::to_string(channels)) &&
             this->mPlayer->cycles > silentSince && this->mListener->hears();
    })) << channels;
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
  ASSERT_TRUE(test::waitFor(5, [this] { return this->mListener->hears(); }));
  ASSERT_TRUE(test::waitFor(5, [&watch] { return watch.changes >= 4; }));
  for (int round = 0; round < 3; ++round) {
    const int changes = watch.changes;
    this->mStreams.clear();
    this->openStreams();  // with another player and listener
    EXPECT_TRUE(test::waitFor(5, [this] { return this->mListener->hears(); }));
    test::waitFor(0.5, [] { return false; });  // what went would have gone
    EXPECT_EQ(watch.changes, changes);
  }
  // On another device it is another stream, by the same names.
  this->mStreams.clear();
  this->mStreams.push_back(this->mAudio.open(this->mInside.find("Other")->id,
                                             AudioDirection::output, "Generator", &Player::play,
                                             this->mPlayer.get()));
  EXPECT_TRUE(test::waitFor(5, [&watch] {
    return watch.isConnected("Velor:Generator out_1", "Other:in_1") &&
           watch.isConnected("Velor:Generator out_2", "Other:in_2") &&
           watch.ports("Velor:.*").size() == 2;
  }));
  EXPECT_FALSE(watch.isConnected("Velor:Generator out_2", "Cable:in_2"));
}

// Its callback may not come any more once the stream has gone.
struct Guarded {
  std::atomic<bool> open{true};
  std::atomic<int> calls{0};
  std::atomic<int> late{0};
  static void cycle(const host::RealtimeContext&, void* self, const AudioTimeStamp&, std::uint32_t,
                    std::span<float* const>) noexcept {
    auto& guarded = *static_cast<Guarded*>(self);
    ++guarded.calls;
    if (!guarded.open) {
      ++guarded.late;
    }
  }
};

TYPED_TEST(JackAudioOnServer, AStreamThatEndedIsNotCalledWhateverElseRuns) {
  test::JackCable cable("Cable", 2);
  this->mAudio.start(this->mInside);
  ASSERT_TRUE(this->mInside.await("Cable"));
  const AudioObjectID device = this->mInside.find("Cable")->id;
  Guarded lasting;
  const auto held =
      this->mAudio.open(device, AudioDirection::output, "held", &Guarded::cycle, &lasting);
  Guarded passing;
  for (int round = 0; round < 40; ++round) {
    passing.open = true;
    auto stream =
        this->mAudio.open(device, round % 2 == 0 ? AudioDirection::output : AudioDirection::input,
                          "passing", &Guarded::cycle, &passing);
    ASSERT_NE(stream, nullptr);
    const int calls = passing.calls;
    ASSERT_TRUE(test::waitFor(3, [&] { return passing.calls > calls; }));
    stream.reset();
    passing.open = false;
  }
  const int calls = lasting.calls;
  EXPECT_TRUE(test::waitFor(3, [&] { return lasting.calls > calls; }));
  EXPECT_EQ(passing.late, 0);
}

TEST(JackAudioBesideMIDI, OneClientCarriesBothAndEitherMayEndFirst) {
  test::JackServer server;
  server.enter();
  server.start();
  host::SystemHost host;
  for (const bool audioEndsFirst : {true, false}) {
    auto cable = std::make_unique<test::JackCable>("Cable", 2);
    Announced inside;
    Guarded player;
    const auto client = std::make_shared<jack::JackClient>();
    auto midi = std::make_unique<midi::MIDIObjectTable>(std::make_unique<midi::JackMIDI>(client));
    auto audio = std::make_unique<JackAudio>(client);
    midi::MIDIClientRef midiClient = 0;
    midi::MIDIEndpointRef source = 0;
    midi->MIDIClientCreate("Velor", nullptr, nullptr, &midiClient);
    midi->MIDISourceCreate(midiClient, "LTC Reader 1", &source);
    audio->start(inside);
    ASSERT_TRUE(inside.await("Cable"));
    auto stream = audio->open(inside.find("Cable")->id, AudioDirection::output, "Generator",
                              &Guarded::cycle, &player);
    const auto portsAre = [&cable](std::vector<std::string> midiPorts, std::size_t audioPorts) {
      return test::waitFor(5, [&] {
        return cable->ports("Velor.*", JACK_DEFAULT_MIDI_TYPE) == midiPorts &&
               cable->ports("Velor:.*").size() == audioPorts;
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
      const int calls = player.calls;
      EXPECT_TRUE(test::waitFor(3, [&] { return player.calls > calls; }));
    }
    // What is left lives on as if alone.
    server.kill();
    ASSERT_TRUE(test::waitFor(5, [&client] { return !client->isConnected(); }));
    cable.reset();
    server.start();
    cable = std::make_unique<test::JackCable>("Cable", 2);
    EXPECT_TRUE(audioEndsFirst ? portsAre({"Velor:LTC Reader 1"}, 0) : portsAre({}, 2));
    stream.reset();
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
  for (const int period : {512, 2048}) {
    other.setPeriod(period);
    EXPECT_TRUE(test::waitFor(5, [&] {
      return inside.find("system")->description.bufferFrames == static_cast<std::uint32_t>(period);
    }));
  }
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
  Guarded player;
  const auto stream =
      audio.open(device, AudioDirection::output, "player", &Guarded::cycle, &player);
  ASSERT_NE(stream, nullptr);
  for (const auto& [rate, period] : {std::pair(44100, 256), std::pair(96000, 2048)}) {
    server.force(rate, period);
    const double wantedRate = rate;
    const auto wantedPeriod = static_cast<std::uint32_t>(period);
    EXPECT_TRUE(test::waitFor(5, [&] {
      const auto found = inside.find("velor-null");
      return found && found->description.sampleRate == wantedRate &&
             found->description.bufferFrames == wantedPeriod;
    })) << rate;
    EXPECT_NE(audio.description().find(std::to_string(rate)), std::string::npos);
    // The count runs at the new rate.
    AudioTimeStamp a;
    AudioTimeStamp b;
    const std::uint64_t now = host.AudioGetCurrentHostTime();
    ASSERT_EQ(audio.translateTime(device, {0, now, kAudioTimeStampHostTimeValid}, a), 0);
    ASSERT_EQ(
        audio.translateTime(device, {0, now + 1'000'000'000, kAudioTimeStampHostTimeValid}, b), 0);
    EXPECT_NEAR(b.mSampleTime - a.mSampleTime, wantedRate, wantedRate / 500);
    const int calls = player.calls;
    EXPECT_TRUE(test::waitFor(5, [&] { return player.calls > calls + 3; }));
  }
}

}  // namespace
}  // namespace velor::audio
