// SPDX-License-Identifier: MIT
#include "tests/support/JackPeer.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "platform/jack/JackCallback.h"

namespace velor::test {
namespace {

constexpr int kSmallestPeriod = 64;

std::uint64_t hostNow() {
  timespec t{};
  clock_gettime(CLOCK_MONOTONIC, &t);
  return static_cast<std::uint64_t>(t.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(t.tv_nsec);
}

}  // namespace

JackPeer::JackPeer(const std::string& name, std::size_t capacity)
    : JackTestClient(name, JACK_DEFAULT_MIDI_TYPE), mRecorded(capacity), mToSend(capacity) {
  mJack->jack_set_process_callback(mClient, &jack::JackCallback<&JackPeer::onProcess>::call, this);
}

JackPeer::~JackPeer() {
  close();
}

int JackPeer::addInput(const std::string& name) {
  mInputs.push_back(registerPort(name, JACK_DEFAULT_MIDI_TYPE, JackPortIsInput));
  return static_cast<int>(mInputs.size()) - 1;
}

int JackPeer::addOutput(const std::string& name) {
  mOutputs.push_back(registerPort(name, JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput));
  return static_cast<int>(mOutputs.size()) - 1;
}

void JackPeer::recordAudio(const std::string& name, double seconds) {
  mAudioInput = registerPort(name, JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput);
  mAudio.resize(static_cast<std::size_t>(seconds * sampleRate()));
}

void JackPeer::playAudio(const std::string& name, std::vector<float> samples) {
  mAudioOutput = registerPort(name, JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput);
  mTape = std::move(samples);
}

void JackPeer::recordClock(double seconds) {
  mCycles.resize(static_cast<std::size_t>(seconds * sampleRate() / kSmallestPeriod));
}

double JackPeer::clockDrift(std::uint64_t frame) const {
  const auto end = mCycles.begin() + static_cast<std::ptrdiff_t>(mCycleCount.load());
  auto cycle = std::upper_bound(mCycles.begin(), end, frame,
                                [](std::uint64_t f, const Cycle& each) { return f < each.frame; });
  cycle -= cycle == mCycles.begin() ? 0 : 1;
  const Cycle& first = mCycles.front();
  return static_cast<double>(cycle->time - first.time) * sampleRate() / 1e6 -
         static_cast<double>(cycle->frame - first.frame);
}

double JackPeer::clockWander(std::uint64_t first, std::uint64_t last) const {
  double least = clockDrift(first);
  double greatest = least;
  for (std::uint64_t frame = first; frame <= last; frame += kSmallestPeriod) {
    const double drift = clockDrift(frame);
    least = std::min(least, drift);
    greatest = std::max(greatest, drift);
  }
  return greatest - least;
}

std::vector<float> JackPeer::recordedAudio() const {
  return {mAudio.begin(), mAudio.begin() + static_cast<std::ptrdiff_t>(mAudioEnd.load())};
}

void JackPeer::activate() {
  mJack->jack_activate(mClient);
}

void JackPeer::renew(const std::string& name, const char* type) {
  remove(name);
  registerPort(name, type, JackPortIsInput);
}

void JackPeer::remove(const std::string& name) {
  if (jack_port_t* port = mJack->jack_port_by_name(mClient, fullName(name).c_str())) {
    mJack->jack_port_unregister(mClient, port);
  }
}

void JackPeer::setPeriod(int frames) {
  VELOR_JACK_CALL(jack_set_buffer_size)(mClient, static_cast<jack_nframes_t>(frames));
}

int JackPeer::latency(const std::string& port, jack_latency_callback_mode_t mode) const {
  jack_latency_range_t range{};
  VELOR_JACK_CALL(jack_port_get_latency_range)
  (mJack->jack_port_by_name(mClient, port.c_str()), mode, &range);
  return static_cast<int>(range.max);
}

int JackPeer::playbackLatency(const std::string& port) const {
  return latency(port, JackPlaybackLatency);
}

int JackPeer::captureLatency(const std::string& port) const {
  return latency(port, JackCaptureLatency);
}

int JackPeer::sampleRate() const {
  return static_cast<int>(mJack->jack_get_sample_rate(mClient));
}

std::vector<JackPeer::Event> JackPeer::recorded() const {
  std::vector<Event> events;
  const std::size_t count = recordedCount();
  for (std::size_t i = 0; i < count; ++i) {
    const Slot& slot = mRecorded[i];
    events.push_back(
        {slot.frame, slot.port, {slot.bytes.begin(), slot.bytes.begin() + slot.length}});
  }
  return events;
}

std::uint64_t JackPeer::hostTimeAt(std::uint64_t frame) const {
  const auto distance = static_cast<double>(static_cast<std::int64_t>(frame - mCycleFrame.load()));
  return mCycleHostTime.load() +
         static_cast<std::uint64_t>(std::llround(distance * 1e9 / sampleRate()));
}

void JackPeer::sendAt(std::uint64_t frame, int port, const std::vector<std::uint8_t>& bytes) {
  const std::size_t end = mSendEnd.load(std::memory_order_relaxed);
  Slot& slot = mToSend.at(end);
  slot.frame = frame;
  slot.port = port;
  slot.length = static_cast<std::uint8_t>(std::min(bytes.size(), kLongest));
  std::copy_n(bytes.begin(), slot.length, slot.bytes.begin());
  mSendEnd.store(end + 1, std::memory_order_release);
}

int JackPeer::onProcess(jack_nframes_t frames, void* self) {
  static_cast<JackPeer*>(self)->process(frames);
  return 0;
}

void JackPeer::process(jack_nframes_t frames) {
  const jack_nframes_t now = VELOR_JACK_CALL(jack_last_frame_time)(mClient);
  const std::uint64_t start =
      mStarted ? mCycleFrame.load() +
                     static_cast<std::uint64_t>(static_cast<std::int32_t>(now - mLastFrame))
               : now;
  mStarted = true;
  mLastFrame = now;
  mCycleHostTime.store(hostNow());
  mCycleFrame.store(start);

  noteCycle(start, frames);

  for (jack_port_t* output : mOutputs) {
    mJack->jack_midi_clear_buffer(mJack->jack_port_get_buffer(output, frames));
  }
  for (std::size_t port = 0; port < mInputs.size(); ++port) {
    void* buffer = mJack->jack_port_get_buffer(mInputs[port], frames);
    const std::uint32_t count = mJack->jack_midi_get_event_count(buffer);
    for (std::uint32_t i = 0; i < count; ++i) {
      jack_midi_event_t event{};
      const std::size_t place = mCount.load(std::memory_order_relaxed);
      if (mJack->jack_midi_event_get(&event, buffer, i) != 0 || place >= mRecorded.size()) {
        continue;
      }
      if (static_cast<int>(port) == mForward.first) {
        write(mForward.second, frames, event.time, event.buffer, event.size);
      }
      Slot& slot = mRecorded[place];
      slot.frame = start + event.time;
      slot.port = static_cast<int>(port);
      slot.length = static_cast<std::uint8_t>(std::min(event.size, kLongest));
      copyUnwatched(event.buffer, slot.length, slot.bytes.data());
      mCount.store(place + 1, std::memory_order_release);
    }
  }

  if (mAudioInput != nullptr) {
    const auto* samples =
        static_cast<const float*>(mJack->jack_port_get_buffer(mAudioInput, frames));
    // A server may begin by counting a cycle twice.
    if (mAudioEnd.load() == 0 || start < mAudioStart.load()) {
      mAudioEnd.store(0);
      mAudioStart.store(start);
    }
    const std::size_t place = start - mAudioStart.load();
    if (place + frames <= mAudio.size()) {
      copyUnwatched(samples, frames, &mAudio[place]);
      mAudioEnd.store(place + frames, std::memory_order_release);
    }
  }

  if (mAudioOutput != nullptr) {
    play(start, frames);
  }

  const std::size_t end = mSendEnd.load(std::memory_order_acquire);
  for (; mSendNext < end && mToSend[mSendNext].frame < start + frames; ++mSendNext) {
    const Slot& slot = mToSend[mSendNext];
    const std::uint64_t offset = slot.frame > start ? slot.frame - start : 0;
    write(slot.port, frames, static_cast<jack_nframes_t>(offset), slot.bytes.data(), slot.length);
  }
}

// Cycles that are left out show in the server's count, or in its time alone.
void JackPeer::noteCycle(std::uint64_t start, jack_nframes_t frames) {
  jack_nframes_t frame = 0;
  jack_time_t time = 0;
  jack_time_t next = 0;
  float length = 0;
  mJack->jack_get_cycle_times(mClient, &frame, &time, &next, &length);
  const double late = static_cast<double>(time) - static_cast<double>(mLastCycle.time) -
                      1e6 * mLastLength / sampleRate();
  const std::size_t gaps = mGapCount.load(std::memory_order_relaxed);
  if (mLastLength != 0 && gaps < mGaps.size() &&
      (start > mLastCycle.frame + mLastLength || late > 0.5e6 * frames / sampleRate())) {
    mGaps[gaps] = start;
    mGapCount.store(gaps + 1, std::memory_order_release);
  }
  mLastCycle = {start, time};
  mLastLength = frames;
  const std::size_t cycle = mCycleCount.load(std::memory_order_relaxed);
  if (cycle < mCycles.size()) {
    mCycles[cycle] = mLastCycle;
    mCycleCount.store(cycle + 1, std::memory_order_release);
  }
}

void JackPeer::play(std::uint64_t start, jack_nframes_t frames) {
  auto* samples = static_cast<float*>(mJack->jack_port_get_buffer(mAudioOutput, frames));
  const std::uint64_t first = mPlayStart.load();
  for (jack_nframes_t i = 0; i < frames; ++i) {
    const std::uint64_t frame = start + i;
    const float sample = frame >= first && frame - first < mTape.size() ? mTape[frame - first] : 0;
    copyUnwatched(&sample, 1, samples + i);
  }
}

void JackPeer::write(int output, jack_nframes_t frames, jack_nframes_t offset,
                     const std::uint8_t* bytes, std::size_t length) {
  void* buffer = mJack->jack_port_get_buffer(mOutputs[static_cast<std::size_t>(output)], frames);
  jack_midi_data_t* place = mJack->jack_midi_event_reserve(buffer, offset, length);
  if (place != nullptr) {
    copyUnwatched(bytes, length, place);
  }
}

}  // namespace velor::test
