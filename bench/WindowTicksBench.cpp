// SPDX-License-Identifier: MIT
// velor_window_ticks_bench [SECONDS]: how late the clock's ticks and the quarter frames come
// while the main window is resized and moved at 60 steps a second, and while a menu is open,
// beside a window that is left alone; and while four media windows play 720 rows at 25 frames
// a second, beside the same windows without MTC, with the frames that were dropped. In turns of
// a second (clips: four times as many in all, at most 20), so that the rest of the machine
// disturbs all alike; "quiet again" against "quiet" shows how much it does. Needs a display.
#include <QApplication>
#include <QMenu>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>

#include "Velor/devices/VLDeviceManager.h"
#include "Velor/views/VLMainWindow.h"
#include "Velor/views/VLTimecodeView.h"
#include "bench/AppWorld.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/media/gstreamer/GStreamerMedia.h"
#include "platform/qt/EventLoop.h"
#include "tests/support/TestClip.h"

namespace velor {
namespace {

constexpr std::uint64_t kTurn = kSecond;
constexpr int kStepMs = 16;
constexpr int kClips = 4;
constexpr int kClipTurns = 20;

/// A destination inside the process, which notes how late its packets are read.
class Receiver {
 public:
  explicit Receiver(midi::MIDIService& service) {
    midi::MIDIClientRef client = 0;
    midi::MIDIEndpointRef endpoint = 0;
    service.MIDIClientCreate("bench", nullptr, nullptr, &client);
    service.MIDIDestinationCreate(client, "Console", &Receiver::read, this, &endpoint);
  }
  /// Of one kind of turn; null: none.
  void watch(TickErrors* errors) { mErrors.store(errors); }

 private:
  static void read(const midi::MIDIPacketList* list, void* refCon, void* /*source*/) {
    TickErrors* const errors = static_cast<Receiver*>(refCon)->mErrors.load();
    const std::uint64_t read = now();
    midi::forEachPacket(*list, [&](const midi::MIDIPacket& packet) {
      if (errors != nullptr && packet.timeStamp != 0 && read >= packet.timeStamp) {
        errors->add(read - packet.timeStamp);
      }
    });
  }

  std::atomic<TickErrors*> mErrors{nullptr};
};

struct Turn {
  explicit Turn(const char* called) : name(called) {}
  const char* name;
  TickErrors ticks{200'000};
  TickErrors pieces{200'000};
};

class Bench {
 public:
  Bench() {
    media::setService(&mMedia);
    mMain->setController(mApp);
    mApp->applicationDidFinishLaunching();
    mApp->waitForSettings();
    mMain->didLaunch();
    mMain->show();
  }
  ~Bench() {
    mApp->stop();
    mApp.reset();
    mMain.reset();
    media::setService(nullptr);
  }

  void run(int seconds) {
    turn(mQuiet, [] {});  // until all is drawn; counts for nothing
    for (const auto& destination : VLDeviceManager::sharedManager().destinations()) {
      destination->setEnable(true);
    }
    mApp->clock().setSmpteFormat(kSMPTETimeType30);
    mApp->play();
    mQuiet = Turn("quiet");
    QMenu& menu = *mMain->findChild<QMenu*>("editMenu");
    for (int i = 0; i < seconds; ++i) {
      turn(mQuiet, [] {});
      turn(mDragged, [this] { drag(); });
      turn(mAgain, [] {});
      menu.popup(mMain->mapToGlobal(QPoint(20, 20)));
      turn(mMenu, [] {});
      menu.close();
    }
  }
  void runClips(int turns) {
    mApp->stop();
    const std::filesystem::path file = mWorld.folder().path() / "clip.mov";
    test::TestClip clip;
    clip.seconds = 4.0 * turns + 10;
    clip.width = 1280;
    clip.height = 720;
    clip.make(file);
    SMPTETime start{};
    start.mType = kSMPTETimeType25;
    ltc_set_time(start, 1, 0, 0, 0);
    mApp->clock().setSmpteFormat(kSMPTETimeType25);
    mApp->clock().setTime(start);
    for (int i = 0; i < kClips; ++i) {
      mApp->mediaWindows().open(file, start, false);
    }
    Turn lead("until the clips are open, or in step");
    turn(lead, [] {});
    mApp->play();
    for (int i = 0; i < turns; ++i) {
      setClipsFollow(false);
      turn(lead, [] {});
      turn(mStill, [] {});
      setClipsFollow(true);
      turn(lead, [] {});
      const std::uint64_t before = dropped();
      turn(mClips, [] {});
      mDropped += dropped() - before;
    }
  }
  void print() {
    std::printf("%-18s %8s %9s %9s %8s %9s %9s\n", "us late", "ticks", "median", "99 %", "pieces",
                "median", "99 %");
    for (Turn* each : {&mQuiet, &mAgain, &mDragged, &mMenu, &mStill, &mClips}) {
      std::printf("%-18s %8zu %9.1f %9.1f %8zu %9.1f %9.1f\n", each->name, each->ticks.count(),
                  each->ticks.microseconds(0.5), each->ticks.microseconds(0.99),
                  each->pieces.count(), each->pieces.microseconds(0.5),
                  each->pieces.microseconds(0.99));
    }
    for (const auto& [each, other] : {std::pair{&mAgain, &mQuiet},
                                      {&mDragged, &mQuiet},
                                      {&mMenu, &mQuiet},
                                      {&mClips, &mStill}}) {
      std::printf("%s to %s: ticks %.2f and %.2f, pieces %.2f and %.2f\n", each->name, other->name,
                  each->ticks.microseconds(0.5) / other->ticks.microseconds(0.5),
                  each->ticks.microseconds(0.99) / other->ticks.microseconds(0.99),
                  each->pieces.microseconds(0.5) / other->pieces.microseconds(0.5),
                  each->pieces.microseconds(0.99) / other->pieces.microseconds(0.99));
    }
    std::printf("four clips: %llu frames dropped\n", static_cast<unsigned long long>(mDropped));
  }

 private:
  static void setClipsFollow(bool follow) {
    for (const auto& destination : VLDeviceManager::sharedManager().destinations()) {
      if (destination->midiEndpoint()->uniqueID() == VLDeviceManager::kMediaPlaybackUniqueID) {
        destination->setEnable(follow);
      }
    }
  }
  std::uint64_t dropped() {
    std::uint64_t count = 0;
    for (const auto& window : mApp->mediaWindows().windows()) {
      count += window->mediaPlayer()->player().droppedFrames();
    }
    return count;
  }
  void drag() {
    mStep = (mStep + 1) % 100;
    const int way = mStep < 50 ? mStep : 100 - mStep;
    mMain->setGeometry(50 + 4 * way, 60 + 2 * way, 900 + 8 * way, 540 + 4 * way);
  }
  void turn(Turn& kind, const std::function<void()>& step) {
    mWorld.host().watch(&kind.ticks);
    mReceiver.watch(&kind.pieces);
    QTimer steps;
    QObject::connect(&steps, &QTimer::timeout, step);
    steps.start(kStepMs);
    mWorld.host().mainQueue().after(kTurn, [this] { mWorld.host().mainQueue().stop(); });
    qt::EventLoop(mWorld.host().mainQueue()).run();
    mWorld.host().watch(nullptr);
    mReceiver.watch(nullptr);
  }

  AppWorld mWorld;
  media::GStreamerMedia mMedia;
  Receiver mReceiver{midi::service()};
  std::shared_ptr<VLMainWindow> mMain = std::make_shared<VLMainWindow>();
  std::shared_ptr<VLAppDelegate> mApp = std::make_shared<VLAppDelegate>(
      mMain, std::shared_ptr<VLTimecodeViewOutlet>(mMain, &mMain->timecodeView()),
      mWorld.folders());
  int mStep = 0;
  Turn mQuiet{"quiet"};
  Turn mAgain{"quiet again"};
  Turn mDragged{"moved and resized"};
  Turn mMenu{"menu open"};
  Turn mStill{"clips stand"};
  Turn mClips{"four clips"};
  std::uint64_t mDropped = 0;
};

}  // namespace
}  // namespace velor

int main(int argc, char** argv) {
  const QApplication application(argc, argv);
  const int seconds = argc > 1 ? std::atoi(argv[1]) : 10;
  velor::Bench bench;
  bench.run(seconds);
  bench.runClips(std::min(4 * seconds, velor::kClipTurns));
  bench.print();
  return 0;
}
