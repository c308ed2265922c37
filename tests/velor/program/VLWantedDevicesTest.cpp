// SPDX-License-Identifier: MIT
#include "Velor/program/VLWantedDevices.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Velor/devices/VLLTCGeneratorDevice.h"
#include "Velor/devices/VLLTCReaderDevice.h"
#include "Velor/program/VLCommandLine.h"
#include "tests/velor/app/AppFixture.h"

namespace velor {
namespace {

class VLWantedDevicesTest : public AppFixture {
 protected:
  /// A start with these options, up to where the clock is about to start.
  std::string start(std::vector<std::string> arguments) {
    end();
    arguments.insert(arguments.begin(), "--headless");
    const VLCommandLine line = VLParseCommandLine(arguments);
    if (!line.options) {
      return line.output;
    }
    auto found = VLWantedDevices::find(*line.options);
    if (!found) {
      return found.error().text;
    }
    mWanted = *std::move(found);
    mApp = std::make_shared<VLAppDelegate>(mWindow, mView, folders());
    mApp->applicationDidFinishLaunching({}, line.options->fresh);
    mHost.settle();
    const auto applied = mWanted->apply(*mApp);
    mHost.settle();
    return applied ? "" : applied.error().text;
  }
  void quit() {
    mApp->applicationWillTerminate();
    end();
  }

  /// "LTC Generator 1 on channel 0" for a generator, "LTC Reader 1" for a reader.
  static std::vector<std::string> devices() {
    std::vector<std::string> result;
    for (const auto& device : manager().devices()) {
      result.push_back(device->name().value_or("?"));
      if (const auto ltc = std::dynamic_pointer_cast<VLLTCGeneratorDevice>(device)) {
        std::vector<std::int32_t> map(ltc->generator()->lengthOfChannelMap());
        ltc->generator()->getChannelMap(map);
        const auto channel = std::find(map.begin(), map.end(), 0) - map.begin();
        result.back() += " on channel " + std::to_string(channel + 1);
      }
    }
    return result;
  }
  using Names = std::vector<std::string>;

  std::optional<VLWantedDevices> mWanted;
};

TEST_F(VLWantedDevicesTest, DevicesThatOptionsAddEndWithTheirRun) {
  appear("desk");
  ASSERT_EQ(
      start({"--mtc-out", "desk", "--ltc-out", "Velor Loopback:1", "--ltc-in", "Velor Loopback:2"}),
      "");
  EXPECT_EQ(devices(), (Names{"LTC Generator 1 on channel 1", "LTC Reader 1"}));
  EXPECT_EQ(listed(), (Listed{"+desk", "+LTC Generator 1"}));
  quit();
  ASSERT_EQ(start({"--ltc-out", "Velor Loopback:2"}), "");
  EXPECT_EQ(devices(), Names{"LTC Generator 1 on channel 2"});
  EXPECT_EQ(listed(), (Listed{"-desk", "+LTC Generator 1"}));
  quit();
  ASSERT_EQ(start({}), "");
  EXPECT_EQ(devices(), Names{});
}

TEST_F(VLWantedDevicesTest, WithKeepItIsSavedOnceAndAFreshStartDoesWithoutTheState) {
  appear("desk");
  for (int run = 0; run < 2; ++run) {
    ASSERT_EQ(start({"--keep", "--mtc-out", "desk", "--ltc-out", "Velor Loopback:1"}), "");
    quit();
  }
  // A temporary one beside it has a name of its own, and does not become saved by it.
  for (int run = 0; run < 2; ++run) {
    ASSERT_EQ(start({"--mtc-out", "desk", "--ltc-out", "Velor Loopback:1", "--ltc-out",
                     "Velor Loopback:2"}),
              "");
    EXPECT_EQ(devices(), (Names{"LTC Generator 1 on channel 1", "LTC Generator 2 on channel 2"}));
    EXPECT_EQ(listed(), (Listed{"+desk", "+LTC Generator 1", "+LTC Generator 2"}));
    quit();
  }
  ASSERT_EQ(start({"--fresh"}), "");
  EXPECT_EQ(devices(), Names{});
  EXPECT_EQ(listed(), Listed{"-desk"});
}

TEST_F(VLWantedDevicesTest, ASwitchOfThisRunStaysSoOverItsDestinationsReturn) {
  const auto desk = appear("desk");
  ASSERT_EQ(start({"--mtc-out", "desk"}), "");
  vanish(desk);
  appear("desk");
  EXPECT_EQ(listed(), Listed{"+desk"});
  quit();
  ASSERT_EQ(start({}), "");
  EXPECT_EQ(listed(), Listed{"-desk"});
  ASSERT_EQ(start({"--mtc-out", "desk"}), "");
  manager().destinations().front()->setEnable(true);  // by the user
  quit();
  ASSERT_EQ(start({}), "");
  EXPECT_EQ(listed(), Listed{"+desk"});
}

TEST_F(VLWantedDevicesTest, AWrongNameIsRefusedWithWhatThereIs) {
  appear("desk");
  struct Case {
    std::vector<std::string> arguments;
    std::vector<std::string> reasons;
  };
  const Case cases[] = {
      {{"--mtc-out", "desk", "--mtc-out", "12345"}, {"--mtc-out", "'12345'", "'desk'"}},
      {{"--sync-source", "Nowhere"}, {"--sync-source", "'Nowhere'", "there are none"}},
      {{"--ltc-out", "Nowhere:1"}, {"--ltc-out", "'Nowhere'", "'Velor Loopback'"}},
      {{"--ltc-out", "Velor Loopback:3"}, {"--ltc-out", "no channel '3'", "2 'Velor Loopback 2'"}},
      {{"--ltc-out", "velor.loopback:0"}, {"--ltc-out", "no channel '0'"}},
      {{"--ltc-out", "velor.loopback:1", "--ltc-out", "Velor Loopback:1"}, {"twice"}},
      {{"--ltc-in", "Nowhere:1"}, {"--ltc-in", "with inputs", "'Nowhere'", "'Velor Loopback'"}},
  };
  for (const Case& each : cases) {
    const std::string refusal = start(each.arguments);
    for (const std::string& reason : each.reasons) {
      EXPECT_NE(refusal.find(reason), std::string::npos) << refusal;
    }
  }
}

TEST_F(VLWantedDevicesTest, AMissingPortOrDeviceEndsTheStartUnlessItIsWaitedFor) {
  mLoopback->vanish();
  mHost.settle();
  EXPECT_NE(start({"--mtc-out", "desk"}).find("--mtc-out: no MIDI destination"), std::string::npos);
  EXPECT_NE(start({"--ltc-out", "Velor Loopback:1"}).find("--ltc-out: no audio device"),
            std::string::npos);
  ASSERT_EQ(start({"--wait", "--arm", "--mtc-out", "desk", "--sync-source", "deck", "--ltc-out",
                   "Velor Loopback:2", "--ltc-in", "Velor Loopback:1"}),
            "");
  EXPECT_EQ(mWanted->missing().size(), 4U);
  VLStatus status;
  mWanted->describe(status);
  ASSERT_TRUE(status.source && status.ltcIn && status.ltc.size() == 1);
  EXPECT_EQ(status.source->name, "deck");
  EXPECT_FALSE(status.source->present || status.ltcIn->port.present || status.ltc[0].port.present);

  // It is followed before the list of destinations has it.
  mOutside->appear(midi::MIDIEndpointKind::destination, "desk");
  KVMIDICore::sharedCore().resyncDeviceList();
  EXPECT_FALSE(mWanted->follow(app()));
  mHost.settle();
  EXPECT_EQ(listed(), Listed{"+desk"});
  app().play();
  addSource("deck");
  mLoopback->appear();
  mHost.settle();
  EXPECT_FALSE(mWanted->follow(app())) << "a play runs without a sync source";
  EXPECT_EQ(devices(), (Names{"LTC Generator 1 on channel 2", "LTC Reader 1"}));
  app().stop();
  mHost.settle();
  EXPECT_TRUE(mWanted->follow(app()));
  EXPECT_TRUE(clock().armed());
  EXPECT_EQ(mWanted->missing(), Names{});
  EXPECT_FALSE(mWanted->follow(app())) << "each is taken once";
  EXPECT_EQ(devices().size(), 2U);
}

}  // namespace
}  // namespace velor
