// SPDX-License-Identifier: MIT
// Against real servers, and a client that knows nothing of this one.
#include "platform/audio/jack/JackAudio.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kva/KAHALAudioDevice.h"
#include "platform/audio/AudioService.h"
#include "platform/host/SystemHost.h"
#include "tests/support/AudioLoop.h"
#include "tests/support/JackCable.h"
#include "tests/support/JackPeer.h"
#include "tests/support/Servers.h"

namespace velor::audio {
namespace {

// Nothing when it is not there.
std::optional<AudioDeviceDescription> find(const AudioService& service, const std::string& uid) {
  const AudioObjectID device = service.deviceForUID(uid);
  return device != kAudioObjectUnknown ? service.description(device) : std::nullopt;
}
bool await(const AudioService& service, const std::string& uid) {
  return test::waitFor(5, [&] { return service.deviceForUID(uid) != kAudioObjectUnknown; });
}

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

// Whether something is played to all channels of the latest cycle that came in.
struct Listener {
  std::atomic<std::uint64_t> count{0};
  std::atomic<bool> hears{false};
  static void hear(const host::RealtimeContext&, void* self, const AudioTimeStamp&, std::uint32_t,
                   std::span<float* const> channels) noexcept {
    auto& listener = *static_cast<Listener*>(self);
    listener.hears = std::all_of(channels.begin(), channels.end(),
                                 [](auto* channel) { return channel == nullptr || *channel != 0; });
    ++listener.count;
  }
};

template <class Server>
class JackAudioOnServer : public testing::Test {
 protected:
  JackAudioOnServer() { mServer.start(); }

  void startWithCable() {
    mCable = std::make_unique<test::JackCable>("Cable", 2);
    start();
    ASSERT_TRUE(await(*mService, "Cable"));
    openStreams();
    ASSERT_TRUE(awaitSound());
  }
  void start() { mService = serviceOver(std::make_unique<JackAudio>()); }
  void openStreams() {
    open("Cable", AudioDirection::output, &Player::play, &mPlayer);
    open("Cable", AudioDirection::input, &Listener::hear, &mListener);
  }
  void open(const std::string& uid, AudioDirection direction, AudioCycleProc proc, void* refCon) {
    const std::string name = direction == AudioDirection::output ? "Generator" : "Reader";
    mStreams.push_back(
        mService->open(mService->deviceForUID(uid), request(direction, name, proc, refCon)));
    ASSERT_NE(mStreams.back(), nullptr);
  }
  bool isThere(const std::string& uid) { return find(*mService, uid).has_value(); }
  // The status of a translation of host time.
  OSStatus translate(AudioObjectID device) {
    AudioTimeStamp stamp{0, 1, kAudioTimeStampHostTimeValid};
    return mService->AudioDeviceTranslateTime(device, stamp, stamp);
  }
  // Both streams from now on, and with each other.
  bool awaitSound() {
    return mPlayer.awaitCycles() && test::waitFor(5, [this, before = mListener.count.load()] {
             return mListener.count > before && mListener.hears;
           });
  }

  Server mServer;
  host::SystemHost mHost;
  std::unique_ptr<AudioService> mService;
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
  this->start();
  ASSERT_TRUE(await(*this->mService, kHardware<TypeParam>));
  const auto hardware = *find(*this->mService, kHardware<TypeParam>);
  const bool isSink = std::string(kHardware<TypeParam>) == "velor-null";
  EXPECT_EQ(channelsOf(hardware.output), 2U);
  EXPECT_TRUE(hardware.output.isDefault);
  EXPECT_EQ(channelsOf(hardware.input), isSink ? 0U : 2U);  // what it monitors is no input
  EXPECT_EQ(hardware.input.isDefault, !isSink);
  EXPECT_EQ(hardware.sampleRate, 48000);

  constexpr std::uint32_t kLatency = 77;
  auto cable = std::make_unique<test::JackCable>("Cable", 3, kLatency);
  ASSERT_TRUE(test::waitFor(5, [this] {
    const auto found = find(*this->mService, "Cable");
    return found && channelsOf(found->input) == 3 && channelsOf(found->output) == 3;
  }));
  const AudioObjectID device = this->mService->deviceForUID("Cable");
  EXPECT_FALSE(this->mService->description(device)->input.isDefault);
  using Names = std::vector<std::string>;
  EXPECT_EQ(KAHALAudioDevice(device).portNamesInScope(AudioDirection::output),
            (Names{"in_1", "in_2", "in_3"}));
  this->openStreams();
  // What a client says of its ports; ours would be 0.
  EXPECT_TRUE(test::waitFor(8, [this] {
    const auto found = find(*this->mService, "Cable");
    return found->input.latency == kLatency && found->output.latency == kLatency;
  }));
  ASSERT_TRUE(test::waitFor(3, [&cable] { return cable->ports("Velor:.*").size() == 6; }));
  EXPECT_EQ(cable->ports("Velor:Generator out_3").size(), 1U);
  EXPECT_FALSE(this->isThere("Velor"));
  this->mStreams.clear();
  EXPECT_TRUE(test::waitFor(3, [&cable] { return cable->ports("Velor:.*").empty(); }));
  cable.reset();
  ASSERT_TRUE(test::waitFor(5, [this] { return !this->isThere("Cable"); }));
  EXPECT_EQ(this->mService->open(device, request(AudioDirection::output, "late", nullptr, nullptr)),
            nullptr);
  EXPECT_EQ(this->translate(device), kAudioHardwareBadDeviceError);
}

TYPED_TEST(JackAudioOnServer, StreamsThatAreHeldGoOnWhenTheServerIsBack) {
  this->startWithCable();
  auto other = std::make_unique<test::JackCable>("Other", 1);
  ASSERT_TRUE(other->connect("Velor:Generator out_1", "Other:in_1"));
  test::waitFor(0.3, [] { return false; });
  const AudioObjectID id = this->mService->deviceForUID("Cable");

  for (const auto pause : {std::chrono::milliseconds(0), std::chrono::milliseconds(100)}) {
    this->mServer.kill();
    ASSERT_TRUE(test::waitFor(5, [this] { return this->mService->devices().empty(); }));
    EXPECT_EQ(this->translate(id), kAudioHardwareNotRunningError);
    EXPECT_EQ(this->mService->serverDescription(), "internal");
    EXPECT_EQ(this->mService->serverStatus(), AudioServerStatus());
    this->mCable.reset();
    other.reset();
    this->mServer.start();
    ASSERT_TRUE(await(*this->mService, kHardware<TypeParam>));
    // The device may be back later than the server, and port by port.
    this->mCable = std::make_unique<test::JackCable>("Cable", 2, 0, pause);
    other = std::make_unique<test::JackCable>("Other", 1);
    ASSERT_TRUE(await(*this->mService, "Cable"));
    EXPECT_EQ(this->mService->deviceForUID("Cable"), id);
    EXPECT_TRUE(test::waitFor(5, [this, &other] {
      return this->mCable->ports("Velor:.*").size() == 4 &&
             other->isConnected("Velor:Generator out_1", "Other:in_1");
    }));
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
  this->start();
  ASSERT_TRUE(await(*this->mService, "Cable"));
  ASSERT_TRUE(await(*this->mService, "Other"));
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
  this->open("Other", AudioDirection::output, &Player::play, &this->mPlayer);
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
  this->start();
  ASSERT_TRUE(test::waitFor(5, [this] {
    const auto found = find(*this->mService, "Desk");
    return found && found->output.streams ==
                        std::vector<AudioDeviceDescription::Stream>{{"track 1", 1}, {"LTC in", 1}};
  }));
  const AudioObjectID device = this->mService->deviceForUID("Desk");
  auto wanted = request(AudioDirection::output, "Generator", &Player::play, &this->mPlayer);
  wanted.channels = 1;
  wanted.map = {-1, 0};
  auto& stream = *this->mStreams.emplace_back(this->mService->open(device, wanted));
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
  const bool isFirst = find(*this->mService, "Desk")->output.streams[0].name == "track 3";
  const auto map = isFirst ? AudioChannelMap{0, -1} : AudioChannelMap{-1, 0};
  stream.setChannelMap(map);
  awaitMap(map, {"track 3"});
  // A channel that goes is remembered.
  desk.remove("track 3");
  awaitMap({-1}, {});
  desk.renew("track 3", JACK_DEFAULT_AUDIO_TYPE);
  EXPECT_TRUE(test::waitFor(
      5, [&] { return stream.channelMap().size() == 2 && connected() == Tracks{"track 3"}; }));
}

class JackAudioOnJack : public JackAudioOnServer<test::JackServer> {};

TEST_F(JackAudioOnJack, APeriodThatAnotherClientSetsIsReportedAndItIsNotOursToSet) {
  start();
  ASSERT_TRUE(isThere("system"));  // what is there at once is announced at once
  test::JackPeer other("Other");
  other.activate();
  other.setPeriod(2048);
  EXPECT_TRUE(test::waitFor(5, [this] { return find(*mService, "system")->bufferFrames == 2048; }));
  mService->requestBufferFrames(mService->deviceForUID("system"), 512);
  mService.reset();  // after all that was asked
  EXPECT_EQ(other.captureLatency("system:capture_1"), 2048);
}

class JackAudioOnPipeWire : public JackAudioOnServer<test::PipeWireServer> {};

TEST_F(JackAudioOnPipeWire, ANewRateAndPeriodAreReportedWhileItPlays) {
  start();
  ASSERT_TRUE(await(*mService, "velor-null"));
  open("velor-null", AudioDirection::output, &Player::play, &mPlayer);
  for (const auto& [rate, period] : {std::pair(44100, 256U), std::pair(96000, 2048U)}) {
    mServer.force(rate, static_cast<int>(period));
    EXPECT_TRUE(test::waitFor(5, [this, wantedRate = rate, wantedPeriod = period] {
      const auto found = find(*mService, "velor-null");
      return found && found->sampleRate == wantedRate && found->bufferFrames == wantedPeriod;
    })) << rate;
    EXPECT_EQ(mService->serverStatus(), (AudioServerStatus{double(rate), period, 0}));
    EXPECT_NE(mService->serverDescription().find(std::to_string(rate)), std::string::npos);
    EXPECT_TRUE(mPlayer.awaitCycles());
  }
}

}  // namespace
}  // namespace velor::audio
