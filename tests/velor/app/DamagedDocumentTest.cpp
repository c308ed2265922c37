// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/velor/app/FullDocument.h"

namespace velor {
namespace {

using Json = nlohmann::ordered_json;
using Pointer = Json::json_pointer;

constexpr int kParts = 4;  // that run beside each other
// Stands in for a number that the writer of JSON would not write.
constexpr const char* kMark = "@@mark@@";

// Values beside the sync source are not taken over; a source of a reader is of its run.
bool isRead(const std::string& at) {
  return at != "/appVersion" && at != "/playbackRate" &&
         !at.starts_with("/devices.manager/1/endpoint");
}

void collect(const Json& value, const Pointer& at, std::vector<Pointer>& found) {
  if (!at.empty() && isRead(at.to_string())) {
    found.push_back(at);
  }
  if (value.is_structured()) {
    for (const auto& [key, inner] : value.items()) {
      collect(inner, value.is_array() ? at / std::stoul(key) : at / key, found);
    }
  }
}

struct Damage {
  std::string told;
  std::string text;
  bool isFatal;  // else what is there now can be a value as good as before
};

// Every value replaced by some others, and the file cut everywhere.
std::vector<Damage> damagesOf(const std::string& document) {
  std::vector<Damage> damages;
  const Json whole = Json::parse(document);
  std::vector<Pointer> places;
  collect(whole, Pointer(), places);
  const auto put = [&](const Pointer& at, const Json& value, bool isFatal) {
    Json damaged = whole;
    damaged[at] = value;
    damages.push_back({at.to_string() + " is " + value.dump(), damaged.dump(), isFatal});
  };
  std::size_t turn = 0;
  for (const Pointer& at : places) {
    const Json& old = whole[at];
    // Two of the other types, in turn.
    const Json others[] = {Json(5), Json(true), Json("text"), Json::array({1}), Json{{"a", 1}}};
    for (std::size_t i = 0, found = 0; found < 2; ++i) {
      const Json& other = others[(turn + i) % std::size(others)];
      if (other.type() != old.type() && !(other.is_number() && old.is_number())) {
        put(at, other, true);
        ++found;
      }
    }
    ++turn;
    if (at.back() != "deviceUID") {  // a reader without one is refused without its place
      put(at, nullptr, false);
    }
    if (at.back() == "$class") {
      put(at, "Nothing", true);
      put(at, old == "KVSMPTETime" ? "VLMarker" : "KVSMPTETime", true);
    } else if (at.back() == "$base64") {
      const auto& text = old.get_ref<const std::string&>();
      put(at, text.substr(0, text.size() - 1), true);  // a length that no base64 has
      put(at, std::string(text.size(), '/'), false);
      put(at, text.substr(0, text.size() / 2) + std::string(text.size() - text.size() / 2, 'z'),
          false);
    } else if (old.is_number()) {
      for (const char* number : {"1e400", "-1", "9223372036854775808", "1e-310", "1e300",
                                 "-2147483648", "4294967295", "0.5", "6"}) {
        put(at, kMark, number == std::string("1e400"));
        std::string& text = damages.back().text;
        text.replace(text.find(kMark) - 1, std::string(kMark).size() + 2, number);
        damages.back().told += number;
      }
    }
  }
  // Which is taken over where there is no sync source.
  for (const double rate : {1e-310, 1e300, -1.0, 1e-9, 1e9}) {
    Json damaged = whole;
    damaged.erase("syncSource");
    damaged["playbackRate"] = rate;
    damages.push_back({"a rate of " + std::to_string(rate), damaged.dump(), true});
  }
  for (std::size_t size = 0; size < document.rfind('}'); size += 307) {
    damages.push_back({"cut to " + std::to_string(size), document.substr(0, size), true});
  }
  return damages;
}

class DamagedDocumentTest : public FullDocument, public testing::WithParamInterface<int> {
 protected:
  Expected<VLApplicationState::Unrestored> load(const std::string& document) {
    mFailures = logged().size();
    closeMediaWindows();
    return app().loadApplicationStateFromURL(write("damaged.velor", document));
  }
  std::vector<std::string> logged() const {
    return mLog.matching("exception decoding state of device manager: ");
  }
  // What the device manager said of the last one.
  std::string deviceError() const {
    const auto all = logged();
    return all.size() > mFailures ? all.back() : "";
  }
  std::string saved() {
    const auto path = mFolder.path() / "saved.velor";
    EXPECT_TRUE(app().saveApplicationStateToURL(path));
    return contents(path);
  }

  // A line and a column, or a path that begins with a key of the document.
  bool namesAPlace(std::string error) const {
    const std::string file = (mFolder.path() / "damaged.velor").string() + ": ";
    if (error.starts_with(file)) {
      error.erase(0, file.size());
    }
    if (error.find("line ") != std::string::npos && error.find(", column ") != std::string::npos) {
      return true;
    }
    const Json document = Json::parse(mDocument);
    return std::any_of(
        document.items().begin(), document.items().end(), [&error](const auto& each) {
          const std::size_t at = error.find(each.key());
          return at != std::string::npos && error.find(": ", at) != std::string::npos;
        });
  }

  void expectALegalClock() {
    const std::uint32_t format = clock().smpteFormat();
    EXPECT_TRUE(ltc_is_valid_type(format));
    for (const SMPTETime& time :
         {clock().time(), clock().smpteOffset(), clock().loopStartTime(), clock().loopEndTime()}) {
      EXPECT_TRUE(ltc_is_valid(time));
      EXPECT_EQ(time.mType, format);
      SMPTETime normal = time;
      ltc_normalize(normal);
      EXPECT_TRUE(ltc_same_time(normal, time)) << stringFromSMPTETime(time);
    }
    EXPECT_EQ(ltc_compare(clock().loopStartTime(), clock().loopEndTime()), -1);
    EXPECT_TRUE(std::isnormal(clock().playRate()));
    clock().start();
    mHost.advance(3 * kFrame25);
    clock().stop();
    mHost.settle();
    EXPECT_GE(clock().prerollTime(), 0);
    EXPECT_LE(clock().prerollTime(), 60);
  }

 private:
  std::size_t mFailures = 0;
};

TEST_P(DamagedDocumentTest, IsReportedByItsPlaceAndTheNextWholeOneOpensAsBefore) {
  ASSERT_TRUE(load(mDocument));
  mHost.settle();
  ASSERT_EQ(saved(), mDocument);
  std::size_t number = 0;
  for (const Damage& damage : damagesOf(mDocument)) {
    if (number++ % kParts != static_cast<std::size_t>(GetParam())) {
      continue;
    }
    SCOPED_TRACE(damage.told);
    if (const auto loaded = load(damage.text); !loaded) {
      EXPECT_TRUE(namesAPlace(loaded.error().text)) << loaded.error().text;
      EXPECT_FALSE(app().undoManager().canUndo());
      EXPECT_EQ(clock().smpteFormat(), Json::accept(damage.text) ? kSMPTETimeType25 : kFormat)
          << "it is as before, or the default";
    } else if (!deviceError().empty()) {
      EXPECT_TRUE(namesAPlace(deviceError())) << deviceError();
    } else {
      EXPECT_FALSE(damage.isFatal);
    }
    mHost.settle();
    expectALegalClock();
    app().setPlayRate(1);  // beside a sync source it stays what it is
    EXPECT_TRUE(load(mDocument));
    EXPECT_EQ(deviceError(), "");
    mHost.settle();
    EXPECT_EQ(saved(), mDocument);
    ASSERT_FALSE(HasFailure());
  }
}

INSTANTIATE_TEST_SUITE_P(Parts, DamagedDocumentTest, testing::Range(0, kParts));

}  // namespace
}  // namespace velor
