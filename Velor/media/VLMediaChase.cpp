// SPDX-License-Identifier: MIT
#include "Velor/media/VLMediaChase.h"

#include <cmath>
#include <cstdio>
#include <utility>

#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/Host.h"
#include "platform/host/Log.h"

namespace velor {
namespace {

using std::chrono::milliseconds;

// The first report of a stream has the counter 3, the second one 6.
constexpr std::uint32_t kLeastCounter = 4;
// The deviation is shown on these frames.
constexpr int kFramesPerDeviation = 10;

milliseconds millisecondsOf(const SMPTETime& time) {
  return milliseconds(std::llround(ltc_seconds_from_smpte_time(time) * 1000.0));
}

double secondsOf(media::MediaTime time) {
  return std::chrono::duration<double>(time).count();
}

std::string deviationText(float rate, double difference) {
  char text[80];
  std::snprintf(text, sizeof text, "%.3f%c [%.2fms]", (static_cast<double>(rate) - 1.0) * 100.0,
                '%', difference * 1000.0);
  return text;
}

}  // namespace

VLMediaChase::VLMediaChase(host::Queue& queue, std::weak_ptr<VLMediaChaseDelegate> delegate)
    : mQueue(queue), mDelegate(std::move(delegate)) {}

// --- settings

void VLMediaChase::setSettings(Settings settings) {
  mQueue.assertCurrent();
  mSettings = std::move(settings);
}

void VLMediaChase::setPlayer(const media::Player* player) {
  mQueue.assertCurrent();
  mPlayer = player;
}

void VLMediaChase::startTimeTyped() {
  mQueue.assertCurrent();
  change(VLMediaChaseEvent::startTimeTyped);
}

bool VLMediaChase::synced() const {
  mQueue.assertCurrent();
  return mState == VLMediaChaseState::inStep;
}

// --- reports

void VLMediaChase::copyTime(const SMPTETime& time, std::uint64_t timestamp, double deviation) {
  mQueue.assertCurrent();
  if (time.mCounter < kLeastCounter) {
    return;
  }
  const milliseconds position = positionOf(time);
  const double offset = secondsOf(position);
  const bool isBefore = offset < 0;
  const bool isAfter = offset > mSettings.assetDuration;
  post([text = std::string("MTC In:") + (mSettings.online ? "" : "off") +
               (isBefore  ? " <<"
                : isAfter ? " >>"
                          : "") +
               " " +
               stringFromSMPTETime(time)](auto& delegate) { delegate.chaseReceivedMTC(text); });
  if (isBefore || isAfter) {
    if (mSettings.online && rate() != 0 && change(VLMediaChaseEvent::leftClip)) {
      post([](auto& delegate) { delegate.chaseStops(); });
    }
  } else if (mState == VLMediaChaseState::inStep) {
    follow(time, timestamp);
    measure(time, position);
  } else if (mSettings.online && change(VLMediaChaseEvent::dueInClip)) {
    start(time, position, timestamp, deviation);
  }
}

void VLMediaChase::start(const SMPTETime& time, milliseconds position, std::uint64_t timestamp,
                         double deviation) {
  mFollows = false;
  const float rate = mSettings.adjustSpeed ? static_cast<float>(1.0 + deviation) : 1.0F;
  if (!mSettings.hasFailed) {
    VELOR_LOG_INFO("set start %s (%f sec) rate: %f, MTC deviation: %f",
                   stringFromSMPTETime(time).c_str(), secondsOf(position),
                   static_cast<double>(rate), deviation);
  }
  if (!mSettings.isReady) {
    return;
  }
  mPendingStarts->fetch_add(1);
  post([=, pending = mPendingStarts, start = position + kVLMediaStartOffset](auto& delegate) {
    delegate.chaseStarts(rate, start, timestamp);
    pending->fetch_sub(1);
  });
  mFollows = mSettings.adjustSpeed;
  mStartRate = static_cast<double>(rate);
  mTold = {secondsOf(position + kVLMediaStartOffset), mStartRate, timestamp};
  mLine.begin(mTold);
}

// Reports that come while the player is still being started count too.
void VLMediaChase::follow(const SMPTETime& time, std::uint64_t timestamp) {
  if (!mFollows) {
    return;
  }
  const double position = ltc_seconds_from_smpte_time(time) -
                          ltc_seconds_from_smpte_time(mSettings.clipStartTime) +
                          std::chrono::duration<double>(kVLMediaStartOffset).count();
  if (!(std::abs(position - mLine.at(timestamp)) < kVLMediaLargestOffset)) {
    mFollows = false;  // a jump; the player's own offset ends the step
    return;
  }
  const VLTimecodeLine::Place is = mLine.add(position, timestamp);
  if (std::abs(is.rate - mStartRate) > kVLMediaLargestTrim) {
    mFollows = false;
  } else if (std::abs(is.position - mTold.at(timestamp)) > kVLMediaFollowedOffset) {
    mTold = is;
    post([is](auto& delegate) {
      delegate.chaseFollows(static_cast<float>(is.rate),
                            media::MediaTime(std::llround(is.position * 1e9)), is.hostTime);
    });
  }
}

void VLMediaChase::measure(const SMPTETime& time, milliseconds position) {
  if (mPendingStarts->load() > 0) {
    return;
  }
  const media::MediaTime played = mPlayer != nullptr ? mPlayer->currentTime() : media::MediaTime{};
  const double difference = secondsOf(played - position);
  // A clip that cannot be played would say so at every other report.
  if (!(std::abs(difference) < kVLMediaLargestOffset) && change(VLMediaChaseEvent::offsetFound) &&
      !mSettings.hasFailed) {
    VELOR_LOG_INFO("media offset for %s is %f sec, resyncing", mSettings.description.c_str(),
                   difference);
  }
  if (time.mFrames % kFramesPerDeviation == 0) {
    post([text = deviationText(rate(), difference)](auto& delegate) {
      delegate.chaseMeasuredDeviation(text);
    });
  }
}

void VLMediaChase::gotoTime(const SMPTETime& time) {
  mQueue.assertCurrent();
  post([text = "MTC In: " + stringFromSMPTETime(time)](auto& delegate) {
    delegate.chaseReceivedMTC(text);
  });
  const milliseconds position = positionOf(time);
  const double offset = secondsOf(position);
  if (!(offset < 0) && !(offset > mSettings.assetDuration)) {
    post([position](auto& delegate) { delegate.chaseLocates(position); });
  }
}

void VLMediaChase::parserDidStop() {
  mQueue.assertCurrent();
  if (change(VLMediaChaseEvent::mtcEnded)) {
    post([](auto& delegate) { delegate.chaseStops(); });
  }
}

// --- helpers of these

bool VLMediaChase::change(VLMediaChaseEvent event) {
  const VLMediaChaseTransition* const row =
      KVTransitionFor(kVLMediaChaseTransitions, mState, event);
  if (row == nullptr) {
    return false;
  }
  mState = row->to;
  return true;
}

// A start that the main queue has still to carry out counts as one that runs.
float VLMediaChase::rate() const {
  if (mPendingStarts->load() > 0) {
    return 1.0F;
  }
  return mPlayer != nullptr ? mPlayer->rate() : 0.0F;
}

milliseconds VLMediaChase::positionOf(const SMPTETime& time) const {
  return millisecondsOf(time) - millisecondsOf(mSettings.clipStartTime);
}

void VLMediaChase::post(Post call) {
  host::current().mainQueue().async([delegate = mDelegate, call = std::move(call)] {
    if (const auto target = delegate.lock()) {
      call(*target);
    }
  });
}

}  // namespace velor
