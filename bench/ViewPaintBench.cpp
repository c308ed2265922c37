// SPDX-License-Identifier: MIT
// velor_view_paint_bench [SECONDS]: what the counters and the big window cost while they
// follow a clock, beside a plain way that draws all of them as text at each change, and how
// long a change takes until it is painted: on the clock, and in the processor's time, which
// other programs do not lengthen. Needs a display.
#include <sys/resource.h>
#include <time.h>

#include <QApplication>
#include <QPainter>
#include <QWidget>
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <vector>

#include "Velor/views/VLBigTimecodeView.h"
#include "Velor/views/VLTimecodeView.h"
#include "kvtimecode/SMPTEString.h"
#include "kvtimecode/ltc_utils.h"
#include "platform/host/SystemHost.h"

namespace {

using namespace velor;

constexpr std::int64_t kSecond = 1'000'000'000;  // ns

std::int64_t now(clockid_t clock) {
  timespec time{};
  clock_gettime(clock, &time);
  return time.tv_sec * kSecond + time.tv_nsec;
}

void sleepUntil(std::int64_t deadline) {
  const timespec time{deadline / kSecond, deadline % kSecond};
  clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr);
}

// The same look, drawn as a whole.
class PlainView final : public QWidget {
 public:
  explicit PlainView(bool isBig) : mIsBig(isBig) {}
  void setTime(const SMPTETime& time) {
    mTime = time;
    update();
  }

 protected:
  void paintEvent(QPaintEvent* /*event*/) override {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.fillRect(rect(), mIsBig ? Qt::black : Qt::lightGray);
    QFont font = QApplication::font();
    font.setBold(true);
    font.setPixelSize(mIsBig ? 120 : 36);
    painter.setFont(font);
    painter.setPen(mIsBig ? Qt::green : Qt::black);
    painter.drawText(rect(), Qt::AlignCenter, QString::fromStdString(stringFromSMPTETime(mTime)));
    if (mIsBig) {
      painter.setPen(QPen(Qt::darkGray, 16));
      const double radius = (std::min(width(), height()) - 50) / 2.0;
      painter.drawEllipse(QRectF(rect()).center(), radius, radius);
      return;
    }
    painter.setPen(Qt::darkGray);
    for (int i = 0; i < 30; ++i) {
      const QRectF box(5 + i * (width() - 10) / 30.0, 54, (width() - 10) / 30.0 - 4, 8);
      painter.drawRect(box);
      if (i == mTime.mFrames) {
        painter.fillRect(box, Qt::green);
      }
    }
  }

 private:
  const bool mIsBig;
  SMPTETime mTime;
};

// Of the changes of one run, ns.
class Delays {
 public:
  explicit Delays(clockid_t clock) : mClock(clock) {}
  void begin() { mBegan = now(mClock); }
  void end() { mAll.push_back(now(mClock) - mBegan); }
  /// `part` of all changes take no longer.
  double milliseconds(double part) {
    std::sort(mAll.begin(), mAll.end());
    const auto place = static_cast<std::size_t>(part * static_cast<double>(mAll.size() - 1));
    return static_cast<double>(mAll[place]) / 1e6;
  }

 private:
  const clockid_t mClock;
  std::int64_t mBegan = 0;
  std::vector<std::int64_t> mAll;
};

struct Cost {
  double corePercent;
  Delays waited{CLOCK_MONOTONIC};
  Delays used{CLOCK_THREAD_CPUTIME_ID};
};

Cost measure(int changes, double seconds, const std::function<void(const SMPTETime&)>& show) {
  const std::int64_t interval = kSecond / changes;
  SMPTETime time = ltc_smptetime_from_frame_number(30 * 3600, kSMPTETimeType30);
  Cost cost{};
  std::int64_t deadline = now(CLOCK_MONOTONIC) + interval;
  const std::int64_t end = deadline + static_cast<std::int64_t>(seconds * kSecond);
  const std::int64_t began = deadline;
  const std::int64_t used = now(CLOCK_PROCESS_CPUTIME_ID);
  for (; deadline < end; deadline += interval) {
    sleepUntil(deadline);
    ltc_add_frames(time, 1);
    cost.waited.begin();
    cost.used.begin();
    show(time);
    QApplication::processEvents();
    cost.used.end();
    cost.waited.end();
  }
  cost.corePercent = 100 * static_cast<double>(now(CLOCK_PROCESS_CPUTIME_ID) - used) /
                     static_cast<double>(now(CLOCK_MONOTONIC) - began);
  return cost;
}

void report(const char* what, double scale, int changes, Cost cost) {
  std::printf(
      "%-6s scale %.1f, %d changes a second: %5.2f %% of a core; "
      "change to end of paint: median %.2f ms, 99 %% %.2f ms; "
      "of the processor: median %.2f ms, 99 %% %.2f ms\n",
      what, scale, changes, cost.corePercent, cost.waited.milliseconds(0.5),
      cost.waited.milliseconds(0.99), cost.used.milliseconds(0.5), cost.used.milliseconds(0.99));
}

}  // namespace

int main(int argc, char** argv) {
  const QApplication application(argc, argv);
  const double seconds = argc > 1 ? std::atof(argv[1]) : 10;
  const host::SystemHost host;
  PlainView plainMain(false);
  PlainView plainBig(true);
  VLTimecodeView view;
  VLBigTimecodeView big;
  for (QWidget* each : {static_cast<QWidget*>(&view), static_cast<QWidget*>(&plainMain)}) {
    each->setGeometry(0, 0, 1200, 100);
  }
  for (QWidget* each : {static_cast<QWidget*>(&big), static_cast<QWidget*>(&plainBig)}) {
    each->setGeometry(0, 110, 960, 960);
  }
  view.setClockStatus(VLClockRolling);
  big.setClockStatus(VLClockRolling);
  const auto shown = [](QWidget& first, QWidget& second, bool isShown) {
    first.setVisible(isShown);
    second.setVisible(isShown);
    for (int i = 0; i < 20; ++i) {
      sleepUntil(now(CLOCK_MONOTONIC) + kSecond / 50);
      QApplication::processEvents();
    }
  };
  for (const int changes : {30, 60}) {
    shown(plainMain, plainBig, true);
    report("plain", 1, changes, measure(changes, seconds, [&](const SMPTETime& time) {
             plainMain.setTime(time);
             plainBig.setTime(time);
           }));
    shown(plainMain, plainBig, false);
    for (const double scale : {1.0, 1.5, 2.0}) {
      view.setScale(scale);
      view.resize(1200, static_cast<int>(100 * scale));
      shown(view, big, true);
      report("velor", scale, changes, measure(changes, seconds, [&](const SMPTETime& time) {
               view.copyTime(time);
               big.setMainTime(time);
             }));
      shown(view, big, false);
    }
  }
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::printf("resident memory, highest: %.1f MB\n", static_cast<double>(usage.ru_maxrss) / 1024);
  return 0;
}
