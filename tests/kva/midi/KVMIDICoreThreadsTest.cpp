// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <vector>

#include "Kv-Appkit/KVShared.h"
#include "kva/MIDI/KVMIDICore.h"
#include "platform/host/SystemHost.h"
#include "platform/midi/builtin/MIDIObjectTable.h"

namespace velor {
namespace {

TEST(KVMIDICoreThreads, ListsAndCachesAreReadWhileTheSetupChanges) {
  host::SystemHost host;
  midi::MIDIObjectTable table(nullptr);
  midi::setService(&table);
  auto& core = KVMIDICore::sharedCore();
  core.createSource(core.defaultClient(), "lasting", 1);
  core.resyncDeviceList();
  const std::uint64_t hash = core.sources().at(0)->endpoint();

  std::atomic<bool> ending{false};
  std::atomic<int> walks{0};
  std::vector<std::unique_ptr<host::Thread>> readers;
  for (int i = 0; i < 2; ++i) {
    readers.push_back(host.startThread("reader", [&] {
      while (!ending) {
        const auto sources = core.sources();
        EXPECT_EQ(sources.at(0)->uniqueID(), 1);
        EXPECT_EQ(sources.at(0)->displayName(), "lasting");
        EXPECT_EQ(sources.at(0)->hash(), hash);
        EXPECT_EQ(sources.at(0)->description(), "lasting [1]");
        core.clientWithName("reader");
        ++walks;
      }
    }));
  }
  for (int i = 0; i < 100 || walks < 20; ++i) {
    const auto source = core.createSource(core.defaultClient(), "passing", 0);
    host.mainQueue().drainPending();
    EXPECT_EQ(core.sources().size(), 2U);
    KVMIDIEndpoint(source).dispose();
    host.mainQueue().drainPending();
  }
  ending = true;
  readers.clear();
  KVSharedInstances::clear();
  midi::setService(nullptr);
}

}  // namespace
}  // namespace velor
