// SPDX-License-Identifier: MIT
#include "kvtimecode/generator/LTCBatchWriter.h"

#include <array>
#include <cmath>
#include <mutex>
#include <utility>

#include "Kv-Appkit/KVAssert.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_two_frames.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/audio/AudioService.h"
#include "platform/host/Log.h"

namespace velor {
namespace {

// The ring holds two batches at the lowest frame rate.
constexpr double kLowestFrameRate = 24;
constexpr double kRingFrames = 2 * LTCPhaseLock::kFramesPerBatch;

// MTC names a time when its first piece is sent; this is the frame due at its target.
constexpr std::uint32_t kFramesAhead = 2;

std::array<std::uint8_t, kLTCUserBytes> bytesOf(std::uint32_t userbits) noexcept {
  std::array<std::uint8_t, kLTCUserBytes> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<std::uint8_t>(userbits >> 8 * i);
  }
  return bytes;
}

}  // namespace

// Rendering may write one sample after the last frame.
LTCBatchWriter::Buffers::Buffers(audio::AudioObjectID device, double rate, std::uint32_t latency)
    : deviceID(device),
      sampleRate(rate),
      length(static_cast<std::uint32_t>(std::ceil(rate / kLowestFrameRate) * kRingFrames)),
      outputLatency(latency),
      scratch(length + 1) {}

LTCBatchWriter::LTCBatchWriter() : mLTC(ltc_frame_create()) {
  KV_ASSERT(mLTC != nullptr);
}

// --- the device ---

void LTCBatchWriter::open(audio::AudioObjectID device, double sampleRate, std::uint32_t latency) {
  auto buffers = std::make_shared<Buffers>(device, sampleRate, latency);
  std::vector<float> ring(buffers->length);
  publish(std::move(buffers), std::move(ring));
}

void LTCBatchWriter::close() {
  publish(nullptr, {});
}

// A call of `write` that is under way goes on with the buffers that it has and writes
// nothing. They are freed here, later: the call must not be the last to hold them.
void LTCBatchWriter::publish(std::shared_ptr<Buffers> buffers, std::vector<float> ring) {
  {
    const std::lock_guard lock(mSamples.lock);
    ++mEpoch;
    mSamples.writeEnd = 0;
    mSamples.ring.swap(ring);
    mBuffers.swap(buffers);
  }
  if (buffers != nullptr) {
    mRetired.push_back(std::move(buffers));
  }
  std::erase_if(mRetired, [](const auto& retired) { return retired.use_count() == 1; });
}

void LTCBatchWriter::silence() {
  const std::lock_guard lock(mSamples.lock);
  mSamples.writeEnd = 0;
}

void LTCBatchWriter::setLatency(std::uint32_t latency) {
  const std::lock_guard lock(mSamples.lock);
  if (mBuffers != nullptr) {
    mBuffers->outputLatency.store(latency);
  }
}

// --- the time that comes in ---

std::optional<double> LTCBatchWriter::write(const SMPTETime& time, std::uint64_t hostTime) {
  std::shared_ptr<Buffers> buffers;
  std::uint64_t epoch = 0;
  bool isFirst = false;
  {
    const std::lock_guard lock(mSamples.lock);
    buffers = mBuffers;
    epoch = mEpoch;
    isFirst = !std::exchange(mHasReceived, true);
  }
  if (isFirst) {
    VELOR_LOG_INFO("Generator starts to receive: %s (%s)", stringFromSMPTETime(time).c_str(),
                   stringFromSMPTEFormat(time.mType).c_str());
  }
  if (buffers == nullptr || !ltc_is_valid_type(time.mType)) {
    return std::nullopt;
  }
  const auto call = callFor(time, hostTime, *buffers);
  if (!call) {
    return std::nullopt;
  }
  SMPTETime due = time;
  ltc_add_two_frames(due);
  const auto phase = place(*call, due, epoch, *buffers);
  if (!phase) {
    return std::nullopt;
  }
  return 1 - phase->weightedFrameLen * 0.5 / call->sampleRate / call->frameDuration;
}

// None when the device has no clock, or had not begun to count at that time.
std::optional<LTCPhaseLock::Call> LTCBatchWriter::callFor(const SMPTETime& time,
                                                          std::uint64_t hostTime,
                                                          const Buffers& buffers) {
  audio::AudioTimeStamp stamp;
  stamp.mHostTime = hostTime;
  stamp.mFlags = audio::kAudioTimeStampHostTimeValid;
  audio::AudioTimeStamp deviceTime;
  deviceTime.mFlags = audio::kAudioTimeStampSampleHostTimeValid;
  if (audio::service().AudioDeviceTranslateTime(buffers.deviceID, stamp, deviceTime) != 0) {
    return std::nullopt;
  }
  LTCPhaseLock::Call call{};
  call.frameDuration = ltc_seconds_per_frame(time.mType);
  call.sampleRate = buffers.sampleRate;
  call.maxFrameSamples = buffers.length / LTCPhaseLock::kFramesPerBatch;
  call.target = deviceTime.mSampleTime + kFramesAhead * call.frameDuration * call.sampleRate -
                buffers.outputLatency.load();
  if (!(call.target >= 0)) {
    return std::nullopt;
  }
  return call;
}

// Renders without the lock, so again when the device has begun another frame meanwhile.
// None when the stream was stopped or the device changed, or when nobody plays.
std::optional<LTCPhaseLock> LTCBatchWriter::place(LTCPhaseLock::Call call, const SMPTETime& time,
                                                  std::uint64_t epoch, Buffers& buffers) {
  for (std::optional<LTCPhaseLock::Batch> rendered;;) {
    std::optional<LTCPhaseLock::Batch> batch;
    {
      const std::lock_guard lock(mSamples.lock);
      if (mEpoch != epoch) {
        return std::nullopt;
      }
      LTCPhaseLock next = mPhase;
      call.readEnd = mSamples.lastReadEnd;
      batch = next.advance(call);
      if (!batch) {
        mPhase = next;
        return std::nullopt;
      }
      if (batch == rendered) {
        mSamples.write(batch->start,
                       std::span(buffers.scratch).first(batch->frames() * batch->frameSamples));
        mPhase = next;
        mTime = time;
        if (mWatchdog != nullptr) {
          mWatchdog->validate();
        }
        return next;
      }
    }
    render(*batch, time, buffers);
    rendered = batch;
  }
}

// `time` is that of the batch's first place, written or not.
void LTCBatchWriter::render(const LTCPhaseLock::Batch& batch, SMPTETime time, Buffers& buffers) {
  const float amplitude = mLevel.load();
  float* position = buffers.scratch.data();
  for (std::uint32_t frame = 0; frame < LTCPhaseLock::kFramesPerBatch; ++frame) {
    if (frame >= batch.firstFrame) {
      ltc_frame_encode(*mLTC, time, bytesOf(mUserBits.load()).data());
      ltc_frame_render(*mLTC, position, batch.frameSamples, amplitude);
      position += batch.frameSamples;
    }
    ltc_add_frames(time, 1);
  }
}

// --- the stream ---

std::optional<LTCBatchWriter::Stream> LTCBatchWriter::stream() {
  const std::lock_guard lock(mSamples.lock);
  if (mPhase.isIdle() || mBuffers == nullptr) {
    return std::nullopt;
  }
  return Stream{mBuffers->sampleRate, mPhase.weightedFrameLen * 0.5, mTime, mWatchdog != nullptr};
}

std::shared_ptr<KVWatchdog> LTCBatchWriter::setWatchdog(std::shared_ptr<KVWatchdog> watchdog) {
  const std::lock_guard lock(mSamples.lock);
  return std::exchange(mWatchdog, std::move(watchdog));
}

bool LTCBatchWriter::stop() {
  const std::lock_guard lock(mSamples.lock);
  ++mEpoch;
  mHasReceived = false;
  mSamples.clear();
  return !std::exchange(mPhase, {}).isGivenUp();
}

}  // namespace velor
