// SPDX-License-Identifier: MIT
#include "Velor/app/VLEncode.h"

#include <gtest/gtest.h>
#include <ltc.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Velor/app/VLCommandLine.h"
#include "platform/audio/file/SoundFileReader.h"
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
    audio::SoundFileReader reader(path);
    EXPECT_EQ(reader.error(), "");
    EXPECT_EQ(reader.channels(), 1);
    std::vector<float> samples(static_cast<std::size_t>(reader.frames().value()));
    EXPECT_EQ(reader.read(samples).frames, samples.size());
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
      ASSERT_EQ(VLEncodeFile(wanted, goOn), "");
      std::vector<float> samples = samplesOf(wanted.file);
      EXPECT_EQ(samples.size(), 4U * static_cast<unsigned>(rate));

      LTCDecoder* const decoder = ltc_decoder_create(rate / 25, 1024);
      ltc_decoder_write_float(decoder, samples.data(), samples.size(), 0);
      LTCFrame expected;
      ltc_frame_reset(&expected);
      const bool drop = std::strstr(format.name, "df") != nullptr;
      SMPTETimecode first{};
      first.hours = 23;
      first.mins = 58;
      first.secs = 58;
      const int labels = static_cast<int>(std::lround(format.rate));
      const auto standard = labels == 25 ? LTC_TV_625_50 : LTC_TV_525_60;
      ltc_time_to_frame(&expected, &first, standard, 0);
      expected.dfbit = drop ? 1 : 0;
      int read = 0;
      for (LTCFrameExt frame; ltc_decoder_read(decoder, &frame) > 0; ++read) {
        SMPTETimecode time{};
        SMPTETimecode due{};
        ltc_frame_to_time(&time, &frame.ltc, 0);
        if (read == 0 && time.frame != 0) {  // the reader falls into step
          ltc_frame_increment(&expected, labels, standard, 0);
        }
        ltc_frame_to_time(&due, &expected, 0);
        ASSERT_TRUE(time.hours == due.hours && time.mins == due.mins && time.secs == due.secs &&
                    time.frame == due.frame)
            << "frame " << read << " is " << +time.mins << ":" << +time.secs << ":" << +time.frame
            << ", not " << +due.mins << ":" << +due.secs << ":" << +due.frame;
        ASSERT_EQ(ltc_frame_get_user_bits(&frame.ltc), 0x12345678U);
        ASSERT_EQ(frame.ltc.dfbit, drop ? 1U : 0U);
        ltc_frame_increment(&expected, labels, standard, 0);
      }
      ltc_decoder_free(decoder);
      EXPECT_GE(read, static_cast<int>(4 * format.rate) - 2);
    }
  }
}

// At the length of a whole number of samples a frame would be early by a second after
// an hour.
TEST_F(VLEncodeTest, FramesBeginAtTheSampleNearestToTheirTimeHoweverLongItGoesOn) {
  for (const int rate : {11025, 44100}) {
    for (const Format& format : kFormats) {
      const auto wanted = options("a.wav", format.name, "00:00:00:00", 150, rate);
      ASSERT_EQ(VLEncodeFile(wanted, goOn), "");
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
      std::string error;
      wanted.level = VLLevelFromText(c.level, error).value();
      ASSERT_EQ(VLEncodeFile(wanted, goOn), "");
      const std::vector<float> samples = samplesOf(wanted.file);
      const auto [least, most] = std::minmax_element(samples.begin(), samples.end());
      EXPECT_EQ(*most * 32768, c.peak) << c.level << ", " << rate;
      EXPECT_EQ(*least * 32768, -c.peak) << c.level << ", " << rate;
    }
  }
}

TEST_F(VLEncodeTest, AnEndBeforeTheEndLeavesTheOldFileAndNoOther) {
  std::ofstream(file("a.flac")) << "old";
  const auto wanted = options("a.flac", "25", "00:00:00:00", 100, 48000);
  double last = -1;
  const std::string error = VLEncodeFile(wanted, [&last](double part) {
    EXPECT_GT(part, last);
    last = part;
    return part < 0.5;
  });
  EXPECT_NE(error.find("stopped"), std::string::npos);
  EXPECT_GE(last, 0.5);
  EXPECT_EQ(fs::file_size(file("a.flac")), 3U);
  EXPECT_EQ(std::distance(fs::directory_iterator(mFolder.path()), fs::directory_iterator()), 1);
}

}  // namespace
}  // namespace velor
