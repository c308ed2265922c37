// SPDX-License-Identifier: MIT
#include "tests/support/JackCable.h"

#include <thread>

#include "platform/jack/JackCallback.h"

namespace velor::test {

JackCable::JackCable(const std::string& name, int channels, jack_nframes_t latency,
                     std::chrono::milliseconds pause)
    : JackTestClient(name, JACK_DEFAULT_AUDIO_TYPE), mLatency(latency) {
  for (int i = 1; i <= channels; ++i) {
    std::this_thread::sleep_for(pause);
    const std::string number = std::to_string(i);
    mInputs.push_back(registerPort("in_" + number, JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput));
    mOutputs.push_back(registerPort("out_" + number, JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput));
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

int JackCable::onProcess(jack_nframes_t frames, void* self) {
  auto& cable = *static_cast<JackCable*>(self);
  const jack::JackLibrary& library = *cable.mJack;
  for (std::size_t i = 0; i < cable.mInputs.size(); ++i) {
    copyUnwatched(static_cast<float*>(library.jack_port_get_buffer(cable.mInputs[i], frames)),
                  frames,
                  static_cast<float*>(library.jack_port_get_buffer(cable.mOutputs[i], frames)));
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
