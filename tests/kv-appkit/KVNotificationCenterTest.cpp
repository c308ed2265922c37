// SPDX-License-Identifier: MIT
#include "Kv-Appkit/KVNotificationCenter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Kv-Appkit/KVShared.h"
#include "sim/SimulatedHost.h"

namespace velor {
namespace {

using Texts = std::vector<std::string>;

TEST(KVNotificationCenter, PostsOnTheMainQueueComeLaterInOrderToWhoeverStillObserves) {
  host::SimulatedHost host;
  KVNotificationCenter& center = KVNotificationCenter::defaultCenter();
  Texts seen;
  const auto note = [&seen, &host](const KVNotification& notification) {
    host.mainQueue().assertCurrent();
    seen.push_back(std::any_cast<std::string>(notification.object));
  };
  const auto stays = center.addObserver("setup", note);
  auto leaves = center.addObserver("setup", note);
  host::Queue queue("poster");
  queue.sync([&] {
    center.postOnMainQueue("setup", std::string("a"));
    center.postOnMainQueue("setup", std::string("b"));
  });
  EXPECT_TRUE(seen.empty());
  leaves.reset();
  host.settle();
  EXPECT_EQ(seen, (Texts{"a", "b"}));

  center.postOnMainQueue("setup", std::string("for nobody"));
  KVSharedInstances::clear();
  host.settle();
  EXPECT_EQ(seen.size(), 2U);
}

}  // namespace
}  // namespace velor
