// SPDX-License-Identifier: MIT
// Any samples, in any buffers, with any leaps of the sample time, into the decoders of
// LTC. ltc_decoder must report running times of the seven formats at rates that it reads.
// The conditioned decoders must give times that exist, and frames in their order.
//
// The first byte chooses the sample rate. Then a row of steps, each begun by one byte:
//   0xxxxxxx  the sign changes and stays for x + 1 samples
//   10xxxxxx  the bits of x + 1 bytes, which follow, as a signal of 25 frames per second
//   110xxxxx  x + 1 floats, which follow as they stand
//   111xxxxx  the buffer ends here, and 2 to the power of x samples are skipped; none for 31
#include <array>
#include <cstring>
#include <memory>
#include <vector>

#include "Velor/ltc/VLConditionedLTCDecoder.h"
#include "Velor/ltc/VLLTCVarispeedDecoder.h"
#include "Velor/ltc/ltc_decoder.h"
#include "tests/fuzz/FuzzTarget.h"

namespace {

class Decoders {
 public:
  explicit Decoders(double sampleRate)
      : mSampleRate(sampleRate),
        mConditioned(std::make_unique<velor::VLConditionedLTCDecoder>(1'000'000'000, sampleRate,
                                                                      conditionedTold, nullptr)),
        mVarispeed(sampleRate, [this](const velor::VLLTCBits& bits) {
          require(bits.end > bits.begin && bits.begin > mLastBegin, "frames in their order");
          requireTime(velor::VLLTCTimeOf(bits, velor::kSMPTETimeType30));
          mLastBegin = bits.begin;
        }) {
    require(velor::ltc_decoder_create(mDecoder) == 0, "there is memory");
    require(velor::ltc_decoder_init(mDecoder, 1'000'000'000, sampleRate, 25.0) == 0, "init");
    velor::ltc_decoder_set_callback(*mDecoder, told, nullptr);
  }
  ~Decoders() { velor::ltc_decoder_dispose(mDecoder); }
  Decoders(const Decoders&) = delete;
  Decoders& operator=(const Decoders&) = delete;

  void run(std::size_t count) {
    mSign = !mSign;
    mBuffer.insert(mBuffer.end(), count, mSign ? -0.25F : 0.25F);
  }
  void bits(std::uint8_t byte) {
    const auto half = static_cast<std::size_t>(mSampleRate / 25 / 160);
    for (unsigned i = 0; i < 8; ++i) {
      if ((byte >> i & 1U) != 0) {
        run(half);
        run(half);
      } else {
        run(2 * half);
      }
    }
  }
  void add(float sample) { mBuffer.push_back(sample); }

  void endBuffer(std::uint64_t skipped) {
    // Just as long as it is, so that a read beyond it is noticed.
    const std::vector<float> buffer(mBuffer.begin(), mBuffer.end());
    velor::audio::AudioTimeStamp time;
    time.mSampleTime = static_cast<double>(mPosition);
    time.mHostTime = mPosition * 20'000;
    velor::ltc_decoder_process(*mDecoder, time, buffer.data(),
                               static_cast<std::uint32_t>(buffer.size()));
    mConditioned->process(time, buffer.data(), static_cast<std::uint32_t>(buffer.size()));
    mVarispeed.process(buffer);
    mPosition += buffer.size() + skipped;
    mBuffer.clear();
  }

  void finish() { mVarispeed.finish(); }

 private:
  static void requireTime(const velor::SMPTETime& time) {
    require(time.mFlags == 3 && time.mSubframes == 0 && time.mSubframeDivisor == 80, "running");
    require(time.mHours < 24 && time.mMinutes < 60 && time.mSeconds < 60 && time.mFrames < 30,
            "a time of the day");
  }
  static void conditionedTold(const velor::SMPTETime& time, const std::uint8_t*, void*,
                              std::uint64_t, double fps) {
    requireTime(time);
    require(fps >= 23 && fps <= 31, "a rate that is read");
  }
  static void told(const velor::SMPTETime& time, const std::uint8_t*, void*, std::uint64_t,
                   double fps) {
    require(time.mFlags == 3 && time.mSubframes == 0 && time.mSubframeDivisor == 80, "running");
    require(time.mType <= 5 || time.mType == 11, "one of seven formats");
    require(fps >= 23 && fps <= 31, "a rate that is read");
  }

  const double mSampleRate;
  velor::ltc_decoder* mDecoder = nullptr;
  std::unique_ptr<velor::VLConditionedLTCDecoder> mConditioned;
  velor::VLLTCVarispeedDecoder mVarispeed;
  double mLastBegin = -1e9;
  std::vector<float> mBuffer;
  std::uint64_t mPosition = 1000;
  bool mSign = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  constexpr std::array<double, 7> kSampleRates = {44100, 48000, 88200, 96000, 192000, 8000, 768000};
  Decoders decoders(kSampleRates[*data % kSampleRates.size()]);
  const std::uint8_t* const end = data + size;
  for (++data; data != end;) {
    const unsigned step = *data++;
    if (step < 0x80) {
      decoders.run(step + 1);
    } else if (step < 0xC0) {
      for (unsigned i = 0; i <= step % 0x40 && data != end; ++i) {
        decoders.bits(*data++);
      }
    } else if (step < 0xE0) {
      for (unsigned i = 0; i <= step % 0x20 && end - data >= 4; ++i, data += 4) {
        float sample = 0;
        std::memcpy(&sample, data, sizeof sample);
        decoders.add(sample);
      }
    } else {
      decoders.endBuffer(step == 0xFF ? 0 : std::uint64_t{1} << step % 0x20);
    }
  }
  decoders.endBuffer(0);
  decoders.finish();
  return 0;
}
