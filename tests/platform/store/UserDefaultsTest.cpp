// SPDX-License-Identifier: MIT
#include "platform/store/UserDefaults.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "platform/host/Log.h"
#include "platform/store/KeyedArchiver.h"
#include "platform/store/KeyedUnarchiver.h"
#include "tests/support/TemporaryFolder.h"

namespace velor::store {
namespace {

TEST(UserDefaults, DamagedSettingsAreToldWithTheirPlaceAndKeptAsideOverTheNextWriting) {
  const test::TemporaryFolder folder;
  const auto file = folder.path() / "settings.json";
  const auto aside = folder.path() / "settings.json.damaged";
  std::string log;
  host::setLogSink([&log](host::LogLevel level, std::string_view line) {
    log += level == host::kLogWarning ? std::string(line) + "\n" : "";
  });
  const UserDefaults defaults(file, {});
  const auto read = [&] {
    bool value = false;
    return defaults.read([&](KeyedUnarchiver& coder) { value = *coder.decodeBool("on"); }) && value;
  };
  const auto write = [&] {
    return defaults.write([](KeyedArchiver& coder) { coder.encodeBool(true, "on"); });
  };
  EXPECT_FALSE(read());  // a first run
  EXPECT_TRUE(write());
  EXPECT_TRUE(read());
  EXPECT_EQ(log, "");

  struct Case {
    const char* contents;
    const char* place;
  };
  for (const Case& each : {Case{"{\n  \"on\": tru\n}", "line 2"}, Case{R"({"on": 3})", "on:"}}) {
    log.clear();
    std::ofstream(file) << each.contents;
    EXPECT_FALSE(read());
    EXPECT_NE(log.find(each.place), std::string::npos) << log;
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_TRUE(write());
    EXPECT_EQ(test::fileContents(aside), each.contents);
    EXPECT_TRUE(read());
  }
  host::setLogSink({});
}

}  // namespace
}  // namespace velor::store
