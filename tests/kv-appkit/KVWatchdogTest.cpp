// SPDX-License-Identifier: MIT
// The laws of the watchdog, held by the object and by the plain module alike.
#include "Kv-Appkit/KVWatchdog.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <vector>

#include "Kv-Appkit/kv_watchdog.h"
#include "sim/SimulatedHost.h"

namespace velor {
namespace {

constexpr std::uint64_t kMs = 1'000'000;
using Times = std::vector<std::uint64_t>;

class ObjectForm {
 public:
  ObjectForm(double seconds, std::function<void()> action, host::Queue& queue)
      : mWatchdog(KVWatchdog::initWithTimeinterval(
            seconds, [action = std::move(action)](KVWatchdog&, const auto&) { action(); }, queue)) {
  }
  void setTimeInterval(double seconds) { mWatchdog->setTimeInterval(seconds); }
  void validate() { mWatchdog->validate(); }
  void cancel() { mWatchdog->cancel(); }
  void resumeAfter(double seconds) { mWatchdog->resumeAfter(seconds); }
  void drop() { mWatchdog.reset(); }

 private:
  std::shared_ptr<KVWatchdog> mWatchdog;
};

class ModuleForm {
 public:
  ModuleForm(double seconds, std::function<void()> action, host::Queue& queue) {
    EXPECT_EQ(kv_watchdog_create(
                  &mWatchdog, [action = std::move(action)](kv_watchdog*, void*) { action(); },
                  &queue, nullptr, seconds),
              0);
  }
  ~ModuleForm() { drop(); }
  ModuleForm(const ModuleForm&) = delete;
  ModuleForm& operator=(const ModuleForm&) = delete;
  void setTimeInterval(double seconds) {
    EXPECT_EQ(kv_watchdog_set_timeinterval(mWatchdog, seconds), 0);
  }
  void validate() { kv_watchdog_validate(mWatchdog); }
  void cancel() { EXPECT_EQ(kv_watchdog_cancel(mWatchdog), 0); }
  void resumeAfter(double seconds) { EXPECT_EQ(kv_watchdog_resume_after(mWatchdog, seconds), 0); }
  void drop() {
    if (mWatchdog != nullptr) {
      EXPECT_EQ(kv_watchdog_dispose(mWatchdog), 0);
      mWatchdog = nullptr;
    }
  }

 private:
  kv_watchdog* mWatchdog = nullptr;
};

template <class Form>
class Watchdog : public testing::Test {
 protected:
  std::function<void()> action() {
    return [this] {
      mQueue.assertCurrent();
      mFired.push_back(ns() / kMs);
    };
  }
  std::uint64_t ns() const { return mHost.AudioGetCurrentHostTime() - mBegin; }

  // From where time comes: a real-time thread.
  static void validate(Form& form) {
    const host::RealtimeContext realtime;
    form.validate();
  }

  host::SimulatedHost mHost;
  const std::uint64_t mBegin = mHost.AudioGetCurrentHostTime();
  host::Queue mQueue{"watched"};
  Times mFired;  // ms since the test began
};

using Forms = testing::Types<ObjectForm, ModuleForm>;
TYPED_TEST_SUITE(Watchdog, Forms);

TYPED_TEST(Watchdog, ToldAgainAndAgainItActsOneIntervalAfterTheLastTimeAndElseAtTheResume) {
  TypeParam never(0.4, this->action(), this->mQueue);
  this->mHost.advance(500 * kMs);
  EXPECT_TRUE(this->mFired.empty());  // suspended until resumed
  never.resumeAfter(0.4);
  TypeParam before(0.4, this->action(), this->mQueue);
  before.resumeAfter(0.1);
  this->validate(before);
  TypeParam form(0.4, this->action(), this->mQueue);
  form.resumeAfter(0.4);
  for (int i = 0; i < 50; ++i) {
    this->mHost.advance(100 * kMs);
    this->validate(form);
  }
  this->mHost.advance(2000 * kMs);
  this->validate(form);  // spent
  this->mHost.advance(2000 * kMs);
  EXPECT_EQ(this->mFired, (Times{900, 900, 5900}));
}

TYPED_TEST(Watchdog, ToldWhileItsTurnOnABusyQueueIsStillToComeItWaitsOnAndGoneItDoesNotAct) {
  TypeParam form(0.4, this->action(), this->mQueue);
  TypeParam gone(0.4, this->action(), this->mQueue);
  form.resumeAfter(0.1);
  gone.resumeAfter(0.1);
  this->validate(form);
  this->mQueue.async([this] { this->mHost.mach_wait_until(this->mBegin + 1000 * kMs); });
  this->mHost.advance(800 * kMs);
  this->validate(form);
  gone.drop();
  this->mHost.advance(2000 * kMs);
  EXPECT_EQ(this->mFired, (Times{1200}));
}

TYPED_TEST(Watchdog, ANewIntervalIsDueAtOnceAndMeasuresTheNext) {
  TypeParam told(0.4, this->action(), this->mQueue);
  told.setTimeInterval(0.1);
  this->validate(told);
  told.resumeAfter(0.01);
  this->mHost.advance(90 * kMs);
  EXPECT_TRUE(this->mFired.empty());
  this->mHost.advance(10 * kMs);
  EXPECT_EQ(this->mFired, (Times{100}));

  TypeParam notTold(3.0, this->action(), this->mQueue);
  notTold.resumeAfter(0.01);
  this->validate(notTold);
  this->mHost.advance(50 * kMs);
  notTold.setTimeInterval(2.0);
  this->mHost.advance(5000 * kMs);
  EXPECT_EQ(this->mFired, (Times{100, 150}));
}

TYPED_TEST(Watchdog, CancelledOrGoneItNeverActs) {
  TypeParam cancelled(0.4, this->action(), this->mQueue);
  TypeParam goneBeforeTheResume(0.4, this->action(), this->mQueue);
  cancelled.resumeAfter(0.2);
  goneBeforeTheResume.resumeAfter(0.2);
  cancelled.validate();
  this->mHost.advance(100 * kMs);
  goneBeforeTheResume.drop();
  this->mHost.advance(200 * kMs);
  cancelled.cancel();
  cancelled.validate();
  this->mHost.advance(2000 * kMs);
  EXPECT_TRUE(this->mFired.empty());
}

TYPED_TEST(Watchdog, TheActionMayDropItsOwnWatchdogAndPartsOfANanosecondAreCutOff) {
  std::unique_ptr<TypeParam> form;
  const auto alive = std::make_shared<int>(7);
  form = std::make_unique<TypeParam>(
      2.9e-9,
      [this, &form, alive] {
        form.reset();
        this->mFired.push_back(this->ns());
        EXPECT_EQ(*alive, 7) << "still whole";
      },
      this->mQueue);
  form->validate();
  form->resumeAfter(1.9e-9);
  this->mHost.advance(1000 * kMs);
  EXPECT_EQ(this->mFired, (Times{2}));
  EXPECT_EQ(alive.use_count(), 1);
}

TEST(KVWatchdog, KeepsItsReferenceAndIntervalsThatNoClockHoldsAreAlwaysOrNeverPast) {
  host::SimulatedHost host;
  host::Queue queue("watched");
  const auto past = std::make_shared<int>(0);
  KVWatchdog* seen = nullptr;
  const auto make = [&](double seconds) {
    auto watchdog = KVWatchdog::initWithTimeinterval(
        seconds,
        [&seen](KVWatchdog& self, const std::shared_ptr<void>& reference) {
          seen = &self;
          ++*static_cast<int*>(reference.get());
        },
        queue, past);
    watchdog->validate();
    watchdog->resumeAfter(0);
    return watchdog;
  };
  const auto huge = make(1e300);
  const auto negative = make(-1);
  auto nothing = make(std::nan(""));
  host.advance(1000 * kMs);
  EXPECT_EQ(*past, 2);
  EXPECT_EQ(seen, nothing.get());
  EXPECT_EQ(past.use_count(), 4);
  nothing.reset();
  EXPECT_EQ(past.use_count(), 3);
}

TEST(kv_watchdog, RefusesBadArgumentsByCodeAndEndsTheProgramWithoutAWatchdog) {
  host::SimulatedHost host;
  host::Queue queue("watched");
  int reference = 0;
  kv_watchdog* seen = nullptr;
  const kv_watchdog_action action = [&seen](kv_watchdog* self, void* refCon) {
    seen = self;
    ++*static_cast<int*>(refCon);
  };
  kv_watchdog* watchdog = nullptr;
  EXPECT_EQ(kv_watchdog_create(&watchdog, action, &queue, nullptr, 0), -50);
  EXPECT_EQ(kv_watchdog_create(&watchdog, action, &queue, nullptr, std::nan("")), -50);
  EXPECT_EQ(kv_watchdog_create(&watchdog, {}, &queue, nullptr, 1), -50);
  EXPECT_EQ(kv_watchdog_create(&watchdog, action, nullptr, nullptr, 1), -50);
  EXPECT_EQ(watchdog, nullptr);
  EXPECT_EQ(kv_watchdog_dispose(nullptr), -50);

  ASSERT_EQ(kv_watchdog_create(&watchdog, action, &queue, &reference, 0.1), 0);
  EXPECT_EQ(kv_watchdog_set_timeinterval(watchdog, 0), -50);
  EXPECT_EQ(kv_watchdog_resume_after(watchdog, -0.5), -50);
  host.advance(1000 * kMs);
  EXPECT_EQ(reference, 0);
  EXPECT_EQ(kv_watchdog_resume_after(watchdog, 0.1), 0);
  host.advance(100 * kMs);
  EXPECT_EQ(reference, 1);
  EXPECT_EQ(seen, watchdog);
  EXPECT_EQ(kv_watchdog_dispose(watchdog), 0);

  const char* const text = "watchdog && \"watchdog must not be NULL\"";
  EXPECT_DEATH(kv_watchdog_set_timeinterval(nullptr, 1), text);
  EXPECT_DEATH(kv_watchdog_validate(nullptr), text);
  EXPECT_DEATH(kv_watchdog_cancel(nullptr), text);
  EXPECT_DEATH(kv_watchdog_resume_after(nullptr, 1), text);
}

}  // namespace
}  // namespace velor
