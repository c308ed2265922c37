// SPDX-License-Identifier: MIT
// Frames of LTC a second, from the time to floats, at 48 kHz and 25 frames per second,
// beside libltc's encoder. Both count on, encode and give floats.
#include <benchmark/benchmark.h>
#include <ltc.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "bench/LibltcContest.h"
#include "kvtimecode/ltc_frame.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {
namespace {

constexpr std::uint32_t kSamples = 1920;  // 48000 / 25
constexpr float kLevel = 0.5F;
constexpr int kFramesPerRound = 20000;

using Floats = std::array<float, kSamples + 1>;

class Own {
 public:
  Own() {
    mTime.mType = kSMPTETimeType25;
    ltc_set_time(mTime, 10, 0, 0, 0);
  }
  ~Own() { ltc_frame_destroy(mFrame); }
  Own(const Own&) = delete;
  Own& operator=(const Own&) = delete;

  void next(Floats& out) {
    ltc_frame_encode(*mFrame, mTime, mUserBytes.data());
    ltc_frame_render(*mFrame, out.data(), kSamples, kLevel);
    ltc_add_frames(mTime, 1);
  }

 private:
  ltc_frame* const mFrame = ltc_frame_create();
  SMPTETime mTime;
  const std::array<std::uint8_t, kLTCUserBytes> mUserBytes = {0x12, 0x34, 0x56, 0x78};
};

class Libltc {
 public:
  Libltc() : mEncoder(ltc_encoder_create(48000, 25, LTC_TV_625_50, 0)) {
    SMPTETimecode time{};
    time.hours = 10;
    ltc_encoder_set_timecode(mEncoder, &time);
    ltc_encoder_set_user_bits(mEncoder, 0x78563412);
  }
  ~Libltc() { ltc_encoder_free(mEncoder); }
  Libltc(const Libltc&) = delete;
  Libltc& operator=(const Libltc&) = delete;

  void next(Floats& out) {
    ltc_encoder_encode_frame(mEncoder);
    ltcsnd_sample_t* samples = nullptr;
    const int count = ltc_encoder_get_bufferptr(mEncoder, &samples, 1);
    for (int i = 0; i < count; ++i) {
      out[static_cast<std::size_t>(i)] = static_cast<float>(samples[i] - 128) * (1.0F / 127.0F);
    }
    if (count != static_cast<int>(kSamples)) {
      std::fprintf(stderr, "libltc gave a frame of %d samples\n", count);
      std::exit(1);
    }
    ltc_encoder_inc_timecode(mEncoder);
  }

 private:
  LTCEncoder* const mEncoder;
};

template <class Encoder>
void encodeAll(Encoder& encoder) {
  static Floats out;
  for (int i = 0; i < kFramesPerRound; ++i) {
    encoder.next(out);
    benchmark::DoNotOptimize(out.data());
    benchmark::ClobberMemory();
  }
}

}  // namespace
}  // namespace velor

int main() {
  velor::Own own;
  velor::Libltc libltc;
  const velor::LibltcContest contest(
      velor::kFramesPerRound, [&] { velor::encodeAll(own); }, [&] { velor::encodeAll(libltc); });
  return contest.print("encode and render, 48 kHz, 25 frames per second", "frames", 1);
}
