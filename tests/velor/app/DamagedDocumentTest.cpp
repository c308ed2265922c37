// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <vector>

#include "tests/velor/app/FullDocument.h"

namespace velor {
namespace {

using Json = nlohmann::ordered_json;
using Pointer = Json::json_pointer;

constexpr int kVariantsOfAPart = 100;

// Stands in for a number that the writer of JSON would not write.
constexpr const char* kMark = "@@mark@@";

// One damage of a document, the same for the same seed.
class Damage {
 public:
  Damage(const std::string& document, unsigned seed) : mRandom(seed), mText(document) {
    mJson = Json::parse(document);
    void (Damage::*const kinds[])() = {&Damage::wrongType, &Damage::cutBlock,  &Damage::cutFile,
                                       &Damage::badClass,  &Damage::badNumber, &Damage::badTime,
                                       &Damage::badRate};
    (this->*kinds[seed % std::size(kinds)])();
  }

  const std::string& text() const { return mText; }
  // What was done, for a failure.
  const std::string& told() const { return mTold; }
  // Nothing may be made of it: else, what is there now can be a value as good as before.
  bool isFatal() const { return mIsFatal; }

 private:
  template <class Accept>
  static void collect(const Json& value, const Pointer& at, const Accept& accept,
                      std::vector<Pointer>& found) {
    if (!at.empty() && isRead(at) && accept(value, at)) {
      found.push_back(at);
    }
    if (value.is_structured()) {
      for (const auto& [key, inner] : value.items()) {
        collect(inner, value.is_array() ? at / std::stoul(key) : at / key, accept, found);
      }
    }
  }
  // Beside a sync source the rate is not taken over; a source of a reader is of its run.
  static bool isRead(const Pointer& at) {
    const std::string text = at.to_string();
    return text != "/appVersion" && text != "/playbackRate" &&
           !text.starts_with("/devices.manager/1/endpoint");
  }

  std::size_t below(std::size_t count) {
    return std::uniform_int_distribution<std::size_t>(0, count - 1)(mRandom);
  }
  template <class Accept>
  Json& any(Accept accept) {
    std::vector<Pointer> found;
    collect(mJson, Pointer(), accept, found);
    const Pointer& at = found[below(found.size())];
    mTold += at.to_string();
    return mJson[at];
  }
  void write(bool isFatal) {
    mText = mJson.dump();
    mIsFatal = isFatal;
  }

  void wrongType() {
    mTold = "a value of another type at ";
    Json& value = any([](const Json&, const Pointer&) { return true; });
    std::vector<Json> others = {5, true, "text", Json::array({1}), {{"a", 1}}};
    std::erase_if(others, [&value](const Json& other) {
      return other.type() == value.type() || (other.is_number() && value.is_number());
    });
    value = others[below(others.size())];
    write(true);
  }
  void cutBlock() {
    mTold = "a cut block at ";
    Json& value = any([](const Json&, const Pointer& at) { return at.back() == "$base64"; });
    auto& text = value.get_ref<std::string&>();
    // A length that no base64 has; a channel map may have any other.
    text.resize(text.size() - 1 - below(3));
    write(true);
  }
  void cutFile() {
    mText.resize(below(mText.rfind('}')));
    mTold = "cut to " + std::to_string(mText.size());
    mIsFatal = true;
  }
  void badClass() {
    mTold = "another class at ";
    Json& value = any([](const Json&, const Pointer& at) { return at.back() == "$class"; });
    std::vector<Json> names = {"Nothing", "", "VLMarker", "KVSMPTETime", "VLClock"};
    std::erase(names, value);
    value = names[below(names.size())];
    write(true);
  }
  void badNumber() {
    mTold = "another number at ";
    any([](const Json& each, const Pointer&) { return each.is_number(); }) = kMark;
    const char* const numbers[] = {"1e400",      "-1",   "2147483648", "9223372036854775808",
                                   "1e-310",     "-0.0", "1e300",      "-2147483648",
                                   "4294967295", "0.5",  "6",          "99999999999999999999999"};
    put(numbers[below(std::size(numbers))]);
  }
  // Which is taken over where there is no sync source.
  void badRate() {
    mTold = "another rate";
    mJson.erase("syncSource");
    mJson["playbackRate"] = kMark;
    const char* const rates[] = {"1e400", "1e-310", "1e300", "1e-300", "-1", "-0.0", "1e-9", "1e9"};
    put(rates[below(std::size(rates))]);
  }
  void put(const std::string& number) {
    mTold += " " + number;
    write(number == "1e400");
    const std::string mark = "\"" + std::string(kMark) + "\"";
    mText.replace(mText.find(mark), mark.size(), number);
  }
  // Of the right length, with bytes that no time has.
  void badTime() {
    mTold = "any bytes for a time at ";
    Json& value = any([](const Json& each, const Pointer& at) {
      return at.back() == "$base64" && each.get_ref<const std::string&>().size() == 32;
    });
    constexpr std::string_view kLetters =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    auto& text = value.get_ref<std::string&>();
    // Its format stays in half of them, so that the digits are looked at.
    for (std::size_t i = below(2) * 22; i < text.size(); ++i) {
      text[i] = kLetters[below(kLetters.size())];
    }
    write(false);
  }

  std::mt19937 mRandom;
  std::string mText;
  Json mJson;
  std::string mTold;
  bool mIsFatal = false;
};

class DamagedDocumentTest : public FullDocument, public testing::WithParamInterface<int> {
 protected:
  bool load(const std::string& document) {
    mFailures = logged().size();
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

TEST_P(DamagedDocumentTest, IsToldByItsPlaceAndTheNextWholeOneOpensAsEver) {
  ASSERT_TRUE(load(mDocument));
  mHost.settle();
  ASSERT_EQ(saved(), mDocument);
  int refused = 0;
  for (int i = 0; i < kVariantsOfAPart; ++i) {
    const auto seed = static_cast<unsigned>(GetParam() * kVariantsOfAPart + i);
    const Damage damage(mDocument, seed);
    SCOPED_TRACE("seed " + std::to_string(seed) + ": " + damage.told());
    const bool isLoaded = load(damage.text());
    if (!isLoaded) {
      ++refused;
      EXPECT_TRUE(namesAPlace(app().documents().state().error()))
          << app().documents().state().error();
    } else if (!deviceError().empty()) {
      ++refused;
      EXPECT_TRUE(namesAPlace(deviceError())) << deviceError();
    } else {
      EXPECT_FALSE(damage.isFatal());
    }
    mHost.settle();
    expectALegalClock();
    app().setPlayRate(1);  // beside a sync source it stays what it is
    EXPECT_TRUE(load(mDocument)) << app().documents().state().error();
    EXPECT_EQ(deviceError(), "");
    mHost.settle();
    EXPECT_EQ(saved(), mDocument);
    ASSERT_FALSE(HasFailure());
  }
  EXPECT_GT(refused, kVariantsOfAPart / 2);
}

INSTANTIATE_TEST_SUITE_P(Parts, DamagedDocumentTest, testing::Range(0, 10));

}  // namespace
}  // namespace velor
