// SPDX-License-Identifier: MIT
// What a document of 10,000 markers costs the main thread while the clock runs: median
// and worst (ms) of adding a marker, jumping to the next one, taking the adding back, a
// change of the format, saving and loading; and how late the clock's timer wakes then,
// beside a run in which nothing is done. Takes the rounds as an argument. Ends with 1
// when a step took more than 50 ms.
#include <time.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Velor/app/VLTimecodeValues.h"
#include "bench/AppWorld.h"
#include "kvtimecode/ltc_utils.h"

namespace velor {
namespace {

constexpr std::int32_t kMarkers = 10'000;
constexpr double kBound = 50;  // ms

class NoWindow final : public VLMainWindowOutlet {
 public:
  void presentAlert(const VLAlert& /*alert*/, VLAlert::Answer /*answer*/) override {}
  void presentError(const std::string& text) override {
    std::fprintf(stderr, "%s\n", text.c_str());
  }
  void beginSavePanel(std::string_view /*fileType*/, FileChosen /*chosen*/) override {}
  void beginOpenPanel(std::string_view /*fileType*/, FileChosen /*chosen*/) override {}
  void replyToApplicationShouldTerminate(bool /*terminate*/) override {}
};

// How long the main thread is held up by a step, with what it leaves on the main queue.
class Step {
 public:
  explicit Step(const char* name) : mName(name) {}

  void measure(host::Host& host, const std::function<void()>& body) {
    host.mainQueue().drainPending();
    const std::uint64_t begin = now();
    const std::uint64_t begun = worked();
    body();
    host.mainQueue().drainPending();
    mWork.push_back(static_cast<double>(worked() - begun) / 1e6);
    mTimes.push_back(static_cast<double>(now() - begin) / 1e6);
  }
  /// False when one was over the bound.
  bool print() {
    std::sort(mTimes.begin(), mTimes.end());
    std::sort(mWork.begin(), mWork.end());
    std::printf("%-16s %8.2f %8.2f %8.2f %8.2f\n", mName, mTimes[mTimes.size() / 2], mTimes.back(),
                mWork[mWork.size() / 2], mWork.back());
    return mTimes.back() <= kBound;
  }

 private:
  // Of this thread alone, which other programs do not lengthen.
  static std::uint64_t worked() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<std::uint64_t>(t.tv_sec) * kSecond + static_cast<std::uint64_t>(t.tv_nsec);
  }

  const char* mName;
  std::vector<double> mWork;  // ms
  std::vector<double> mTimes;
};

std::vector<std::shared_ptr<VLMarker>> markersOfADay() {
  constexpr std::int32_t kFramesOfADay = 24 * 60 * 60 * 25;
  std::vector<std::shared_ptr<VLMarker>> markers;
  for (std::int32_t i = 0; i < kMarkers; ++i) {
    // Every second, in no order.
    const std::int32_t frame = i * 7919 % kMarkers * (kFramesOfADay / kMarkers);
    markers.push_back(VLMarker::initWithTime(
        KVSMPTETime::smpteTimeWithTime(ltc_smptetime_from_frame_number(frame, kSMPTETimeType25)),
        "Marker " + std::to_string(i)));
  }
  return markers;
}

void rest(host::Host& host, std::uint64_t duration) {
  for (const std::uint64_t end = now() + duration; now() < end;) {
    timespec pause{0, 5'000'000};
    nanosleep(&pause, nullptr);
    host.mainQueue().drainPending();
  }
}

void printTicks(const char* name, TickErrors& errors) {
  std::printf("%-16s %8zu %9.1f %9.1f %9.1f\n", name, errors.count(), errors.microseconds(0.5),
              errors.microseconds(0.99), errors.microseconds(1));
}

// False when a step was over the bound.
bool measure(WatchedHost& host, VLAppDelegate& app, int rounds,
             const test::TemporaryFolder& folder) {
  const auto path = folder.path() / "show.velor";
  app.clock().setSmpteFormat(kSMPTETimeType25);
  app.markers().setMarkers(markersOfADay());

  Step add("add");
  Step jump("jump");
  Step undo("undo");
  Step format("change of format");
  Step save("save");
  Step load("load");
  TickErrors busy(100'000);
  TickErrors quiet(100'000);

  app.play();
  rest(host, kSecond / 2);
  host.watch(&busy);
  const std::uint64_t begin = now();
  for (int i = 0; i < rounds; ++i) {
    // Between the seconds.
    const auto time = KVSMPTETime::smpteTimeWithHours(12, i / 60, i % 60, 13, kSMPTETimeType25);
    add.measure(host, [&] { app.markers().addMarker(time); });
    rest(host, 20'000'000);
    jump.measure(host, [&] { app.gotoNextMarker(); });
    rest(host, 20'000'000);
    undo.measure(host, [&] { app.undoManager().undo(); });
    rest(host, 20'000'000);
    save.measure(host, [&] { app.saveApplicationStateToURL(path); });
    rest(host, 20'000'000);
    load.measure(host, [&] { app.loadApplicationStateFromURL(path); });
    rest(host, 20'000'000);
  }
  const std::uint64_t duration = now() - begin;
  host.watch(&quiet);
  rest(host, duration);
  host.watch(nullptr);
  app.stop();
  rest(host, kSecond / 2);
  // A clock that runs keeps its format.
  for (int i = 0; i < rounds; ++i) {
    format.measure(host, [&] {
      app.clock().setSmpteFormat(i % 2 == 0 ? kSMPTETimeType30 : kSMPTETimeType25);
    });
  }
  const auto count = app.markers().controller().arrangedObjects().size();
  std::printf("%zu markers, %d rounds\n%-16s %8s %8s %8s %8s\n", count, rounds, "ms", "median",
              "worst", "CPU", "worst");
  bool isWithin = count == static_cast<std::size_t>(kMarkers);
  for (Step* step : {&add, &jump, &undo, &format, &save, &load}) {
    isWithin = step->print() && isWithin;
  }
  std::printf("%-16s %8s %9s %9s %9s\n", "ticks, us late", "count", "median", "99 %", "worst");
  printTicks("meanwhile", busy);
  printTicks("quiet", quiet);
  return isWithin;
}

int run(int rounds) {
  AppWorld world;
  auto app = std::make_shared<VLAppDelegate>(std::make_shared<NoWindow>(),
                                             std::make_shared<VLTimecodeValues>(), world.folders());
  app->applicationDidFinishLaunching();
  app->waitForSettings();
  const bool isWithin = measure(world.host(), *app, rounds, world.folder());
  app.reset();
  return isWithin ? 0 : 1;
}

}  // namespace
}  // namespace velor

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 50;
  if (rounds <= 0) {
    std::fprintf(stderr, "usage: %s [ROUNDS]\n", argv[0]);
    return 2;
  }
  return velor::run(rounds);
}
