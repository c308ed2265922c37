// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

#include "Kv-Appkit/KVShared.h"
#include "platform/midi/builtin/MIDIObjectTable.h"
#include "sim/SimulatedHost.h"
#include "tests/support/FakeOutside.h"

namespace velor {

/// A test with a MIDI service in force on the simulated host, and an outside that
/// it plays. What is shared by the process ends with each test.
class MIDITest : public testing::Test {
 protected:
  explicit MIDITest(std::uint64_t seed = 0) : mHost(seed) { midi::setService(&mTable); }
  ~MIDITest() override {
    KVSharedInstances::clear();
    // A parser of MTC stays until the end of its stream is told.
    mHost.advance(1'000'000'000);
    midi::setService(nullptr);
  }

  host::SimulatedHost mHost;
  midi::FakeOutside* const mOutside = new midi::FakeOutside;  // the table's
  midi::MIDIObjectTable mTable{std::unique_ptr<midi::MIDIOutside>(mOutside)};
};

}  // namespace velor
