// SPDX-License-Identifier: MIT
#include "Kv-Appkit/KVObservable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "Kv-Appkit/KVKeyValueObserver.h"

namespace velor {
namespace {

using Keys = std::vector<std::string>;

// The shape of a transport: status and running depend on each other, and so do
// the two ends of a loop.
constexpr KVDependency kDependencies[] = {
    {"playRatePercent", "playRate"},
    {"status", "armed"},
    {"status", "running"},
    {"running", "armed"},
    {"running", "status"},
    {"loopStartTime", "smpteFormat"},
    {"loopStartTime", "loopEndTime"},
    {"loopEndTime", "smpteFormat"},
    {"loopEndTime", "loopStartTime"},
    {"canChangeFormat", "armed"},
    {"canChangeFormat", "running"},
    {"canChangeFormat", "status"},
    {"description", "canChangeFormat"},
};

class Transport : public KVObservable {
 public:
  Transport() : KVObservable(kDependencies) {}
  void change(std::string_view key) {
    willChangeValueForKey(key);
    didChangeValueForKey(key);
  }
};

class Observation : public testing::Test {
 protected:
  KVObserverToken note(std::string_view key) {
    return mTransport.addObserver(key, [this](std::string_view told) { mTold.emplace_back(told); });
  }
  // What a change of the key told, sorted; each told twice stands twice.
  Keys toldBy(std::string_view key) {
    mTold.clear();
    mTransport.change(key);
    std::sort(mTold.begin(), mTold.end());
    return mTold;
  }

  Transport mTransport;
  Keys mTold;
};

TEST_F(Observation, AChangeTellsAllThatDependsOnItOnceThroughCyclesAndOthers) {
  std::vector<KVObserverToken> tokens;
  for (const char* key :
       {"playRate", "playRatePercent", "status", "armed", "running", "smpteFormat", "loopStartTime",
        "loopEndTime", "canChangeFormat", "description"}) {
    tokens.push_back(note(key));
  }
  EXPECT_EQ(toldBy("playRate"), (Keys{"playRate", "playRatePercent"}));
  EXPECT_EQ(toldBy("playRatePercent"), (Keys{"playRatePercent"}));
  const Keys statusAndMore{"canChangeFormat", "description", "running", "status"};
  EXPECT_EQ(toldBy("status"), statusAndMore);
  EXPECT_EQ(toldBy("running"), statusAndMore);
  EXPECT_EQ(toldBy("armed"),
            (Keys{"armed", "canChangeFormat", "description", "running", "status"}));
  EXPECT_EQ(toldBy("loopEndTime"), (Keys{"loopEndTime", "loopStartTime"}));
  EXPECT_EQ(toldBy("smpteFormat"), (Keys{"loopEndTime", "loopStartTime", "smpteFormat"}));
  EXPECT_EQ(toldBy("unheardOf"), Keys{});
}

TEST_F(Observation, OnlyAPairTellsAndNestedPairsEachDo) {
  const auto token = note("time");
  mTransport.willChangeValueForKey("time");
  EXPECT_TRUE(mTold.empty());
  mTransport.willChangeValueForKey("time");
  mTransport.didChangeValueForKey("time");
  mTransport.didChangeValueForKey("time");
  EXPECT_EQ(mTold.size(), 2U);
  mTransport.didChangeValueForKey("time");
  EXPECT_EQ(mTold.size(), 2U);
}

TEST_F(Observation, AnObserverRemovedDuringACallIsNotCalledAnyMore) {
  KVObserverToken second;
  KVObserverToken dependent;
  KVObserverToken self;
  int selfCalls = 0;
  self = mTransport.addObserver("running", [&](std::string_view) {
    const std::string captured(40, 'x');
    second.reset();
    dependent.reset();
    self.reset();
    ++selfCalls;
    EXPECT_EQ(captured.size(), 40U);
  });
  second = note("running");
  dependent = note("status");
  const auto last = note("running");
  EXPECT_EQ(toldBy("running"), (Keys{"running"}));
  EXPECT_EQ(toldBy("running"), (Keys{"running"}));
  EXPECT_EQ(selfCalls, 1);
}

TEST_F(Observation, AnObserverMayChangeTheObjectAndRegisterOthers) {
  KVObserverToken added;
  const auto token = mTransport.addObserver("playRate", [&](std::string_view) {
    added = note("armed");
    mTransport.change("armed");
  });
  EXPECT_EQ(toldBy("playRate"), (Keys{"armed"}));
}

TEST_F(Observation, ATokenMayOutliveWhatItObserved) {
  auto transport = std::make_unique<Transport>();
  const auto token = transport->addObserver("time", [](std::string_view) {});
  transport.reset();
}

// --- KVKeyValueObserver ---

class Panel : public std::enable_shared_from_this<Panel> {
 public:
  void observe(Transport& transport) {
    static constexpr KVKeyPathOperation<Panel> kKeyPaths[] = {
        {"playRatePercent", &Panel::playRatePercentChanged},
        {"status", &Panel::statusChanged},
    };
    mObserver = KVKeyValueObserver::observeKeyPaths(kKeyPaths, transport, weak_from_this());
  }
  void stop() { mObserver = {}; }
  Keys called;

 private:
  void playRatePercentChanged() { called.emplace_back("playRatePercent"); }
  void statusChanged() { called.emplace_back("status"); }
  KVKeyValueObserver mObserver;
};

TEST(KVKeyValueObserver, CallsTheOperationOfEachKeyPathWhileItLives) {
  Transport transport;
  const auto panel = std::make_shared<Panel>();
  panel->observe(transport);
  transport.change("playRate");
  transport.change("armed");
  EXPECT_EQ(panel->called, (Keys{"playRatePercent", "status"}));
  panel->stop();
  transport.change("playRate");
  EXPECT_EQ(panel->called.size(), 2U);
}

TEST(KVKeyValueObserver, DoesNotKeepItsTargetNorCallOneThatHasGone) {
  struct Target {
    explicit Target(int& counter) : calls(counter) {}
    void timeChanged() { ++calls; }
    int& calls;
  };
  Transport transport;
  int calls = 0;
  auto target = std::make_shared<Target>(calls);
  const std::vector<KVKeyPathOperation<Target>> keyPaths{{"time", &Target::timeChanged}};
  const auto observer =
      KVKeyValueObserver::observeKeyPaths(keyPaths, transport, std::weak_ptr<Target>(target));
  transport.change("time");
  EXPECT_EQ(target.use_count(), 1);
  target.reset();
  transport.change("time");
  EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace velor
