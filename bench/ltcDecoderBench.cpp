// SPDX-License-Identifier: MIT
// Samples of LTC a second, floats in buffers of 1024, at 48 kHz and 25 frames per second,
// beside libltc's decoder on the same ones. Each must tell all frames.
#include <ltc.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "Velor/ltc/ltc_decoder.h"
#include "bench/LibltcContest.h"
#include "tests/support/LTCSignal.h"

namespace velor {
namespace {

constexpr double kSampleRate = 48000;
constexpr std::size_t kBuffer = 1024;
constexpr int kRunsPerRound = 10;

// Whole buffers and whole frames, so that the signal goes on where it ends.
constexpr std::size_t kFrames = 256;
constexpr std::size_t kSamples = kFrames * 1920;
static_assert(kSamples % kBuffer == 0);

class Own {
 public:
  Own() {
    if (ltc_decoder_create(mDecoder) != 0 ||
        ltc_decoder_init(mDecoder, 1'000'000'000, kSampleRate, 25.0) != 0) {
      std::abort();
    }
    ltc_decoder_set_callback(
        *mDecoder,
        [](const SMPTETime&, const std::uint8_t*, void* refCon, std::uint64_t, double) {
          ++*static_cast<std::uint64_t*>(refCon);
        },
        &mTold);
  }
  ~Own() { ltc_decoder_dispose(mDecoder); }
  Own(const Own&) = delete;
  Own& operator=(const Own&) = delete;

  void read(float* samples) {
    audio::AudioTimeStamp time;
    time.mSampleTime = static_cast<double>(mPosition);
    time.mHostTime = mPosition * 20833;
    ltc_decoder_process(*mDecoder, time, samples, kBuffer);
    mPosition += kBuffer;
  }
  std::uint64_t told() const { return mTold; }

 private:
  ltc_decoder* mDecoder = nullptr;
  std::uint64_t mTold = 0;
  std::uint64_t mPosition = 0;
};

class Libltc {
 public:
  ~Libltc() { ltc_decoder_free(mDecoder); }
  Libltc() = default;
  Libltc(const Libltc&) = delete;
  Libltc& operator=(const Libltc&) = delete;

  void read(float* samples) {
    ltc_decoder_write_float(mDecoder, samples, kBuffer, mPosition);
    for (LTCFrameExt frame; ltc_decoder_read(mDecoder, &frame) > 0;) {
      ++mTold;
    }
    mPosition += kBuffer;
  }
  std::uint64_t told() const { return mTold; }

 private:
  LTCDecoder* const mDecoder = ::ltc_decoder_create(1920, 32);
  std::uint64_t mTold = 0;
  ltc_off_t mPosition = 0;
};

template <class Decoder>
void readAll(Decoder& decoder, std::vector<float>& signal) {
  for (int run = 0; run < kRunsPerRound; ++run) {
    for (std::size_t i = 0; i < kSamples; i += kBuffer) {
      decoder.read(signal.data() + i);
    }
  }
}

// All but some at the beginning and at the end.
void requireAll(const char* name, std::uint64_t told) {
  const std::uint64_t played = std::uint64_t{kFrames} * kRunsPerRound * LibltcContest::kRounds;
  if (told + 3 < played || told > played) {
    std::fprintf(stderr, "%s told %llu frames of %llu\n", name,
                 static_cast<unsigned long long>(told), static_cast<unsigned long long>(played));
    std::exit(1);
  }
}

}  // namespace
}  // namespace velor

int main() {
  velor::LTCSignalMaker maker;
  maker.sampleRate = velor::kSampleRate;
  maker.frames = velor::kFrames;
  std::vector<float> signal = maker.make().samples;
  signal.resize(velor::kSamples);
  velor::Own own;
  velor::Libltc libltc;
  const velor::LibltcContest contest(
      velor::kRunsPerRound * static_cast<double>(velor::kSamples),
      [&] { velor::readAll(own, signal); }, [&] { velor::readAll(libltc, signal); });
  velor::requireAll("velor", own.told());
  velor::requireAll("libltc", libltc.told());
  return contest.print("decode, 48 kHz, 25 frames per second, buffers of 1024", "million samples",
                       1e6);
}
