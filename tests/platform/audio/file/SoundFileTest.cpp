// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "platform/audio/file/SoundFileReader.h"
#include "platform/audio/file/SoundFileWriter.h"
#include "tests/support/FullDisk.h"
#include "tests/support/TemporaryFolder.h"

namespace velor::audio {
namespace {

namespace fs = std::filesystem;
using test::fileContents;
using testing::HasSubstr;

// A number of so many bytes, little-endian.
std::string little(std::uint64_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) {
    text += static_cast<char>(value >> (8 * i) & 0xFFU);
  }
  return text;
}

// A WAV file as Microsoft and IBM published it in 1991; what it says of its length can
// differ from what it has.
struct Wav {
  unsigned tag = 1;  // integers; 3: floats
  unsigned channels = 1;
  unsigned rate = 48000;
  unsigned bits = 16;
  std::string data = std::string(2000, '\x11');
  std::int64_t more = 0;  // bytes that the header tells beyond the data

  std::string bytes() const {
    const auto size = static_cast<std::uint64_t>(static_cast<std::int64_t>(data.size()) + more);
    const unsigned frame = channels * bits / 8;
    return "RIFF" + little(36 + size, 4) + "WAVEfmt " + little(16, 4) + little(tag, 2) +
           little(channels, 2) + little(rate, 4) + little(std::uint64_t{rate} * frame, 4) +
           little(frame, 2) + little(bits, 2) + "data" + little(size, 4) + data;
  }
};

class SoundFileTest : public testing::Test {
 protected:
  fs::path file(const std::string& name) const { return mFolder.path() / name; }
  fs::path fileOf(const std::string& name, const std::string& bytes) const {
    std::ofstream(file(name), std::ios::binary) << bytes;
    return file(name);
  }
  static Expected<> write(const fs::path& path, const SoundFormat& format,
                          const std::vector<float>& samples) {
    const auto writer = SoundFileWriter::create(
        path, format, static_cast<std::int64_t>(samples.size()) / format.channels);
    auto written = writer.map([](const auto&) {});
    for (std::size_t at = 0; written && at < samples.size(); at += 1000) {
      written = (*writer)->write(
          std::span(samples).subspan(at, std::min<std::size_t>(1000, samples.size() - at)));
    }
    return written ? (*writer)->finish() : written;
  }
  struct Sound {
    std::vector<float> samples;
    std::optional<Error> error;
  };
  static Sound readAll(SoundFileReader& reader) {
    Sound sound;
    const auto channels = static_cast<std::size_t>(reader.channels());
    std::vector<float> room(700 * channels);
    std::size_t frames = 1;
    while (!sound.error && frames > 0) {
      const auto part = reader.read(room);
      frames = part.frames;
      sound.samples.insert(sound.samples.end(), room.begin(),
                           room.begin() + static_cast<std::ptrdiff_t>(frames * channels));
      sound.error = part.error;
    }
    return sound;
  }

  const test::TemporaryFolder mFolder;
};

std::vector<float> noise(std::size_t count) {
  std::mt19937 random(1);
  std::uniform_real_distribution<float> value(-1.0F, 1.0F);
  std::vector<float> samples(count);
  std::generate(samples.begin(), samples.end(), [&] { return value(random); });
  return samples;
}

TEST_F(SoundFileTest, IntegersAreTheNearestOnesAndTheSameOnBothSidesOfZero) {
  // At 16 bits, in whole numbers and fractions of them, and as they must lie in the file.
  const double units[] = {0, 0.4, 0.6, -0.4, -0.6, 8230.4, 8230.6, -8230.4, -8230.6};
  std::vector<float> samples = {1.0F, -1.0F, 1.5F, -INFINITY};
  Wav wav{.rate = 44100, .data = "\xFF\x7F\x01\x80\xFF\x7F\x01\x80"};
  for (const double unit : units) {
    samples.push_back(static_cast<float>(unit / 32767));
    wav.data += little(static_cast<std::uint16_t>(std::lround(unit)), 2);
  }
  ASSERT_TRUE(write(file("16.wav"), {44100, 1, SampleEncoding::int16}, samples));
  EXPECT_EQ(fileContents(file("16.wav")), wav.bytes());

  ASSERT_TRUE(write(file("24.wav"), {44100, 1, SampleEncoding::int24},
                    {1.0F, -1.0F, 0.5F, static_cast<float>(-0.6 / 8388607)}));
  EXPECT_THAT(
      fileContents(file("24.wav")),
      testing::EndsWith(std::string("\xFF\xFF\x7F\x01\x00\x80\x00\x00\x40\xFF\xFF\xFF", 12)));
  const auto written = write(file("16.wav"), {}, {0.0F, NAN});
  ASSERT_FALSE(written);
  EXPECT_THAT(written.error().text, HasSubstr("a sample is not a number"));
}

TEST_F(SoundFileTest, EachKindBringsItsSamplesBackAndIsForTheUserAsTheUmaskSays) {
  const std::vector<float> samples = noise(2 * 5000);
  for (const char* name : {"a.wav", "a.W64", "a.flac"}) {
    for (const auto encoding :
         {SampleEncoding::int16, SampleEncoding::int24, SampleEncoding::float32}) {
      SCOPED_TRACE(std::string(name) + " " + std::to_string(static_cast<int>(encoding)));
      const SoundFormat format{96000, 2, encoding};
      if (!SoundFileWriter::check(name, format, 5000)) {
        EXPECT_STREQ(name, "a.flac");
        EXPECT_EQ(encoding, SampleEncoding::float32);
        continue;
      }
      const mode_t before = umask(027);
      EXPECT_TRUE(write(file(name), format, samples));
      umask(before);
      EXPECT_EQ(test::modeOf(file(name)), 0640U);

      const auto reader = SoundFileReader::open(file(name)).value();
      const Sound sound = readAll(*reader);
      EXPECT_FALSE(sound.error);
      EXPECT_EQ(reader->sampleRate(), 96000);
      EXPECT_EQ(reader->channels(), 2);
      EXPECT_EQ(reader->frames(), 5000);
      ASSERT_EQ(sound.samples.size(), samples.size());
      // Half a step, and the step that full scale lacks on the upper side.
      const double step = encoding == SampleEncoding::int16   ? 1 / 32768.0
                          : encoding == SampleEncoding::int24 ? 1 / 8388608.0
                                                              : 0;
      for (std::size_t i = 0; i < samples.size(); ++i) {
        ASSERT_NEAR(sound.samples[i], samples[i], 1.5 * step) << i;
      }
    }
  }
  EXPECT_EQ(mFolder.size(), 3U);
}

TEST_F(SoundFileTest, WhatNoFileCanHoldIsRefusedBeforeOneIsMade) {
  constexpr std::int64_t kHour = 3600;
  const struct {
    const char* name;
    SoundFormat format;
    std::int64_t frames;
    const char* told;
  } cases[] = {
      {"a", {}, 1, ".wav, .w64 or .flac"},
      {".wav", {}, 1, "/.wav' (.wav"},
      {"a.flac", {48000, 1, SampleEncoding::float32}, 1, "no floats"},
      {"a.flac", {700000, 1, SampleEncoding::int16}, 1, "8000 to 655350"},
      {"a.flac", {65537, 1, SampleEncoding::int16}, 1, "multiples of 10"},
      {"a.wav", {1, 1, SampleEncoding::int16}, 1, "8000 to 768000"},
      {"a.wav", {48000, 0, SampleEncoding::int16}, 1, "0 channels"},
      {"a.flac", {48000, 9, SampleEncoding::int16}, 1, "9 channels"},
      {"none/a.wav", {}, 1, "none: No such file"},
      // 4 GiB are 12 h 25 min 38 s of 16 bits at 48 kHz.
      {"a.wav", {}, 13 * kHour * 48000, "at most 44739 s"},
      {"a.wav", {192000, 1, SampleEncoding::float32}, 2 * kHour * 192000, "at most 5592 s"},
  };
  for (const auto& c : cases) {
    const auto writer = SoundFileWriter::create(file(c.name), c.format, c.frames);
    ASSERT_FALSE(writer) << c.name;
    EXPECT_THAT(writer.error().text, HasSubstr(c.told));
  }
  EXPECT_TRUE(SoundFileWriter::check("a.wav", {}, 12 * kHour * 48000));
  EXPECT_TRUE(SoundFileWriter::check("a.w64", {}, 1000 * kHour * 48000));
  EXPECT_EQ(mFolder.size(), 0U);
}

// A disk that is full, as far as one process can have it: at the first byte, in between,
// and at the last ones, which are written when the file is closed.
TEST_F(SoundFileTest, ADiskThatFillsUpAnywhereLeavesTheOldFileAndNoOther) {
  const std::vector<float> samples = noise(60000);
  for (const char* name : {"a.wav", "a.w64", "a.flac"}) {
    ASSERT_TRUE(write(file(name), {}, samples));
    const auto whole = fs::file_size(file(name));
    std::ofstream(file(name)) << "old";
    for (const std::uintmax_t limit : {std::uintmax_t{0}, whole / 3, whole - 1000, whole - 1}) {
      const test::FullDisk disk(limit);
      const auto written = write(file(name), {}, samples);
      ASSERT_FALSE(written) << limit;
      EXPECT_EQ(written.error().text, "cannot write " + file(name).string() + ": File too large");
      EXPECT_EQ(fileContents(file(name)), "old") << name << ", " << limit;
    }
    {
      const test::FullDisk disk(whole);
      EXPECT_TRUE(write(file(name), {}, samples));
    }
    std::ofstream(file(name)) << "old";
    const auto unfinished = SoundFileWriter::create(file(name), {}, 60000).value();
    EXPECT_TRUE(unfinished->write(samples));
  }
  EXPECT_EQ(fileContents(file("a.flac")), "old");
  EXPECT_EQ(mFolder.size(), 3U);
}

TEST_F(SoundFileTest, DamagedFilesAreReadUpToTheDamageAndReportedInOneLine) {
  std::string floats(8 * 900, '\0');
  floats.replace(8 * 800 + 4, 4, little(0x7FC00000, 4));  // no number

  EXPECT_TRUE(write(file("whole.flac"), {}, noise(20000)));
  EXPECT_TRUE(write(file("whole.w64"), {}, noise(20000)));
  const std::string flac = fileContents(file("whole.flac"));
  const std::string w64 = fileContents(file("whole.w64"));
  const struct {
    const char* name;
    std::string bytes;
    std::size_t samples;
    const char* told;
  } cases[] = {
      {"text.wav", "This is no sound, whatever its name may say of it.", 0,
       "not a sound file, or damaged ("},
      {"empty.wav", "", 0, "it is empty"},
      {"head.wav", Wav().bytes().substr(0, 20), 0, "damaged"},
      {"many.wav", Wav{.channels = 200}.bytes(), 0, "200 channels (1 to 64 can be read)"},
      {"slow.wav", Wav{.rate = 1}.bytes(), 0, "1 Hz (8000 to 768000 can be read)"},
      {"cut.wav", Wav{.more = 5000}.bytes(), 1000,
       "cut off at sample 1000, 5000 bytes before its end"},
      // A length that was not known yet.
      {"recording.wav", Wav{.more = 0xFFFFFFFF - 2000}.bytes(), 1000, ""},
      {"nothing.wav", Wav{.data = ""}.bytes(), 0, ""},
      {"nan.wav", Wav{.tag = 3, .channels = 2, .bits = 32, .data = floats}.bytes(), 1600,
       "not a number at sample 800 of channel 2"},
      {"cut.w64", w64.substr(0, w64.size() - 10000), 15000, "cut off at sample 15000, 10000"},
      {"cut.flac", flac.substr(0, flac.size() / 2), 8000, "at sample "},
      {"au.wav", ".snd" + std::string("\0\0\0\x18\0\0\0\x04\0\0\0\x03\0\0\xBB\x80\0\0\0\1abcd", 24),
       0, "not a WAV, W64 or FLAC"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const auto reader = SoundFileReader::open(fileOf(c.name, c.bytes));
    const Sound sound = reader ? readAll(**reader) : Sound{{}, reader.error()};
    const std::string error = sound.error ? sound.error->text : "";
    if (fs::path(c.name) != "cut.flac") {  // where a block ends is the encoder's affair
      EXPECT_EQ(sound.samples.size(), c.samples);
    }
    EXPECT_THAT(error, HasSubstr(c.told));
    EXPECT_EQ(error.empty(), *c.told == 0);
    EXPECT_TRUE(error.empty() || error.starts_with("cannot read " + file(c.name).string() + ": "));
    EXPECT_EQ(error.find('\n'), std::string::npos);
    EXPECT_TRUE(!reader || (*reader)->read({}).frames == 0);
  }
  EXPECT_THAT(SoundFileReader::open(file("none")).error().text, HasSubstr("No such file"));
  EXPECT_THAT(SoundFileReader::open(mFolder.path()).error().text, HasSubstr("not a regular file"));
}

}  // namespace
}  // namespace velor::audio
