// SPDX-License-Identifier: MIT
#include "Velor/program/VLInspect.h"

#include <gtest/gtest.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/velor/app/FullDocument.h"

namespace velor {
namespace {

using Json = nlohmann::ordered_json;

class VLInspectTest : public FullDocument {
 protected:
  // Inspected once all that could be made for it has gone.
  VLInspection inspected(const std::string& document) {
    end();
    const auto found = VLInspectDocument(document);
    EXPECT_TRUE(found) << found.error().text;
    return found.value_or(VLInspection{});
  }
  // A record of a time as it is stored: two words, a counter, the format, the flags and
  // the four fields.
  static Json block(std::uint8_t format, std::uint8_t flags, std::uint8_t hours,
                    std::uint8_t frames = 0) {
    store::KeyedArchiver coder;
    const std::uint8_t bytes[24] = {0,     0, 80, 0, 0,     0, 0, 0, format, 0, 0,      0,
                                    flags, 0, 0,  0, hours, 0, 0, 0, 0,      0, frames, 0};
    coder.encodeBytes(bytes, "time");
    return Json::parse(coder.data().value())["time"];
  }
};

TEST_F(VLInspectTest, AWholeDocumentIsDescribedWithoutAProblemAndNothingInItIsUnknown) {
  const auto found = inspected(mDocument);
  EXPECT_EQ(found.problems, std::vector<std::string>{});
  for (const char* part :
       {"Time          01:30:00:00\n", "Offset        00:00:00:29\n", "Stop time     03:00:00:00\n",
        "Loop          04:00:00:00 to 05:00:00:00\n", "Rate          +1.000 %\n",
        "Pre-roll      7.5 s, on\n",
        "Markers       5\n    01:00:00:00  Marker 5\n  * 02:00:00:00  Marker 4\n",
        "user bits 12345678", "channel 2, input conditioned, freewheels for 7 s",
        "    on   MIDI endpoint \"desk\" [", "    off  MIDI endpoint \"lamp\" [",
        "Media windows 1\n    clip \"",
        "walk-in.mp4\" at 02:00:00:00, on line, controls the master clock\n"}) {
    EXPECT_NE(found.text.find(part), std::string::npos) << part << "\n" << found.text;
  }
  EXPECT_EQ(found.text.find("Unknown"), std::string::npos) << found.text;
}

TEST_F(VLInspectTest, EachFaultIsReportedByItsPlaceAndTheRestIsStillDescribed) {
  struct Case {
    std::function<void(Json&)> damage;
    std::string problem;
  };
  const Case cases[] = {
      {[](Json& d) { d["offset"] = block(1, 1, 1); },
       "offset: its format is 25, that of the document 30"},
      {[](Json& d) { d["time"] = block(3, 0, 1); }, "time: not a valid time"},
      {[](Json& d) { d["time"] = block(3, 1, 1, 30); },
       "time: not a time of its format; it would become 01:00:01:00"},
      {[](Json& d) { d["loopEnd"] = d["time"]; }, "loopEnd: it is before the start of the loop"},
      {[](Json& d) { d["playbackMode"] = 7; }, "playbackMode: 7 is not a play mode"},
      {[](Json& d) { d["playbackRate"] = 1e-310; }, "playbackRate: 1e-310 is not a rate"},
      {[](Json& d) { d["prerollTime"] = -1; }, "prerollTime: -1 is out of range (0 to 60)"},
      {[](Json& d) { d["markers"][3]["time"] = nullptr; }, "markers[3].time: not a valid time"},
      {[](Json& d) { d["markers"][2]["uuid"] = d["markers"][1]["uuid"]; },
       "markers[2].uuid: another marker has this id"},
      {[](Json& d) { d["selectedmarkerIndexes"] = "1 5"; },
       "selectedmarkerIndexes: \"1 5\" are not indexes of these markers"},
      {[](Json& d) { d["devices.manager"][0]["generator"]["level"] = 1.5; },
       "devices.manager[0].generator.level: 1.5 is not a level from 0 to 1"},
      {[](Json& d) { d["devices.manager"][1]["reader"]["inputChannel"] = -1; },
       "devices.manager[1].reader.inputChannel: -1 is not a channel"},
  };
  for (const Case& each : cases) {
    Json document = Json::parse(mDocument);
    each.damage(document);
    const auto found = inspected(document.dump());
    ASSERT_FALSE(found.problems.empty()) << each.problem;
    EXPECT_EQ(found.problems.front(), each.problem);
    EXPECT_NE(found.text.find("Destinations"), std::string::npos) << each.problem;
  }
}

TEST_F(VLInspectTest, TheStateThatRunAfterRunSavesHasNoProblem) {
  // Points of a loop that were never set, and one that the clock has moved over midnight.
  for (const char* start : {"", "23:59:30:00"}) {
    std::filesystem::remove(folders().data() / "laststate.velor");
    for (int run = 0; run < 3; ++run) {
      launch();
      if (run == 0 && *start != 0) {
        clock().setLoopStartTime(timeOf(start));
      }
      EXPECT_TRUE(app().applicationWillTerminate());
      const auto found = inspected(contents(folders().data() / "laststate.velor"));
      EXPECT_EQ(found.problems, std::vector<std::string>{}) << "run " << run << "\n" << found.text;
    }
  }
}

TEST_F(VLInspectTest, UnknownKeysAreReportedAsKeptAndANameCannotMoveTheTerminal) {
  Json document = Json::parse(mDocument);
  document["later"] = 1;
  document["markers"][1]["colour"] = "red";
  document["markers"][1]["name"] = "a\x1b[2Jb";
  const auto found = inspected(document.dump());
  EXPECT_EQ(found.problems, std::vector<std::string>{});
  EXPECT_NE(found.text.find("Unknown       markers[1].colour (kept)\n"
                            "Unknown       later (kept)\n"),
            std::string::npos)
      << found.text;
  EXPECT_EQ(found.text.find('\x1b'), std::string::npos);
  EXPECT_EQ(VLInspectDocument("{\"a\": 1,\n \"a\": 2}").error().text, "a: the key is there twice");
}

}  // namespace
}  // namespace velor
