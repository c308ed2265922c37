// SPDX-License-Identifier: MIT
#include "Velor/media/VLMediaPlayer.h"

#include "Kv-Appkit/KVAssert.h"

namespace velor {

Expected<std::unique_ptr<VLMediaPlayer>> VLMediaPlayer::initWithURL(
    const media::PlayerRequest& request, media::PlayerDelegate& reports,
    VLMediaPlayerDelegate& delegate) {
  KV_REQUIRE_PARAMETER(!request.path.empty(), "URL");
  media::MediaService* const service = media::service();
  if (service == nullptr) {
    return failure(request.path.string() + ": no player for clips");
  }
  auto player = service->initWithURL(request, reports);
  if (!player) {
    return tl::unexpected(std::move(player.error()));
  }
  return std::unique_ptr<VLMediaPlayer>(new VLMediaPlayer(std::move(*player), delegate));
}

void VLMediaPlayer::play() {
  if (mDelegate.mediaPlayerShouldPlay(*this)) {
    mPlayer->setRate(1.0F);
  }
}

void VLMediaPlayer::pause() {
  if (mDelegate.mediaPlayerShouldPause(*this)) {
    mPlayer->setRate(0.0F);
  }
}

void VLMediaPlayer::setRate(float rate) {
  const bool starts = mPlayer->rate() == 0.0F && rate > 0.0F;
  if (starts && !mDelegate.mediaPlayerShouldPlay(*this)) {
    return;
  }
  if (rate == 0.0F && !mDelegate.mediaPlayerShouldPause(*this)) {
    return;
  }
  mPlayer->setRate(rate);
}

}  // namespace velor
