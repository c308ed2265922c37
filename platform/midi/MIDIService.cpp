// SPDX-License-Identifier: MIT
#include "platform/midi/MIDIService.h"

namespace velor::midi {
namespace {

MIDIService* gService = nullptr;

}  // namespace

MIDIService& service() noexcept {
  return *gService;
}
void setService(MIDIService* service) noexcept {
  gService = service;
}

}  // namespace velor::midi
