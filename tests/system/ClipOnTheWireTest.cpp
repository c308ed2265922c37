// SPDX-License-Identifier: MIT
// Clips in step with MTC, as clients see them that know nothing of this program: the sound of a
// clip is LTC, which libltc reads on the JACK output, beside the MTC of the same run: the
// clock's, or that of a client.
// VELOR_SOAK_SECONDS makes the runs longer; VELOR_SOAK_PERIOD and VELOR_SOAK_RATE give the server
// another period and sample rate.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/FairRun.h"
#include "tests/support/JackPeer.h"
#include "tests/support/MTCStream.h"
#include "tests/support/Servers.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

// MTC tells a time two frames after it was. A clip shows it then, by the frames of 25.
constexpr double kBehind = 0.08;
// Seconds by which the sound may be off.
constexpr double kMostOff = 2e-3;
// Two reports, the seek, and two frames until libltc reads again.
constexpr double kMostUntilInStep = 0.7;
// The watchdog's 10 frames, which it may see end late by as many.
constexpr double kMostUntilSilent = 0.9;
// libltc places the first frames badly that it reads.
constexpr std::size_t kUnsureFrames = 2;
// Whoever is kept waiting longer than this moves whole blocks by as much.
constexpr std::chrono::microseconds kStall{1000};

int soakNumber(const char* variable, int otherwise) {
  const char* const text = std::getenv(variable);
  return text != nullptr ? std::atoi(text) : otherwise;
}

// Since midnight, by the true speed of the format.
double secondsOf(const Label& label, const WireFormat& format) {
  const int minutes = label.hours * 60 + label.minutes;
  const int dropped = format.drop ? 2 * (minutes - minutes / 10) : 0;
  const int frames =
      (minutes * 60 + label.seconds) * format.numbersPerSecond + label.frames - dropped;
  return frames / format.framesPerSecond;
}

struct Heard {
  double place = 0;  // of the frame's beginning, in the server's frames
  double time = 0;   // seconds, as it says
};

std::vector<Heard> readByLibltc(const JackPeer& recorder, const WireFormat& format) {
  const auto first = static_cast<double>(recorder.audioStart());
  std::vector<Heard> heard;
  for (const ReadLabel& label :
       readLTC(recorder.recordedAudio(), recorder.sampleRate() / format.framesPerSecond)) {
    heard.push_back({first + label.place, secondsOf(label, format)});
  }
  return heard;
}

// A line of time that MTC gave, from one jump to the next.
struct Stretch {
  std::vector<double> places;  // of the blocks, in the server's frames
  std::vector<double> times;   // as they say, seconds
  double speed = 1;

  // What most of the blocks around the place say of it: one of them may have come late.
  double at(double place, double sampleRate) const {
    const auto next = std::lower_bound(places.begin(), places.end(), place) - places.begin();
    std::vector<double> said;
    for (auto i = std::max<std::ptrdiff_t>(next - 3, 0); i < std::min(next + 3, std::ssize(places));
         ++i) {
      const auto block = static_cast<std::size_t>(i);
      said.push_back(times[block] + speed * (place - places[block]) / sampleRate);
    }
    return quantile(said, 0.5);
  }
};

std::vector<Stretch> stretchesOf(const std::vector<Block>& blocks, const WireFormat& format) {
  std::vector<Stretch> stretches;
  double last = -1;
  for (const Block& block : blocks) {
    const double time = secondsOf(block.label, format);
    if (stretches.empty() || std::fabs(time - last) > 0.2) {
      stretches.emplace_back();
    }
    stretches.back().places.push_back(static_cast<double>(block.frames[0]));
    stretches.back().times.push_back(time);
    last = time;
  }
  return stretches;
}

// How the sound of a stretch lies beside its MTC.
struct Step {
  double until = -1;           // seconds from its beginning to the first frame that is in step
  std::vector<double> errors;  // seconds, from there on
};

// `heard` lies `latency` ahead of its moment.
Step stepOf(const Stretch& stretch, const std::vector<Heard>& heard, double end, double latency,
            double sampleRate) {
  Step step;
  std::size_t sure = 0;
  for (const Heard& frame : heard) {
    const double place = frame.place + latency;
    if (place < stretch.places.front() || place > end) {
      continue;
    }
    const double error = frame.time + kBehind - stretch.at(place, sampleRate);
    if (step.until < 0 && (std::fabs(error) > kMostOff || ++sure <= kUnsureFrames)) {
      continue;
    }
    if (step.until < 0) {
      step.until = (place - stretch.places.front()) / sampleRate;
    }
    step.errors.push_back(error);
  }
  return step;
}

void expectInStep(const std::string& name, const Step& step, double mostUntil) {
  std::vector<double> amounts;
  for (const double error : step.errors) {
    amounts.push_back(std::fabs(error) * 1e3);
  }
  std::printf(
      "%-15s in step after %3.0f ms; %4zu frames of sound, off by %6.3f ms (mean of the "
      "middle), %.3f (99 %%), %.3f (worst)\n",
      name.c_str(), step.until * 1e3, amounts.size(), quantile(step.errors, 0.5) * 1e3,
      quantile(amounts, 0.99), quantile(amounts, 1));
  EXPECT_GE(step.until, 0) << name;
  EXPECT_LE(step.until, mostUntil) << name;
  EXPECT_GE(step.errors.size(), 10U) << name;
  EXPECT_LE(quantile(amounts, 1), kMostOff * 1e3) << name;
}

void encodeLTC(const WireFormat& format, const std::string& start, double seconds,
               const std::filesystem::path& file) {
  Process encode({VELOR_PROGRAM, "encode", "--format", format.name, "--start", start, "--duration",
                  std::to_string(static_cast<int>(seconds)), file},
                 {}, "/dev/null");
  ASSERT_EQ(encode.waitForEnd(60), 0);
}

// A stretch of MTC that a client sends.
struct Part {
  const char* name;
  Label from;
  double mostUntil;  // it is in step, seconds
  double pause = 0;  // seconds without MTC after it
};
// A block of 25 takes 80 ms. The third one starts a clip that stands, the second one a clip that
// was in step; then come three frames for libltc, and 60 ms for the seek.
constexpr Part kParts[] = {{"mid-clip", {0, 1, 0, 0}, 0.5},
                           {"forwards", {0, 1, 15, 10}, 0.34},
                           {"backwards", {0, 0, 53, 5}, 0.34, 1.5},
                           {"is back", {0, 1, 10, 0}, 0.5, 1.5}};

// The program with a clip, and a client that gets its MTC and its sound.
class HeadlessClip {
 public:
  HeadlessClip(const WireFormat& format, const JackServer& server,
               const std::vector<std::string>& more)
      : mFormat(format), mRecorder(std::string("Recorder ") + format.name) {
    const auto clip = mFolder.path() / "LTC@25:00 \xff.wav";
    encodeLTC(format, "00:00:50:00", soakSeconds() + 30, clip);
    mRecorder.addInput("in");
    mRecorder.recordAudio("audio", soakSeconds() + 30);
    mRecorder.activate();
    const auto outputs = ports(JACK_DEFAULT_AUDIO_TYPE);
    const auto inputs = ports(JACK_DEFAULT_MIDI_TYPE);
    std::vector<std::string> arguments{"--headless",
                                       "--format",
                                       format.name,
                                       "--media",
                                       clip.string() + "@00:00:50:00",
                                       "--mtc-out",
                                       mRecorder.fullName("in")};
    arguments.insert(arguments.end(), more.begin(), more.end());
    mVelor = std::make_unique<VelorProcess>(arguments, server.environment());
    waitFor(10, [&] {
      mInput = newPort(JACK_DEFAULT_MIDI_TYPE, inputs);
      mOutput = newPort(JACK_DEFAULT_AUDIO_TYPE, outputs);
      return !mOutput.empty() && mRecorder.connect(mOutput, mRecorder.fullName("audio"));
    });
    EXPECT_FALSE(mOutput.empty()) << mVelor->errors();
  }

  // MTC at the speed: it begins in mid-clip, jumps both ways, is lost, and is back.
  void follow(double speed) {
    mSender = std::make_unique<JackPeer>("Sender");
    mSender->addOutput("out");
    mSender->activate();
    ASSERT_TRUE(mSender->connect(mSender->fullName("out"), mInput));
    WireFormat format = mFormat;
    format.framesPerSecond *= speed;
    std::uint64_t frame = mRecorder.frameNow() + framesIn(0.5);
    for (const Part& part : kParts) {
      mSent.push_back({{static_cast<double>(frame)}, {secondsOf(part.from, mFormat)}, speed});
      frame = sendStream(*mSender, 0, format, part.from, frame,
                         static_cast<int>(soakSeconds() / 4 * format.framesPerSecond / 2));
      mEnds.push_back(frame);
      frame += framesIn(part.pause);
    }
  }
  bool hasFollowed() const { return mRecorder.frameNow() > mEnds.back() + framesIn(2); }
  void expectFollowed() {
    const std::vector<Heard> heard = readByLibltc(mRecorder, mFormat);
    const std::vector<float> sound = mRecorder.recordedAudio();
    const double latency = mRecorder.playbackLatency(mOutput);
    EXPECT_EQ(mVelor->end(SIGINT), 0) << mVelor->errors();
    for (std::size_t i = 0; i < mSent.size(); ++i) {
      const auto end = static_cast<double>(mEnds[i]);
      const auto name = std::to_string(mSent[i].speed).substr(0, 5) + " " + kParts[i].name;
      expectInStep(name, stepOf(mSent[i], heard, end, latency, mRecorder.sampleRate()),
                   kParts[i].mostUntil);
      if (kParts[i].pause > 0) {
        const auto last =
            sound.begin() + static_cast<std::ptrdiff_t>(mEnds[i] - mRecorder.audioStart());
        EXPECT_TRUE(std::all_of(last + framesIn(kMostUntilSilent), last + framesIn(kParts[i].pause),
                                [](float sample) { return sample == 0; }))
            << name;
      }
    }
  }

  bool hasRecorded(double seconds) const {
    return static_cast<double>(mRecorder.recordedAudioCount()) > seconds * mRecorder.sampleRate();
  }
  void expectAllInStep(std::size_t stretches) {
    const Stream mtc = readStream(mRecorder.recorded(), 0);
    const std::vector<Heard> heard = readByLibltc(mRecorder, mFormat);
    const double latency = mRecorder.playbackLatency(mOutput);
    EXPECT_EQ(mVelor->end(SIGINT), 0) << mVelor->errors();
    EXPECT_EQ(mtc.faults, 0) << mFormat.name << ": " << mtc.fault;
    const auto all = stretchesOf(mtc.blocks, mFormat);
    ASSERT_GE(all.size(), stretches);
    for (std::size_t i = 0; i < stretches; ++i) {
      const double end = i + 1 < all.size() ? all[i + 1].places.front() : all[i].places.back();
      expectInStep(mFormat.name, stepOf(all[i], heard, end, latency, mRecorder.sampleRate()),
                   kMostUntilInStep);
    }
  }

 private:
  std::uint64_t framesIn(double seconds) const {
    return static_cast<std::uint64_t>(seconds * mRecorder.sampleRate());
  }
  std::vector<std::string> ports(const char* type) const {
    return mRecorder.ports("Media Playback(.*1)?$", type);
  }
  std::string newPort(const char* type, const std::vector<std::string>& others) const {
    for (const std::string& port : ports(type)) {
      if (std::find(others.begin(), others.end(), port) == others.end()) {
        return port;
      }
    }
    return {};
  }

  const TemporaryFolder mFolder;
  const WireFormat& mFormat;
  JackPeer mRecorder;
  std::unique_ptr<JackPeer> mSender;
  std::string mInput;
  std::string mOutput;
  std::unique_ptr<VelorProcess> mVelor;
  std::vector<Stretch> mSent;
  std::vector<std::uint64_t> mEnds;
};

JackServer serverOfSoak() {
  return JackServer(soakNumber("VELOR_SOAK_PERIOD", 256), soakNumber("VELOR_SOAK_RATE", 48000));
}

TEST(ClipOnTheWire, LTCInAClipAgreesWithTheMTCOfTheClockInEveryFormatAndOverItsLoop) {
  inFairRun(
      [] {
        JackServer server = serverOfSoak();
        server.start();
        std::vector<std::unique_ptr<HeadlessClip>> clips;
        for (const WireFormat& format : wireFormats()) {
          clips.push_back(std::make_unique<HeadlessClip>(
              format, server, std::vector<std::string>{"--play", "--start", "00:00:57:10"}));
        }
        clips.push_back(std::make_unique<HeadlessClip>(
            wireFormat("25"), server,
            std::vector<std::string>{"--play", "--start", "00:00:53:00", "--mode", "loop", "--loop",
                                     "00:00:52:00", "00:00:55:00"}));
        ASSERT_TRUE(waitFor(soakSeconds() + 10,
                            [&] { return clips.back()->hasRecorded(soakSeconds() * 0.75); }));
        for (const auto& clip : clips) {
          clip->expectAllInStep(clip == clips.back() ? 2 : 1);
        }
      },
      kStall);
}

TEST(ClipOnTheWire, LTCInAClipFollowsASenderAtItsSpeedOverItsJumpsAndPauses) {
  inFairRun(
      [] {
        JackServer server = serverOfSoak();
        server.start();
        std::vector<std::unique_ptr<HeadlessClip>> clips;
        for (const double speed : {0.98, 0.99, 1.0, 1.01, 1.02}) {
          clips.push_back(
              std::make_unique<HeadlessClip>(wireFormat("25"), server, std::vector<std::string>{}));
          clips.back()->follow(speed);
        }
        ASSERT_TRUE(waitFor(soakSeconds() * 1.1 + 20, [&] { return clips.back()->hasFollowed(); }));
        for (const auto& clip : clips) {
          clip->expectFollowed();
        }
      },
      kStall);
}

}  // namespace
}  // namespace velor::test
