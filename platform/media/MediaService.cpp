// SPDX-License-Identifier: MIT
#include "platform/media/MediaService.h"

namespace velor::media {
namespace {

MediaService* gService = nullptr;

}  // namespace

MediaService* service() noexcept {
  return gService;
}
void setService(MediaService* service) noexcept {
  gService = service;
}

}  // namespace velor::media
