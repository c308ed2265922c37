// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/JackTestClient.h"

namespace velor::test {

/// Records what comes to its MIDI inputs, each event at its frame, and sends events and
/// sound at frames. What answers to it must come back to another peer: in a loop through
/// one client the server delays a part by a cycle.
class JackPeer : public JackTestClient {
 public:
  struct Event {
    std::uint64_t frame = 0;  // the server's count, widened to 64 bits
    int port = 0;
    std::vector<std::uint8_t> bytes;
  };

  /// Room for `capacity` events to record, and as many to send.
  explicit JackPeer(const std::string& name, std::size_t capacity = 1 << 17);
  ~JackPeer();

  /// Ports are numbered from 0 in the order of their creation, inputs and
  /// outputs apart; to be made before `activate`.
  int addInput(const std::string& name);
  int addOutput(const std::string& name);
  /// An audio input, the one that is recorded, for so many seconds at the most.
  /// Before `activate`.
  void recordAudio(const std::string& name, double seconds);
  /// An audio output, on which the samples are played from the frame on that `playFrom`
  /// gives, which is to be ahead. Before `activate`.
  void playAudio(const std::string& name, std::vector<float> samples);
  void playFrom(std::uint64_t frame) { mPlayStart.store(frame); }
  /// Records the server's time of each cycle, for so many seconds at the most. Before
  /// `activate`.
  void recordClock(double seconds);
  /// What comes to the input goes to the output in the same cycle, like a cable;
  /// nothing is sent there by `sendAt` then. Before `activate`.
  void forward(int input, int output) { mForward = {input, output}; }
  void activate();
  /// Registers an input from which nothing is recorded; at once anew when it is
  /// there already, as programs do that open their ports again. Also when active.
  void renew(const std::string& name, const char* type = JACK_DEFAULT_MIDI_TYPE);
  void remove(const std::string& name);

  void setPeriod(int frames);
  /// Samples from this output, of any client, to what plays.
  int playbackLatency(const std::string& port) const;
  /// Samples from what is recorded to this output, of any client.
  int captureLatency(const std::string& port) const;
  int sampleRate() const;

  /// What has come so far.
  std::vector<Event> recorded() const;
  std::size_t recordedCount() const { return mCount.load(std::memory_order_acquire); }

  /// The samples that have come so far, silence where a cycle was left out, and the
  /// frame of the first.
  std::vector<float> recordedAudio() const;
  std::size_t recordedAudioCount() const { return mAudioEnd.load(); }
  std::uint64_t audioStart() const { return mAudioStart.load(); }

  /// The frames before which the server left cycles out, the first few of them.
  std::vector<std::uint64_t> gaps() const {
    return {mGaps.begin(), mGaps.begin() + static_cast<std::ptrdiff_t>(mGapCount.load())};
  }

  /// How much later than by its frames since the first cycle the recorded cycle came that
  /// holds the frame, in samples, by the server's own time.
  double clockDrift(std::uint64_t frame) const;
  /// By how much that changed between the two frames, from its least to its greatest.
  double clockWander(std::uint64_t first, std::uint64_t last) const;

  /// The frame at which the next cycle begins, about.
  std::uint64_t frameNow() const { return mCycleFrame.load(); }
  /// The host time (ns, CLOCK_MONOTONIC) at the frame, by the server's latest cycle.
  std::uint64_t hostTimeAt(std::uint64_t frame) const;

  /// Sends the bytes (at most 32) in the cycle that holds the frame. In order.
  void sendAt(std::uint64_t frame, int port, const std::vector<std::uint8_t>& bytes);

 private:
  static constexpr std::size_t kLongest = 32;
  struct Slot {
    std::uint64_t frame;
    int port;
    std::uint8_t length;
    std::array<std::uint8_t, kLongest> bytes;
  };

  static int onProcess(jack_nframes_t frames, void* self);
  void process(jack_nframes_t frames);
  void noteCycle(std::uint64_t start, jack_nframes_t frames);
  void play(std::uint64_t start, jack_nframes_t frames);
  int latency(const std::string& port, jack_latency_callback_mode_t mode) const;
  void write(int output, jack_nframes_t frames, jack_nframes_t offset, const std::uint8_t* bytes,
             std::size_t length);

  std::vector<jack_port_t*> mInputs;
  std::vector<jack_port_t*> mOutputs;
  std::pair<int, int> mForward{-1, -1};
  std::vector<Slot> mRecorded;
  std::atomic<std::size_t> mCount{0};
  jack_port_t* mAudioInput = nullptr;
  std::vector<float> mAudio;
  std::atomic<std::uint64_t> mAudioStart{0};
  std::atomic<std::size_t> mAudioEnd{0};
  struct Cycle {
    std::uint64_t frame;
    std::uint64_t time;  // us, the server's
  };
  std::vector<Cycle> mCycles;
  std::atomic<std::size_t> mCycleCount{0};
  jack_port_t* mAudioOutput = nullptr;
  std::vector<float> mTape;
  std::atomic<std::uint64_t> mPlayStart{UINT64_MAX};
  std::vector<Slot> mToSend;
  std::atomic<std::size_t> mSendEnd{0};
  std::size_t mSendNext = 0;
  std::atomic<std::uint64_t> mCycleFrame{0};
  std::atomic<std::uint64_t> mCycleHostTime{0};
  bool mStarted = false;
  jack_nframes_t mLastFrame = 0;
  Cycle mLastCycle{};
  jack_nframes_t mLastLength = 0;
  std::array<std::uint64_t, 64> mGaps{};
  std::atomic<std::size_t> mGapCount{0};
};

}  // namespace velor::test
