// SPDX-License-Identifier: MIT
#include "Velor/app/VLApplicationState.h"

#include <gtest/gtest.h>

#include <cstring>
#include <nlohmann/json.hpp>
#include <tuple>

#include "Velor/osc/VLOSCClientDispatcher.h"
#include "Velor/osc/VLOSCServer.h"
#include "Velor/osc/VLUserDefinedOSCClient.h"
#include "tests/support/ExactDrop.h"
#include "tests/velor/app/FullDocument.h"

namespace velor {
namespace {

using Json = nlohmann::ordered_json;

class VLApplicationStateTest : public AppFixture {
 protected:
  VLApplicationStateTest() { launch(); }

  std::filesystem::path save(const std::string& name = "show.velor") {
    const auto path = mFolder.path() / name;
    EXPECT_TRUE(app().saveApplicationStateToURL(path));
    return path;
  }
  Json saved() { return Json::parse(contents(save())); }
  bool load(const Json& document) {
    return app().loadApplicationStateFromURL(write("edited.velor", document.dump())).has_value();
  }
  std::filesystem::path settings() const { return folders().config() / "settings.json"; }
  std::string settingsAside() const { return settings().string() + ".damaged"; }
  /// Starts with these settings, whose one error has these parts.
  void expectReportedAndKeptAside(const std::string& damaged,
                                  const std::vector<std::string>& parts) {
    end();
    mWindow->errors.clear();
    std::ofstream(settings()) << damaged;
    launch();
    app().waitForSettings();
    mHost.settle();
    ASSERT_EQ(mWindow->errors.size(), 1U) << damaged;
    for (const std::string& part : parts) {
      EXPECT_NE(mWindow->errors[0].find(part), std::string::npos) << mWindow->errors[0];
    }
    EXPECT_TRUE(app().applicationWillTerminate());
    EXPECT_NE(contents(settings()), damaged);
    EXPECT_EQ(contents(settingsAside()), damaged);
  }
};

TEST_F(FullDocument, AnotherRunRestoresAllThatWasSetExceptTheRateWithASyncSource) {
  EXPECT_TRUE(app().applicationWillTerminate());
  // The names stand in documents of users: another one would lose what they saved.
  std::string keys;
  Json last = Json::parse(contents(folders().data() / "laststate.velor"));
  for (const auto& member : last.items()) {
    keys += member.key() + " ";
  }
  EXPECT_EQ(keys,
            "time offset stoptime loopStart loopEnd tc.type prerollTime preroll playbackRate "
            "playbackMode appVersion syncSource markers selectedmarkerIndexes devices.manager "
            "destinations.manager mediaWindows ");

  launch();
  EXPECT_EQ(now(), "01:30:00:00");
  last["playbackRate"] = 1.0;
  mHost.advance(100'000'000);  // until the clip is ready
  const auto again = folders().data() / "again.velor";
  EXPECT_TRUE(app().saveApplicationStateToURL(again));
  EXPECT_EQ(Json::parse(contents(again)), last);
  EXPECT_TRUE(app().syncSource() != nullptr && app().syncSource()->isEqual(*mDeck));
  EXPECT_FALSE(clock().armed());
  EXPECT_EQ(listed(), (Listed{"+desk", "-lamp", "+Velor Media Playback", "-LTC Generator 1"}));
  EXPECT_FALSE(app().undoManager().canUndo());
  const auto devices = manager().devices();
  ASSERT_EQ(devices.size(), 2U);
  inputOf(*devices[0])->setEnable(true);
  clock().start();
  mHost.advance(25 * kFrame25);
  EXPECT_EQ(devices[0]->deviceStatus(), kVLDeviceStatusRunning);
}

TEST_F(FullDocument, DevicesThatCannotAllBeTakenOverLeaveTheRunningOnesAsTheyAre) {
  const auto running = manager().devices();
  const auto endpoint = running[0]->midiEndpoint();
  const Json whole = Json::parse(mDocument);
  Json damaged = whole;
  damaged["devices.manager"][1]["reader"]["inputChannel"] = "left";
  Json many = whole;
  many["devices.manager"].clear();
  for (std::size_t i = 0; i <= VLDeviceManager::kMostDevices; ++i) {
    many["devices.manager"].push_back(whole["devices.manager"][i % 2]);
  }
  for (const auto& [document, error] :
       {std::pair(damaged, "devices.manager[1].reader.inputChannel: expected a whole number"),
        std::pair(many, "devices.manager: 65 devices; at most 64 are possible")}) {
    const auto loaded = app().loadApplicationStateFromURL(write("edited.velor", document.dump()));
    ASSERT_TRUE(loaded && *loaded);
    EXPECT_NE((*loaded)->text.find(error), std::string::npos) << (*loaded)->text;
    mHost.settle();
    EXPECT_EQ(manager().devices(), running);
    EXPECT_EQ(running[0]->midiEndpoint(), endpoint) << error;
  }
  many["devices.manager"].erase(0);
  const auto loaded = app().loadApplicationStateFromURL(write("edited.velor", many.dump()));
  EXPECT_TRUE(loaded && !*loaded);
  EXPECT_EQ(manager().devices().size(), VLDeviceManager::kMostDevices);
  EXPECT_THROW(manager().createGenerator(), KVException);
  EXPECT_THROW(manager().createrReader(), KVException);
}

TEST_F(VLApplicationStateTest, ExactDropIsOfTheDocumentAndOffWithoutItsKey) {
  const Json document = saved();
  EXPECT_FALSE(document.contains("exactDrop"));
  const ExactDrop exact;
  const Json exactDocument = saved();
  EXPECT_TRUE(load(document));
  EXPECT_FALSE(ltc_exact_drop());
  EXPECT_TRUE(load(exactDocument));
  EXPECT_TRUE(ltc_exact_drop());
}

TEST_F(VLApplicationStateTest, WithoutASyncSourceTheRateIsRestoredAndZeroMeansNormal) {
  clock().setPlayRate(1.01);
  Json document = saved();
  clock().setPlayRate(0.99);
  EXPECT_TRUE(load(document));
  EXPECT_EQ(clock().playRate(), 1.01);
  document["playbackRate"] = 0;
  document["playbackMode"] = 0;
  clock().setPlayMode(VLPlayModeLoop);
  EXPECT_TRUE(load(document));
  EXPECT_EQ(clock().playRate(), 1.0);
  EXPECT_EQ(clock().playMode(), VLPlayModeNormal);

  const auto deck = addSource("deck");
  app().setSyncSource(deck);
  app().arm();
  document["syncSource"] = 12345;  // of another machine
  EXPECT_TRUE(load(document));
  EXPECT_EQ(app().syncSource(), nullptr);
  EXPECT_EQ(clock().status(), VLClockStopped);
}

TEST_F(VLApplicationStateTest, MissingValuesStayAMissingFormatIs24AndInvalidOnesAreLogged) {
  clock().setSmpteFormat(kSMPTETimeType24);
  goTo("00:00:01:00");
  app().addMarker();
  Json document = saved();
  document.erase("markers");
  document.erase("tc.type");
  document.erase("devices.manager");
  clock().setSmpteFormat(kSMPTETimeType30);
  EXPECT_TRUE(load(document));
  EXPECT_EQ(clock().smpteFormat(), kSMPTETimeType24);
  EXPECT_EQ(markers(), (std::vector<std::string>{"00:00:01:00 Marker 1"}));
  document["tc.type"] = 99;
  document["playbackMode"] = 1717986918;
  goTo("00:00:10:00");
  EXPECT_TRUE(load(document));
  EXPECT_EQ(now(), "00:00:01:00");
  EXPECT_EQ(clock().smpteFormat(), kSMPTETimeType24);
  EXPECT_TRUE(mLog.has("tc.type: 99 is not a format"));
  EXPECT_TRUE(mLog.has("playbackMode: 1717986918 is not a play mode"));
}

TEST_F(VLApplicationStateTest, APointThatIsANumberLeftOutDoesNotKeepADocumentFromOpening) {
  clock().setSmpteFormat(kSMPTETimeType2997Drop);
  clock().setStopTime(timeOf("00:01:00;00", kSMPTETimeType2997Drop));
  clock().setLoopEndTime(timeOf("00:02:00;01", kSMPTETimeType2997Drop));
  clock().setSmpteOffset(timeOf("00:03:00;00", kSMPTETimeType2997Drop));
  goTo("00:00:01;00");
  EXPECT_TRUE(load(saved()));
  EXPECT_EQ(now(), "00:00:01;00");
  EXPECT_EQ(stringFromSMPTETime(clock().stopTime()), "00:01:00;02");
}

TEST_F(VLApplicationStateTest, AFileThatIsNotADocumentChangesNothingAndIsReportedWithItsPlace) {
  goTo("00:00:05:00");
  const std::string before = saved().dump();
  std::filesystem::resize_file(write("huge.velor", "{"), std::uintmax_t{1} << 40U);
  for (const char* reason : {"missing.velor", "huge.velor: it is longer than 16777216 bytes"}) {
    const auto name = std::string(reason).substr(0, std::string(reason).find(':'));
    const auto loaded = app().loadApplicationStateFromURL(mFolder.path() / name);
    ASSERT_FALSE(loaded);
    EXPECT_NE(loaded.error().text.find(reason), std::string::npos) << loaded.error().text;
  }
  EXPECT_EQ(saved().dump(), before);
}

TEST_F(VLApplicationStateTest, ADocumentOfAnotherFormatMovesARunningClockAndEndsInTheException) {
  clock().setSmpteFormat(kSMPTETimeType30);
  goTo("03:00:00:00");
  app().addMarker();
  const Json document = saved();
  clock().setSmpteFormat(kSMPTETimeType25);
  clock().setLoopEndTime(timeOf("00:00:09:00"));
  app().play();
  EXPECT_FALSE(load(document));
  EXPECT_EQ(clock().smpteFormat(), kSMPTETimeType25);
  mHost.advance(kFrame25);
  EXPECT_EQ(now(), "03:00:00:01");
  EXPECT_EQ(stringFromSMPTETime(clock().loopEndTime()), "00:00:09:00");
  EXPECT_EQ(app().markers().markers().at(0)->time()->type(), kSMPTETimeType25);
}

TEST_F(VLApplicationStateTest, ASaveKeepsWhatALaterVersionWrote) {
  goTo("00:00:01:00");
  app().addMarker();
  appear("desk");
  Json document = saved();
  Json& destination = document["destinations.manager"][0];
  destination["delay"] = 4;
  destination["device.destinationdevice"]["gain"] = 1;
  destination["device.destinationdevice"]["endpoint"]["alias"] = "board";
  document["lights"] = Json::array({{{"$class", "VLFutureCue"}, {"scene", "a"}}});
  document["later"] = {{"$base64", "AAAA"}};
  document["markers"][0]["colour"] = "red";
  EXPECT_TRUE(load(document));
  const Json again = saved();
  EXPECT_EQ(again["lights"], document["lights"]);
  EXPECT_EQ(again["later"], document["later"]);
  EXPECT_EQ(again["markers"], document["markers"]);
  EXPECT_EQ(again["destinations.manager"], document["destinations.manager"]);
}

TEST_F(FullDocument, MediaWindowsReturnWithTheirRouteOffAndAreKeptWhereNothingPlaysThem) {
  Json document = Json::parse(mDocument);
  for (Json& destination : document["destinations.manager"]) {
    destination["enabled.device"] = false;
  }
  document["mediaWindows"][0]["later"] = 1;
  const auto path = write("edited.velor", document.dump());
  launch(path);
  mHost.advance(100'000'000);
  for (const auto& destination : manager().destinations()) {
    EXPECT_FALSE(destination->enable()) << destination->name().value_or("?");
  }
  const auto windowsSaved = [this] {
    const auto again = mFolder.path() / "again.velor";
    EXPECT_TRUE(app().saveApplicationStateToURL(again));
    return Json::parse(contents(again))["mediaWindows"];
  };
  EXPECT_EQ(windowsSaved(), document["mediaWindows"]);
  closeMediaWindows();
  EXPECT_EQ(windowsSaved(), Json::array());

  mMedia.missing = {"gstreamer1.0-libav"};
  launch(path);
  EXPECT_TRUE(app().mediaWindows().windows().empty());
  EXPECT_EQ(windowsSaved(), document["mediaWindows"]);
  app().newPlaybackWindow();
  EXPECT_NE(mWindow->answer(true).message.find("gstreamer1.0-libav"), std::string::npos);
}

TEST_F(VLApplicationStateTest, ASaveThatFailsIsReportedAndTheStateIsKept) {
  mWindow->panelAnswer = mFolder.path() / "none" / "show.velor";
  app().saveDocument();
  ASSERT_EQ(mWindow->errors.size(), 1U);
  EXPECT_NE(mWindow->errors[0].find("none"), std::string::npos);
  goTo("00:00:07:00");
  mWindow->panelAnswer = save();
  goTo("00:00:08:00");
  app().openDocument();
  EXPECT_EQ(now(), "00:00:07:00");
  mWindow->panelAnswer.clear();  // cancelled
  app().saveDocument();
  EXPECT_EQ(mWindow->errors.size(), 1U);
}

TEST_F(VLApplicationStateTest, WithoutAHomeFolderNothingIsSavedAndTheEndIsNotAFailure) {
  mHasHome = false;
  launch();
  goTo("00:00:07:00");
  mHost.advance(20'000'000'000);
  EXPECT_TRUE(app().applicationWillTerminate());
}

TEST_F(VLApplicationStateTest, AFileAtTheStartIsLoadedInPlaceOfTheStateOfTheLastRun) {
  goTo("00:00:01:00");
  EXPECT_TRUE(app().applicationWillTerminate());
  clock().setSmpteFormat(kSMPTETimeType24);
  goTo("00:00:02:00");
  const auto file = save();
  launch(file);
  EXPECT_TRUE(app().documents().didLoadFileAtStartup());
  EXPECT_EQ(now(), "00:00:02:00");
  EXPECT_EQ(clock().smpteFormat(), kSMPTETimeType24);
  launch(write("damaged.velor", "{"));
  EXPECT_FALSE(app().documents().didLoadFileAtStartup());
  EXPECT_EQ(now(), "00:00:01:00");
}

TEST_F(VLApplicationStateTest, AStateOfTheLastRunThatCannotBeReadIsKeptAside) {
  app().addMarker();
  EXPECT_TRUE(app().applicationWillTerminate());
  const auto last = folders().data() / "laststate.velor";
  const auto aside = folders().data() / "laststate.damaged.velor";
  Json document = Json::parse(contents(last));
  Json laterDevice = document;
  laterDevice["devices.manager"].push_back({{"$class", "VLDeviceOfLater"}});
  document["offset"] = 3;
  for (const std::string& damaged :
       {document.dump(), laterDevice.dump(), std::string("{"), std::string()}) {
    std::ofstream(last) << damaged;
    launch();
    const auto& error = app().documents().lastStateError();
    ASSERT_TRUE(error);
    for (const char* path : {last.c_str(), aside.c_str()}) {
      EXPECT_NE(error->text.find(path), std::string::npos) << error->text;
    }
    EXPECT_TRUE(app().applicationWillTerminate());
    EXPECT_EQ(contents(aside), damaged);
    launch();
    EXPECT_FALSE(app().documents().lastStateError());
  }
  end();
  std::filesystem::remove(last);
  launch();
  EXPECT_FALSE(app().documents().lastStateError()) << "as at the first start";
}

TEST_F(VLApplicationStateTest, SettingsOutliveARunAndDamagedOnesDoNotKeepItFromStarting) {
  app().setDisableMTCLoopCheck(true);
  EXPECT_TRUE(app().server().startUdPServerAtPort(7771));
  EXPECT_TRUE(app().applicationWillTerminate());
  launch();
  app().waitForSettings();
  EXPECT_TRUE(app().disableMTCLoopCheck());
  EXPECT_EQ(app().server().port(), 7771);
  EXPECT_TRUE(mWindow->errors.empty());
  end();
  Json later = Json::parse(contents(settings()));
  later["later"] = 1;
  later["osc.server.settings"]["later"] = 2;
  std::ofstream(settings()) << later;
  launch();
  app().waitForSettings();
  EXPECT_TRUE(app().applicationWillTerminate());
  EXPECT_EQ(Json::parse(contents(settings())), later) << "what a later version wrote survives";
  for (const auto& [damaged, place] :
       {std::pair("{\n  \"on\": tru\n}", "line 2"),
        std::pair(R"({"mtcLoopCheck.disable": "yes"})", "mtcLoopCheck.disable: expected a bool")}) {
    expectReportedAndKeptAside(damaged, {place, settings().string(), settingsAside()});
    EXPECT_FALSE(app().disableMTCLoopCheck());
    EXPECT_FALSE(app().server().running());
  }
}

// The lists are archives within the file, and are read after it.
TEST_F(VLApplicationStateTest, DamagedListsOfOSCAreReportedAndTheirFileIsKeptAside) {
  app().server().addHostFilterObject(VLOSCHostFilterEntry::initWithAddress("10.0.0.5", {}));
  VLOSCClientDispatcher::sharedDispatcher().addClient(
      VLUserDefinedOSCClient::initWithUdpHost("10.0.0.6", 9000));
  mHost.settle();
  EXPECT_TRUE(app().applicationWillTerminate());
  const std::string whole = contents(settings());
  for (const auto& [place, excess, error] :
       {std::tuple(R"(port\": 9000)", "0", "osc.client.port: 90000 is not a port"),
        std::tuple(R"("$base64": ")", "AAAA", "hostfilter: line 1, column 1: a zero byte")}) {
    const auto at = whole.find(place);
    ASSERT_NE(at, std::string::npos) << whole;
    expectReportedAndKeptAside(std::string(whole).insert(at + std::strlen(place), excess), {error});
  }
}

}  // namespace
}  // namespace velor
