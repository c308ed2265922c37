// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "platform/audio/AudioService.h"
#include "platform/midi/MIDIService.h"

namespace velor {

/// Makes the host's services by the back end that is preferred of those that are
/// available here, and puts them in force; the owner takes them out of force with
/// it, and before that ends what the process shares, which stands on them. The host
/// must be there.
class VLServicesInForce {
 public:
  struct Services {
    std::unique_ptr<midi::MIDIService> midi;
    std::unique_ptr<audio::AudioService> audio;
  };

  enum class Outside { ifAvailable, none };

  explicit VLServicesInForce(Outside outside = Outside::ifAvailable);
  ~VLServicesInForce();
  VLServicesInForce(const VLServicesInForce&) = delete;
  VLServicesInForce& operator=(const VLServicesInForce&) = delete;

 private:
  const Services mServices;
};

}  // namespace velor
