// SPDX-License-Identifier: MIT
#include "platform/audio/AudioService.h"

namespace velor::audio {
namespace {

AudioService* gService = nullptr;

}  // namespace

AudioService& service() noexcept {
  return *gService;
}
void setService(AudioService* service) noexcept {
  gService = service;
}

}  // namespace velor::audio
