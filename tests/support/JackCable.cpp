// SPDX-License-Identifier: MIT
#include "tests/support/JackCable.h"

#include <ctime>
#include <thread>

#include "platform/jack/JackCallback.h"

namespace velor::test {
namespace {

// Buffers of the server pass between two clients of this process by way of another
// process, which ThreadSanitizer can't see.
__attribute__((no_sanitize("thread"))) void copyUnwatched(const float* from, jack_nframes_t frames,
                                                          float* to) {
  for (jack_nframes_t i = 0; i < frames; ++i) {
    const_cast<volatile float*>(to)[i] = from[i];
  }
}

}  // namespace

JackCable::JackCable(const std::string& name, int channels, jack_nframes_t latency,
                     std::chrono::milliseconds pause)
    : JackTestClient(name, JACK_DEFAULT_AUDIO_TYPE), mLatency(latency) {
  for (int i = 1; i <= channels; ++i) {
    std::this_thread::sleep_for(pause);
    const auto add = [&](const std::string& port, unsigned long flags) {
      return mJack->jack_port_register(mClient, (port + std::to_string(i)).c_str(),
                                       JACK_DEFAULT_AUDIO_TYPE, flags, 0);
    };
    mInputs.push_back(add("in_", JackPortIsInput));
    mOutputs.push_back(add("out_", JackPortIsOutput));
  }
  std::this_thread::sleep_for(pause);
  mJack->jack_set_process_callback(mClient, &jack::JackCallback<&JackCable::onProcess>::call, this);
  VELOR_JACK_CALL(jack_set_latency_callback)
  (mClient, &jack::JackCallback<&JackCable::onLatency>::call, this);
  mJack->jack_activate(mClient);
}

JackCable::~JackCable() {
  close();
}

JackCable::Wake JackCable::lastWake() const {
  for (;;) {
    const std::uint32_t before = mCycles.load();
    const Wake wake{mWakeFrame.load(), mWakeTime.load()};
    if ((before & 1U) == 0 && mCycles.load() == before) {
      return wake;
    }
  }
}

int JackCable::onProcess(jack_nframes_t frames, void* self) {
  auto& cable = *static_cast<JackCable*>(self);
  const std::shared_ptr<const jack::JackLibrary>& mJack = cable.mJack;
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  ++cable.mCycles;
  cable.mWakeTime = static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
                    static_cast<std::uint64_t>(now.tv_nsec);
  cable.mWakeFrame = VELOR_JACK_CALL(jack_last_frame_time)(cable.mClient);
  ++cable.mCycles;
  for (std::size_t i = 0; i < cable.mInputs.size(); ++i) {
    copyUnwatched(static_cast<float*>(mJack->jack_port_get_buffer(cable.mInputs[i], frames)),
                  frames,
                  static_cast<float*>(mJack->jack_port_get_buffer(cable.mOutputs[i], frames)));
  }
  return 0;
}

void JackCable::onLatency(jack_latency_callback_mode_t mode, void* self) {
  auto& cable = *static_cast<JackCable*>(self);
  const std::shared_ptr<const jack::JackLibrary>& mJack = cable.mJack;
  jack_latency_range_t range{cable.mLatency, cable.mLatency};
  for (jack_port_t* port : mode == JackCaptureLatency ? cable.mOutputs : cable.mInputs) {
    VELOR_JACK_CALL(jack_port_set_latency_range)(port, mode, &range);
  }
}

}  // namespace velor::test
