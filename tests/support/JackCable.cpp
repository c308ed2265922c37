// SPDX-License-Identifier: MIT
#include "tests/support/JackCable.h"

#include <ctime>
#include <stdexcept>
#include <thread>

// A function of the client library that the program itself has no use for.
#define VELOR_JACK_CALL(name) (reinterpret_cast<decltype(&::name)>(mJack->symbol(#name)))

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
    : mLatency(latency) {
  for (const std::string& path : jack::JackLibrary::paths()) {
    mJack = jack::JackLibrary::load(path);
    jack_status_t status{};
    if (mJack != nullptr) {
      mClient = mJack->jack_client_open(name.c_str(), JackNoStartServer, &status);
    }
    if (mClient != nullptr) {
      break;
    }
  }
  if (mClient == nullptr) {
    throw std::runtime_error("no JACK server for the test's own client");
  }
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
  mJack->jack_set_process_callback(mClient, &JackCable::onProcess, this);
  VELOR_JACK_CALL(jack_set_latency_callback)(mClient, &JackCable::onLatency, this);
  mJack->jack_activate(mClient);
}

JackCable::~JackCable() {
  mJack->jack_client_close(mClient);
}

bool JackCable::connect(const std::string& from, const std::string& to) {
  return mJack->jack_connect(mClient, from.c_str(), to.c_str()) == 0;
}

bool JackCable::isConnected(const std::string& from, const std::string& to) const {
  jack_port_t* port = mJack->jack_port_by_name(mClient, from.c_str());
  if (port == nullptr) {
    return false;
  }
  const char** names = mJack->jack_port_get_all_connections(mClient, port);
  bool found = false;
  for (const char** name = names; name != nullptr && *name != nullptr; ++name) {
    found = found || to == *name;
  }
  mJack->jack_free(names);
  return found;
}

std::vector<std::string> JackCable::ports(const std::string& pattern, const char* type) const {
  std::vector<std::string> result;
  const char** names = mJack->jack_get_ports(mClient, pattern.c_str(), type, 0);
  for (const char** name = names; name != nullptr && *name != nullptr; ++name) {
    result.emplace_back(*name);
  }
  mJack->jack_free(names);
  return result;
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
