// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "tests/support/JackTestClient.h"

namespace velor::test {

/// What comes to its audio input "in_N" goes to its output "out_N" in the same cycle.
/// Its ports say that they lie `latency` frames before the connector. They are
/// registered `pause` after each other, and activated `pause` after that.
class JackCable : public JackTestClient {
 public:
  JackCable(const std::string& name, int channels, jack_nframes_t latency = 0,
            std::chrono::milliseconds pause = {});
  ~JackCable();

 private:
  static int onProcess(jack_nframes_t frames, void* self);
  static void onLatency(jack_latency_callback_mode_t mode, void* self);

  const jack_nframes_t mLatency;
  std::vector<jack_port_t*> mInputs;
  std::vector<jack_port_t*> mOutputs;
};

}  // namespace velor::test
