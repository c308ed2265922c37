// SPDX-License-Identifier: MIT
// The whole program for as long as one likes, on a server that is killed and started again,
// with ports and devices that come and go; scripts/soak runs it and tells what it does.
#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "bench/soak/SoakFigures.h"
#include "bench/soak/SoakProgram.h"
#include "bench/soak/SoakTable.h"
#include "tests/support/JackCable.h"
#include "tests/support/JackPeer.h"
#include "tests/support/MTCStream.h"
#include "tests/support/OSCTools.h"
#include "tests/support/Servers.h"
#include "tests/support/StallWatch.h"
#include "tests/support/TestClip.h"

namespace velor::test {
namespace {

using Clock = StallWatch::Clock;

constexpr double kMostBetweenRestarts = 180;  // s
// A cycle that is late moves the server's idea of time, by which phases are judged.
constexpr std::chrono::milliseconds kStall{2};
constexpr double kVisitEvery = 20;           // s
constexpr double kVisit = 12;                // s
constexpr int kEnoughPieces = 80;            // quarter frames
constexpr std::size_t kDatagramsAStep = 10;  // of a tenth of a second
constexpr std::array kInputs{"clock", "follower", "reader 1", "reader 2"};
constexpr const char* kReaderPorts = "LTC Reader 1(-[0-9]+)?$";

std::string oscMessage(std::string address, float value) {
  const auto padded = [](std::string text) {
    text.resize(text.size() / 4 * 4 + 4);
    return text;
  };
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  bits = htonl(bits);
  return padded(std::move(address)) + padded(",f") +
         std::string(reinterpret_cast<const char*>(&bits), sizeof bits);
}

std::string startTime(int secondsBeforeMidnight) {
  return "23:59:" + std::to_string(60 - secondsBeforeMidnight) + ":00";
}

// A display of its own with a window manager, where there are both.
class Display {
 public:
  Display() {
    const int number = 1000 + getpid() % 30000;
    const std::string name = ":" + std::to_string(number);
    const std::string socket = "/tmp/.X11-unix/X" + std::to_string(number);
    mServer =
        Process({"Xvfb", name, "-screen", "0", "1280x900x24", "-nolisten", "tcp"}, {}, "/dev/null");
    waitFor(10, [&] { return !mServer.isRunning() || std::filesystem::exists(socket); });
    if (mServer.isRunning()) {
      setenv("DISPLAY", name.c_str(), 1);
      mManager = Process({"openbox"}, {}, "/dev/null");
    }
  }
  bool isOpen() { return mServer.isRunning(); }

 private:
  Process mServer;
  Process mManager;
};

class Soak {
 public:
  Soak(std::unique_ptr<Server> server, double seconds, int period)
      : mServer(std::move(server)),
        mStretches(std::max(2, static_cast<int>(std::lround(seconds / kMostBetweenRestarts)))),
        mStretch(seconds / mStretches),
        mPeriod(period) {}

  void run();
  bool report(const std::string& title);

 private:
  void startPrograms();
  void startServer();
  void makeClients();
  void awaitReturn(bool isFirst);
  void runStretch(bool isFirst);
  bool connectRecorder();
  void sendOSC();
  std::vector<std::uint64_t> stallsSince(Clock::time_point begin) const;
  void visit(double seconds);
  void saveAndLoad();
  void tellDocuments(SoakTable& table);

  const std::unique_ptr<Server> mServer;
  const int mStretches;
  const double mStretch;  // s
  const int mPeriod;
  const StallWatch mWatch{kStall};
  const TemporaryFolder mFolder;
  Display mDisplay;
  const std::string mPort = freePort();
  const Datagrams mSender{"127.0.0.1"};
  const OSCDump mDump;
  std::unique_ptr<SoakProgram> mLead;
  std::unique_ptr<SoakProgram> mFollower;
  std::unique_ptr<SoakProgram> mEditor;
  std::unique_ptr<JackPeer> mRecorder;
  std::unique_ptr<JackPeer> mEar;
  std::unique_ptr<JackPeer> mConsole;
  std::unique_ptr<JackCable> mCable;
  Process mKeys;
  int mDocuments = 0;
  std::vector<double> mReturns;  // s from a server's start to the last of its streams
  SoakFigures mFigures;
  bool mIsBack = true;
};

void Soak::run() {
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus", 1);  // announces nothing
  TestClip clip;
  clip.seconds = mStretch;
  clip.make(mFolder.path() / "clip.mkv");
  startServer();
  startPrograms();
  for (int i = 0; i < mStretches; ++i) {
    if (i > 0) {
      startServer();
    }
    runStretch(i == 0);
    std::fprintf(stderr, "soak: %d of %d stretches of %.0f s\n", i + 1, mStretches, mStretch);
  }
}

void Soak::startPrograms() {
  const std::string start = startTime(std::min(50, static_cast<int>(mStretch / 2)));
  mLead = std::make_unique<SoakProgram>(
      "clock, two generators, a reader, OSC",
      std::vector<std::string>{"--headless",   "--fresh",
                               "--wait",       "--format",
                               "25",           "--start",
                               start,          "--play",
                               "--mtc-out",    "Recorder:clock",
                               "--mtc-out",    "Console:in",
                               "--mtc-out",    "Visitor:MTC",
                               "--ltc-out",    "Cable:in_1",
                               "--ltc-out",    "Visitor:LTC",
                               "--ltc-in",     "Cable:out_1",
                               "--osc-port",   mPort,
                               "--osc-allow",  "127.0.0.1",
                               "--osc-target", "127.0.0.1:" + mDump.port()},
      mServer->environment());
  std::vector<std::string> follower{"--fresh",
                                    "--wait",
                                    "--format",
                                    "25",
                                    "--arm",
                                    "--sync-source",
                                    "Console:out",
                                    "--mtc-out",
                                    "Recorder:follower",
                                    "--ltc-in",
                                    "Cable:out_1",
                                    "--media",
                                    (mFolder.path() / "clip.mkv").string() + "@00:00:00:00"};
  if (!mDisplay.isOpen()) {
    follower.push_back("--headless");
  }
  mFollower = std::make_unique<SoakProgram>("chase, a reader, a media window", follower,
                                            mServer->environment());
  if (mDisplay.isOpen()) {
    mEditor = std::make_unique<SoakProgram>("documents", std::vector<std::string>{"--fresh"},
                                            mServer->environment());
  }
}

void Soak::startServer() {
  mServer->start();
  if (auto* const pipeWire = dynamic_cast<PipeWireServer*>(mServer.get())) {
    pipeWire->force(48000, mPeriod);
  }
}

// Connects what no option of the program names; true once all is connected.
bool Soak::connectRecorder() {
  const auto joined = [this](const std::string& from, JackPeer& peer, const std::string& to) {
    return peer.isConnected(from, peer.fullName(to)) || peer.connect(from, peer.fullName(to));
  };
  // Programs that come back at once may swap their names.
  const auto parted = [this](const std::string& from, const std::string& to) {
    return !mRecorder->isConnected(from, mRecorder->fullName(to)) ||
           mRecorder->disconnect(from, mRecorder->fullName(to));
  };
  const auto one = [this](const std::string& pattern) {
    return mRecorder->ports(pattern, JACK_DEFAULT_AUDIO_TYPE);
  };
  auto readers = mRecorder->ports(kReaderPorts);
  std::sort(readers.begin(), readers.end());  // listed in the order of their return
  const auto generators = one("LTC Generator 1 out_1(-[0-9]+)?$");
  const auto clips = one("Media Playback out_1(-[0-9]+)?$");
  return readers.size() == 2 && generators.size() == 1 && clips.size() == 1 &&
         parted(readers[1], "reader 1") && parted(readers[0], "reader 2") &&
         joined(readers[0], *mRecorder, "reader 1") && joined(readers[1], *mRecorder, "reader 2") &&
         joined(generators[0], *mRecorder, "LTC") && joined(clips[0], *mEar, "clip");
}

void Soak::makeClients() {
  const double room = mStretch + 60;  // s
  mRecorder = std::make_unique<JackPeer>("Recorder", static_cast<std::size_t>(room * 500));
  for (const char* name : kInputs) {
    mRecorder->addInput(name);
  }
  mRecorder->recordAudio("LTC", room);
  mRecorder->recordClock(room);
  mRecorder->activate();
  mEar = std::make_unique<JackPeer>("Ear", 1);
  mEar->recordAudio("clip", room);
  mEar->activate();
  mConsole = std::make_unique<JackPeer>("Console", static_cast<std::size_t>(room * 120));
  mConsole->addInput("in");
  mConsole->addOutput("out");
  mConsole->forward(0, 0);
  mConsole->activate();
  mCable = std::make_unique<JackCable>("Cable", 1);
}

void Soak::awaitReturn(bool isFirst) {
  // Each stretch is the same run over midnight: stopped, back to the start, played again.
  for (const char* command : {"stop", "stop", "play"}) {
    if (!isFirst) {
      std::this_thread::sleep_for(std::chrono::milliseconds(500));
      mSender.send(mPort, oscMessage(std::string("/velor/transport/") + command, 1));
    }
  }
  std::vector<int> pieces;
  const auto comesEverywhere = [&] {
    pieces.assign(kInputs.size(), 0);
    for (const JackPeer::Event& event : mRecorder->recorded()) {
      ++pieces[static_cast<std::size_t>(event.port)];
    }
    return *std::min_element(pieces.begin(), pieces.end()) > kEnoughPieces;
  };
  const bool isBack =
      waitFor(30, [this] { return connectRecorder(); }) && waitFor(30, comesEverywhere);
  connectRecorder();
  if (!isBack) {
    mIsBack = false;
    std::fprintf(stderr, "soak: not all came back; pieces:");
    for (const int count : pieces) {
      std::fprintf(stderr, " %d", count);
    }
    std::fprintf(stderr, "\n");
    for (const char* type : {JACK_DEFAULT_MIDI_TYPE, JACK_DEFAULT_AUDIO_TYPE}) {
      for (const std::string& port : mRecorder->ports("", type)) {
        std::fprintf(stderr, "  %s\n", port.c_str());
      }
    }
  }
}

void Soak::runStretch(bool isFirst) {
  const auto begin = Clock::now();
  const auto passed = [&begin] {
    return std::chrono::duration<double>(Clock::now() - begin).count();
  };
  makeClients();
  awaitReturn(isFirst);
  mReturns.push_back(passed());
  SoakFigures::Heard heard;
  heard.names = {kInputs.begin(), kInputs.end()};
  heard.follower = "follower";
  heard.ltc = "LTC";
  heard.recorder = mRecorder.get();
  heard.ear = mEar.get();
  heard.settled = mRecorder->frameNow() + 3 * 48000;
  double nextVisit = passed() + 1;
  while (passed() < mStretch) {
    sendOSC();
    if (passed() > nextVisit && passed() + kVisit + 4 < mStretch) {
      nextVisit += kVisitEvery;
      saveAndLoad();
      visit(kVisit);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  const auto generators =
      mRecorder->ports("LTC Generator 1 out_1(-[0-9]+)?$", JACK_DEFAULT_AUDIO_TYPE);
  heard.latency = generators.empty() ? 0 : mRecorder->playbackLatency(generators.front());
  for (SoakProgram* program : {mLead.get(), mFollower.get(), mEditor.get()}) {
    if (program != nullptr) {
      program->sample();
    }
  }
  heard.stalls = stallsSince(begin);
  mFigures.judge(heard);
  mServer->kill();
  mCable.reset();
  mConsole.reset();
  mEar.reset();
  mRecorder.reset();
}

// As frames of the recorder.
std::vector<std::uint64_t> Soak::stallsSince(Clock::time_point begin) const {
  std::vector<std::uint64_t> frames;
  for (const StallWatch::Stall& stall : mWatch.stalls()) {
    const std::chrono::duration<double> ago = Clock::now() - stall.end;
    const auto passed = static_cast<std::uint64_t>(ago.count() * mRecorder->sampleRate());
    if (stall.end > begin && passed < mRecorder->frameNow()) {
      frames.push_back(mRecorder->frameNow() - passed);
    }
  }
  return frames;
}

// Commands that change nothing, some that nobody knows, and bytes that are no message.
void Soak::sendOSC() {
  const std::array datagrams{oscMessage("/velor/speed", 0), oscMessage("/velor/sp*d", 0),
                             oscMessage("/velor/transport/play", 0), oscMessage("/nobody/knows", 1),
                             std::string("\xFF no message")};
  for (std::size_t i = 0; i < kDatagramsAStep; ++i) {
    mSender.send(mPort, datagrams.at(i % datagrams.size()));
  }
}

// A port and a device that appear, take time, and disappear.
void Soak::visit(double seconds) {
  JackPeer visitor("Visitor", static_cast<std::size_t>(seconds + 10) * 200);
  visitor.addInput("MTC");
  visitor.recordAudio("LTC", seconds + 10);
  visitor.activate();
  const auto begin = Clock::now();
  const auto end = begin + std::chrono::duration<double>(seconds);
  while (Clock::now() < end) {
    sendOSC();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  mFigures.judgeVisit(visitor, seconds, !stallsSince(begin).empty());
}

// By keys: a marker more, saved to one of two documents, which is opened then.
void Soak::saveAndLoad() {
  if (mEditor == nullptr || mKeys.isRunning()) {
    return;
  }
  const std::string file = (mFolder.path() / (++mDocuments % 2 != 0 ? "a" : "b")).string();
  mKeys = Process(
      {"sh", "-c",
       "window=$(xdotool search --onlyvisible --pid $0 | tail -n 1); "
       "xdotool windowactivate --sync $window key space sleep 1 key space sleep 0.3 key ctrl+m "
       "sleep 0.5 key ctrl+s sleep 1.5 "
       "type --delay 5 $1.velor; xdotool key Return sleep 1 key ctrl+o sleep 1.5 "
       "type --delay 5 $1.velor; xdotool key Return",
       std::to_string(mEditor->process().id()), file},
      {}, (mFolder.path() / "keys.log").string());
}

bool Soak::report(const std::string& title) {
  std::printf("### %s\n\n", title.c_str());
  std::printf("%d stretches of %.0f s; the server is killed after each.\n\n", mStretches, mStretch);
  SoakTable table;
  mFigures.tell(table, mStretch * mStretches, mPeriod);
  table.row("all back after a server's start",
            SoakTable::text("median %.1f s, worst %.1f s", quantile(mReturns, 0.5),
                            quantile(mReturns, 1)),
            "20 s", quantile(mReturns, 1) < 20);
  if (mEditor != nullptr) {
    tellDocuments(table);
  }
  const auto lines = mDump.seen();
  const auto times = std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
    return line.starts_with("/velor/time");
  });
  const double due = mStretch * mStretches * 12.5;
  table.row("OSC: times to the target", SoakTable::text("%ld of %.0f", times, due), "90 %",
            static_cast<double>(times) > 0.9 * due);
  for (SoakProgram* program : {mLead.get(), mFollower.get(), mEditor.get()}) {
    if (program != nullptr && !program->samples().empty()) {
      program->tell(table, program == mEditor.get() ? 2 * mDocuments : 0);
    }
  }
  std::printf("\n");
  return table.isGood() && mIsBack;
}

void Soak::tellDocuments(SoakTable& table) {
  mKeys.waitForEnd(20);
  const std::string saved =
      fileContents(mFolder.path() / (mDocuments % 2 != 0 ? "a.velor" : "b.velor"));
  int markers = 0;
  for (auto at = saved.find("Marker "); at != std::string::npos;
       at = saved.find("Marker ", at + 1)) {
    ++markers;
  }
  table.row("documents saved and opened",
            SoakTable::text("%d, the last with %d markers", mDocuments, markers), "a marker each",
            mDocuments > 0 && markers == mDocuments);
}

}  // namespace
}  // namespace velor::test

int main(int argc, char** argv) {
  using namespace velor::test;
  if (argc != 3) {
    std::fprintf(stderr, "usage: velor_soak jack|pipewire SECONDS\n");
    return 2;
  }
  const std::string kind = argv[1];
  const char* const wanted = std::getenv("VELOR_SOAK_PERIOD");
  const int period = wanted != nullptr ? std::atoi(wanted) : kind == "jack" ? 512 : 1024;
  std::unique_ptr<Server> server;
  if (kind == "jack") {
    server = std::make_unique<JackServer>(period);
  } else {
    server = std::make_unique<PipeWireServer>();
  }
  Soak soak(std::move(server), std::atof(argv[2]), period);
  soak.run();
  return soak.report((kind == "jack" ? "jackd" : "PipeWire") + std::string(", a period of ") +
                     std::to_string(period) + " frames at 48 kHz")
             ? 0
             : 1;
}
