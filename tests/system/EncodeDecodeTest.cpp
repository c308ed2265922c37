// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/VelorProcess.h"

namespace velor::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class EncodeDecode : public testing::Test {
 protected:
  struct Result {
    int status;
    std::string output;
    std::string errors;
  };
  static Result run(const std::vector<std::string>& arguments) {
    VelorProcess velor(arguments, {});
    const int status = velor.waitForEnd(30);
    return {status, velor.output(), velor.errors()};
  }
  std::string file(const char* name) const { return (mFolder.path() / name).string(); }

  const TemporaryFolder mFolder;
};

TEST_F(EncodeDecode, WhatIsEncodedIsDecodedInEachFormAnalysedAndPlotted) {
  const Result encoded =
      run({"encode", "--format", "29.97df", "--start", "00:59:58;00", "--duration", "10", "--rate",
           "48000", "--level", "-12dB", "--user-bits", "12345678", file("out.wav")});
  EXPECT_EQ(encoded.status, 0);
  EXPECT_EQ(encoded.output + encoded.errors, "");
  EXPECT_EQ(fs::file_size(file("out.wav")), 44U + 2 * 480000);
  struct Case {
    std::vector<std::string> arguments;
    std::vector<std::string> parts;  // of what is written
  };
  // The third frame begins 2 * 48000 / 29.97 = 3203.2 samples behind the first.
  const Case cases[] = {
      {{"decode", "--plain", "--csv"},
       {"direction\n3203,0.066729,00:59:58;02,1,12345678,29.963,29.97df,F\n", ",00:59:59;29,1,",
        ",01:00:00;00,1,", "frames  297\nbegins  at 0.066729 s: 00:59:58;02; no frame"}},
      {{"decode", "--plain", "--json", "--channel", "1"},
       {"{\"sample\":3203,\"seconds\":0.066729,\"time\":\"00:59:58;02\",\"drop\":true,"
        "\"userBits\":\"12345678\",\"rate\":29.963,\"format\":\"29.97df\",\"direction\":\"F\"}\n"}},
      {{"decode"}, {"0.066729  00:59:58;02  drop  12345678  29.9", "frames  299\n", "gaps    0\n"}},
      {{"analyse", "--plot", file("out.svg")},
       {"format     29.97df, not 30: 20 sigma\n", "299, 0 of them in reverse; from 00:59:58;00",
        "level      -12.", "drop-outs  0\n", "12345678 throughout", "verdict    good; "}},
      {{"analyse", "--json"}, {"{\"verdict\":\"good; ", "\"otherFormat\":\"30\""}},
  };
  for (const Case& each : cases) {
    auto arguments = each.arguments;
    arguments.push_back(file("out.wav"));
    const Result result = run(arguments);
    EXPECT_EQ(result.status, 0);
    for (const std::string& part : each.parts) {
      EXPECT_THAT(result.output + result.errors, HasSubstr(part));
    }
  }
  const std::string svg = fileContents(file("out.svg"));
  EXPECT_THAT(svg, testing::StartsWith("<svg"));
  EXPECT_THAT(svg, HasSubstr("prefers-color-scheme:dark"));
  EXPECT_THAT(svg, testing::Not(testing::AnyOf(HasSubstr("nan"), HasSubstr("inf"))));
}

TEST_F(EncodeDecode, AFileThatFailsGivesItsFramesOneClearLineAndTheStatus1) {
  EXPECT_THAT(run({"encode", "--duration", "1", file("no/out.wav")}).errors,
              HasSubstr("No such file"));
  std::ofstream(file("text.wav")) << "no sound";
  std::ofstream(file("empty.wav")) << "";
  ASSERT_EQ(run({"encode", "--duration", "9", file("cut.wav")}).status, 0);
  fs::resize_file(file("cut.wav"), 44 + 2 * 96000);
  EXPECT_EQ(run({"analyse", file("text.wav")}).status, 1);
  for (const char* name : {"none.wav", "text.wav", "empty.wav", "cut.wav"}) {
    const Result result = run({"decode", "--csv", file(name)});
    const bool isCut = fs::path(name) == "cut.wav";
    EXPECT_EQ(result.status, 1) << name;
    // The head, and the frames of two seconds.
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), isCut ? 51 : 0);
    EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), isCut ? 6 : 1);
    EXPECT_THAT(result.errors, HasSubstr(file(name)));
  }
  const Result channel = run({"decode", "--channel", "2", file("cut.wav")});
  EXPECT_EQ(channel.status, 2);
  EXPECT_THAT(channel.errors, HasSubstr("(1 to 1)"));
  EXPECT_THAT(run({"decode", file("cut.wav")}).errors,
              HasSubstr("cut off at sample 96000, 672000 bytes before its end\n"));

  const Result again = run({"encode", "--duration", "1", file("cut.wav")});
  EXPECT_EQ(again.status, 1);
  EXPECT_EQ(again.errors, "velor: encode: " + file("cut.wav") + " exists; --force replaces it\n");
  EXPECT_EQ(fs::file_size(file("cut.wav")), 44 + 2 * 96000U);
  EXPECT_EQ(run({"encode", "--duration", "1", "--force", file("cut.wav")}).status, 0);
  EXPECT_EQ(fs::file_size(file("cut.wav")), 44 + 2 * 48000U);

  // The disk behind standard output is full.
  ASSERT_EQ(run({"encode", "--duration", "9", file("whole.wav")}).status, 0);
  Process full({VELOR_PROGRAM, "decode", file("whole.wav")}, {}, "/dev/full", file("errors"));
  EXPECT_EQ(full.waitForEnd(30), 1);
  EXPECT_THAT(fileContents(file("errors")),
              testing::StartsWith("velor: decode: cannot write to standard output"));
}

TEST_F(EncodeDecode, ALongOneShowsItsProgressOnATerminalAndASignalLeavesTheOldFileAndNoOther) {
  std::ofstream(file("a.flac")) << "old";
  VelorOnTerminal velor(
      80, {"encode", "--force", "--duration", "20000", "--rate", "192000", file("a.flac")}, {});
  EXPECT_TRUE(velor.readUntil("]   1 %", 60)) << velor.text();
  EXPECT_THAT(velor.text(), HasSubstr("\rencode ["));
  EXPECT_EQ(velor.end(SIGTERM), 1);
  EXPECT_THAT(velor.text(), HasSubstr("\033[Kvelor: encode: stopped; "));
  EXPECT_EQ(fileContents(file("a.flac")), "old");
  EXPECT_EQ(mFolder.size(), 1U);
}

}  // namespace
}  // namespace velor::test
