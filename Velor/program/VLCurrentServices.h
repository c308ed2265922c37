// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "platform/audio/AudioService.h"
#include "platform/media/MediaService.h"
#include "platform/midi/MIDIService.h"

namespace velor {

/// Makes the host's services by the back end that is preferred of those that are
/// available here, and makes them the current ones until its end, before which it
/// ends the shared instances that use them. The host must exist.
class VLCurrentServices {
 public:
  struct Services {
    std::unique_ptr<midi::MIDIService> midi;
    std::unique_ptr<audio::AudioService> audio;
  };

  enum class Outside { ifAvailable, none };

  explicit VLCurrentServices(Outside outside = Outside::ifAvailable);
  ~VLCurrentServices();
  VLCurrentServices(const VLCurrentServices&) = delete;
  VLCurrentServices& operator=(const VLCurrentServices&) = delete;

 private:
  const Services mServices;
  const std::unique_ptr<media::MediaService> mMedia;
};

}  // namespace velor
