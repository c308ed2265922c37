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

// The shape of a transport: status and running depend on each other.
constexpr KVDependency kDependencies[] = {
    {"playRatePercent", "playRate"},
    {"status", "armed"},
    {"status", "running"},
    {"running", "armed"},
    {"running", "status"},
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
  for (const char* key : {"playRate", "playRatePercent", "status", "armed", "running",
                          "canChangeFormat", "description"}) {
    tokens.push_back(note(key));
  }
  EXPECT_EQ(toldBy("playRate"), (Keys{"playRate", "playRatePercent"}));
  EXPECT_EQ(toldBy("playRatePercent"), (Keys{"playRatePercent"}));
  const Keys statusAndMore{"canChangeFormat", "description", "running", "status"};
  EXPECT_EQ(toldBy("status"), statusAndMore);
  EXPECT_EQ(toldBy("running"), statusAndMore);
  EXPECT_EQ(toldBy("armed"),
            (Keys{"armed", "canChangeFormat", "description", "running", "status"}));
  EXPECT_EQ(toldBy("unheardOf"), Keys{});
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

TEST(KVKeyValueObserver, CallsTheOperationOfEachKeyPathWhileItAndItsTargetLive) {
  struct Panel {
    explicit Panel(Keys& keys) : called(keys) {}
    void playRatePercentChanged() { called.emplace_back("playRatePercent"); }
    void statusChanged() { called.emplace_back("status"); }
    Keys& called;
  };
  constexpr KVKeyPathOperation<Panel> kKeyPaths[] = {
      {"playRatePercent", &Panel::playRatePercentChanged}, {"status", &Panel::statusChanged}};
  auto transport = std::make_unique<Transport>();
  Keys called;
  auto panel = std::make_shared<Panel>(called);
  const std::weak_ptr<Panel> weak = panel;
  auto observer = KVKeyValueObserver::observeKeyPaths(kKeyPaths, *transport, weak);
  transport->change("playRate");
  transport->change("armed");
  const Keys both{"playRatePercent", "status"};
  EXPECT_EQ(called, both);
  observer = {};
  transport->change("playRate");
  EXPECT_EQ(called, both);

  observer = KVKeyValueObserver::observeKeyPaths(kKeyPaths, *transport, weak);
  EXPECT_EQ(panel.use_count(), 1);
  panel.reset();
  transport->change("playRate");
  EXPECT_EQ(called, both);
  transport.reset();  // the observer may outlive what it observed
}

}  // namespace
}  // namespace velor
