// SPDX-License-Identifier: MIT
#include "Velor/program/VLEncode.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "Velor/program/VLCommandLine.h"
#include "Velor/program/VLOptionText.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/audio/file/SoundFileReader.h"
#include "tests/support/LTCReading.h"
#include "tests/support/TemporaryFolder.h"

namespace velor {
namespace {

namespace fs = std::filesystem;
using audio::SampleEncoding;

// Formats by their names, with their real rates as people know them.
struct Format {
  const char* name;
  std::uint32_t type;
  long double rate;
};
constexpr Format kFormats[] = {{"23.98", kSMPTETimeType2398, 24000.0L / 1001},
                               {"24", kSMPTETimeType24, 24},
                               {"25", kSMPTETimeType25, 25},
                               {"29.97", kSMPTETimeType2997, 29.97L},
                               {"29.97df", kSMPTETimeType2997Drop, 29.97L},
                               {"30", kSMPTETimeType30, 30},
                               {"30df", kSMPTETimeType30Drop, 30}};

class VLEncodeTest : public testing::Test {
 protected:
  fs::path file(const char* name) const { return mFolder.path() / name; }
  VLEncodeOptions options(const char* name, const char* format, const char* start, double duration,
                          int rate) const {
    const VLCommandLine line = VLParseCommandLine(
        {"encode", "--format", format, "--start", start, "--duration", std::to_string(duration),
         "--rate", std::to_string(rate), "--user-bits", "12345678", file(name).string()});
    EXPECT_EQ(line.output, "");
    return line.encode.value();
  }
  static bool goOn(double) { return true; }
  static std::vector<float> samplesOf(const fs::path& path) {
    const auto reader = audio::SoundFileReader::open(path).value();
    EXPECT_EQ(reader->channels(), 1);
    std::vector<float> samples(static_cast<std::size_t>(reader->frames().value()));
    EXPECT_EQ(reader->read(samples).frames, samples.size());
    return samples;
  }

  const test::TemporaryFolder mFolder;
};

TEST_F(VLEncodeTest, EachFrameIsReadByLibltcInItsOrderWithItsUserBits) {
  int file = 0;
  for (const int rate : {16000, 44100, 48000, 192000}) {
    for (const Format& format : kFormats) {
      SCOPED_TRACE(std::to_string(rate) + " Hz, " + format.name);
      const char* const names[] = {"a.wav", "a.w64", "a.flac"};
      // Over a minute at which drop formats drop.
      auto wanted = options(names[file++ % 3], format.name, "23:58:58:00", 4, rate);
      wanted.sound.encoding = file % 2 != 0 ? SampleEncoding::int16 : SampleEncoding::int24;
      ASSERT_TRUE(VLEncodeFile(wanted, goOn));
      LTCSignal signal;
      signal.sampleRate = rate;
      signal.samples = samplesOf(wanted.file);
      EXPECT_EQ(signal.samples.size(), 4U * static_cast<unsigned>(rate));
      const auto length = static_cast<double>(rate / format.rate);
      SMPTETime time = wanted.start;
      for (double begin = 0; begin + length < 4 * rate; begin += length) {
        signal.frames.push_back({time, {0x78, 0x56, 0x34, 0x12}, begin, begin, begin + length});
        ltc_add_frames(time, 1);
      }
      const LTCScore score = scoreOf(signal, readByLibltc(signal, 512));
      EXPECT_EQ(score.wrong, 0U);
      EXPECT_GE(score.right + 2, signal.frames.size());
    }
  }
}

// At the length of a whole number of samples a frame would be early by a second after
// an hour.
TEST_F(VLEncodeTest, FramesBeginAtTheSampleNearestToTheirTimeHoweverLongItGoesOn) {
  for (const int rate : {11025, 44100}) {
    for (const Format& format : kFormats) {
      const auto wanted = options("a.wav", format.name, "00:00:00:00", 150, rate);
      ASSERT_TRUE(VLEncodeFile(wanted, goOn));
      const std::vector<float> samples = samplesOf(wanted.file);
      int faults = 0;
      int frames = 0;
      for (long double n = 1; n < 150 * format.rate - 1; n += 1, ++frames) {
        const long double exact = n * rate / format.rate;
        const auto at = static_cast<std::size_t>(std::floor(exact + 0.5L));
        // The one of two that are as near does not matter.
        const bool isHalf = std::fabs(exact + 0.5L - std::round(exact + 0.5L)) < 1e-6L;
        const auto begins = [&](std::size_t i) { return samples[i - 1] < 0 && samples[i] > 0; };
        faults += begins(at) || (isHalf && begins(at - 1)) ? 0 : 1;
      }
      EXPECT_EQ(faults, 0) << rate << " Hz, " << format.name;
      EXPECT_GT(frames, 3500);
    }
  }
}

TEST_F(VLEncodeTest, TheLevelIsReachedOnBothSidesAndNeverPassed) {
  struct Case {
    const char* level;
    float peak;  // of 32767
  };
  const Case cases[] = {{"0dB", 32767}, {"-12 dB", 8231}, {"-12dB", 8231}, {"-60.5 DB", 31}};
  for (const int rate : {11025, 44100, 48000, 192000}) {
    for (const Case& c : cases) {
      auto wanted = options("a.wav", "29.97", "00:00:00:00", 1, rate);
      wanted.level = VLOptionText::level(c.level).value();
      ASSERT_TRUE(VLEncodeFile(wanted, goOn));
      const std::vector<float> samples = samplesOf(wanted.file);
      const auto [least, most] = std::minmax_element(samples.begin(), samples.end());
      EXPECT_EQ(*most * 32768, c.peak) << c.level << ", " << rate;
      EXPECT_EQ(*least * 32768, -c.peak) << c.level << ", " << rate;
    }
  }
}

}  // namespace
}  // namespace velor
