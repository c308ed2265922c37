// SPDX-License-Identifier: MIT
#include "Velor/program/VLDecode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "Velor/program/VLEncode.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/audio/file/SoundFileWriter.h"
#include "tests/support/LTCSignal.h"
#include "tests/support/TemporaryFolder.h"

namespace velor {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kTypes[] = {kSMPTETimeType24,  kSMPTETimeType25,   kSMPTETimeType30Drop,
                                    kSMPTETimeType30,  kSMPTETimeType2997, kSMPTETimeType2997Drop,
                                    kSMPTETimeType2398};

struct Decoded {
  std::vector<VLDecodedFrame> frames;
  VLDecodeSummary summary;
};

class VLDecodeTest : public testing::Test {
 protected:
  Decoded decode(int channel = 1, bool isPlain = true) const {
    const auto reader = audio::SoundFileReader::open(mFile).value();
    Decoded decoded;
    decoded.summary = VLDecodeFile(
        *reader, channel, isPlain,
        [&](const VLDecodedFrame& frame) { decoded.frames.push_back(frame); }, [](double) {});
    EXPECT_EQ(decoded.summary.frames, decoded.frames.size());
    return decoded;
  }
  void write(const std::vector<float>& samples, int rate, int channels,
             audio::SampleEncoding encoding) const {
    const auto writer = audio::SoundFileWriter::create(mFile, {rate, channels, encoding},
                                                       static_cast<std::int64_t>(samples.size()))
                            .value();
    ASSERT_TRUE(writer->write(samples));
    ASSERT_TRUE(writer->finish());
  }
  VLEncodeOptions encode(std::uint32_t type, int rate, double duration, float level) const {
    VLEncodeOptions options;
    options.file = mFile.string();
    options.start = ltc_smptetime_from_frame_number(107'880, type);  // about an hour
    options.duration = duration;
    options.level = level;
    options.userBits = {0x78, 0x56, 0x34, 0x12};
    options.sound.sampleRate = rate;
    EXPECT_TRUE(VLEncodeFile(options, [](double) { return true; }));
    return options;
  }

  const test::TemporaryFolder mFolder;
  const fs::path mFile = mFolder.path() / "a.wav";
};

TEST_F(VLDecodeTest, AChannelWithoutLTCIsRefusedWithTheNameOfTheOneThatCarriesIt) {
  const LTCSignal signal = LTCSignalMaker().make();
  std::vector<float> samples;
  for (const float sample : signal.samples) {
    samples.insert(samples.end(), {0.0F, sample, -0.5F});
  }
  write(samples, 48000, 3, audio::SampleEncoding::int16);
  testing::internal::CaptureStderr();
  EXPECT_EQ(VLDecodeRun({mFile.string(), 3, VLDecodeOptions::Form::text}), 1);
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              testing::EndsWith("no LTC on channel 3; channel 2 carries LTC\n"));
}

// Plainly from the third frame on, and otherwise from the first.
TEST_F(VLDecodeTest, WhatWasEncodedComesBackToTheLastFrameAtItsSample) {
  for (const int rate : {11025, 12000, 44100, 48000, 192000}) {
    for (const std::uint32_t type : kTypes) {
      // Down to where a sample is 1, -1 or 0, and a change is a sample early or late.
      for (const float level : {0.25F, 0.00003F}) {
        const auto options = encode(type, rate, 10.0, level);
        // At 12000 Hz edges fall between two samples, which the plain decoder cannot read.
        for (const bool isPlain : {rate != 12000, false}) {
          SCOPED_TRACE(std::to_string(rate) + " Hz, format " + std::to_string(type) +
                       (isPlain ? ", plain" : ""));
          const Decoded decoded = decode(1, isPlain);
          EXPECT_FALSE(decoded.summary.error);
          const double length = ltc_seconds_per_frame(type) * rate;
          const auto whole = static_cast<std::size_t>(10.0 * rate / length + 0.001);
          const std::size_t untold = isPlain ? 2 : 0;
          ASSERT_EQ(decoded.frames.size(), whole - untold);
          SMPTETime time = options.start;
          ltc_add_frames(time, isPlain ? 1 : static_cast<std::uint32_t>(-1));
          for (std::size_t i = 0; i < decoded.frames.size(); ++i) {
            const VLDecodedFrame& frame = decoded.frames[i];
            ltc_add_frames(time, 1);
            ASSERT_TRUE(frame.time.mMinutes == time.mMinutes &&
                        frame.time.mSeconds == time.mSeconds && frame.time.mFrames == time.mFrames)
                << i;
            ASSERT_NEAR(static_cast<double>(frame.sample), static_cast<double>(i + untold) * length,
                        isPlain && level > 0.1F ? 0.501 : 1.501);
            ASSERT_EQ(frame.userBits, options.userBits);
            ASSERT_FALSE(frame.isReverse);
          }
          EXPECT_EQ(decoded.summary.gapCount, 0U);
          EXPECT_EQ(decoded.summary.format, type);
          EXPECT_NEAR(decoded.summary.meanRate * length / rate, 1, 3 / (9.5 * rate));
        }
      }
    }
  }
}

// Tapes with pieces cut out, behind which the reader falls into step again.
TEST_F(VLDecodeTest, EachGapIsReportedAtTheFrameAfterIt) {
  for (const std::uint32_t type : kTypes) {
    for (const bool inverted : {false, true}) {
      const LTCSignal signal = LTCSignalMaker{.type = type,
                                              .frames = 200,
                                              .seed = type + 1,
                                              .inverted = inverted,
                                              .bits = 16,
                                              .splice = 0.02}
                                   .make();
      // On the second channel of two.
      std::vector<float> samples;
      for (const float sample : signal.samples) {
        samples.insert(samples.end(), {-0.5F, sample});
      }
      write(samples, 48000, 2, audio::SampleEncoding::int16);
      EXPECT_EQ(decode(1).frames.size(), 0U);
      const Decoded decoded = decode(2);
      std::size_t index = 0;
      std::vector<std::uint64_t> gaps;
      for (const VLDecodedFrame& frame : decoded.frames) {
        const std::size_t before = index;
        while (index < signal.frames.size() &&
               std::fabs(signal.frames[index].begin - static_cast<double>(frame.sample)) > 1.5) {
          ++index;
        }
        ASSERT_LT(index, signal.frames.size()) << "a frame across a cut";
        EXPECT_EQ(frame.time.mFrames, signal.frames[index].time.mFrames);
        EXPECT_EQ(frame.userBits, signal.frames[index].userBytes);
        if (index != before + 1 && before != 0) {
          gaps.push_back(frame.sample);
        }
      }
      EXPECT_GE(gaps.size(), 3U);
      std::vector<std::uint64_t> told;
      for (const auto& gap : decoded.summary.gaps) {
        told.push_back(gap.behind.sample);
      }
      EXPECT_THAT(told, testing::ContainerEq(gaps)) << type;
      EXPECT_GT(decoded.frames.size(), 100U);
    }
  }
}

// At such a rate a frame is of this format or of that one by its number alone.
TEST_F(VLDecodeTest, ATapeThatRunsBetweenTwoFormatsHasNoGaps) {
  for (const auto& [type, rate] :
       {std::pair(kSMPTETimeType25, 24.4), std::pair(kSMPTETimeType30, 24.9),
        std::pair(kSMPTETimeType30, 27.0), std::pair(kSMPTETimeType2997Drop, 29.985)}) {
    const auto speed = [rate = rate](double) { return rate; };
    const LTCSignalMaker maker{.type = type, .frames = 200, .speed = speed};
    write(maker.make().samples, 48000, 1, audio::SampleEncoding::int16);
    const Decoded decoded = decode();
    EXPECT_GE(decoded.frames.size(), 198U) << rate;
    EXPECT_EQ(decoded.summary.gapCount, 0U) << rate;
  }
}

}  // namespace
}  // namespace velor
