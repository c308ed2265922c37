// SPDX-License-Identifier: MIT
// Whole days of the clock. An hour over midnight unless VELOR_DAY_HOURS says more.
#include <cstdlib>

#include "tests/velor/clock/ClockFixture.h"

namespace velor {
namespace {

struct DayFormat {
  std::uint32_t type;
  std::uint64_t tick;       // ns
  std::uint64_t ticksADay;  // by SMPTE ST 12-1: drop formats leave 108 labels an hour out
};
constexpr DayFormat kFormats[] = {
    {0, 41666666, 2073600}, {1, 40000000, 2160000}, {2, 33333333, 2589408}, {3, 33333333, 2592000},
    {4, 33366700, 2592000}, {5, 33366700, 2589408}, {11, 41708333, 2073600}};

std::uint64_t hoursToRun() {
  const char* hours = std::getenv("VELOR_DAY_HOURS");
  return hours != nullptr ? std::strtoull(hours, nullptr, 10) : 1;
}

class VLClockDay : public ClockFixture, public testing::WithParamInterface<DayFormat> {};

TEST_P(VLClockDay, EveryTickComesInOrderAndTheDigitsComeRound) {
  const DayFormat& format = GetParam();
  const std::uint64_t hours = hoursToRun();
  ASSERT_GT(hours, 0U);
  clock().setSmpteFormat(format.type);
  clock().setTime(at(23, 30, 0, 0, format.type));
  mHost.settle();

  SMPTETime expected = at(23, 30, 0, 0, format.type);
  std::uint64_t ticks = 0;
  std::uint64_t wrong = 0;
  std::string firstWrong;
  clock().setProceedBlock([&](const SMPTETime* time) {
    ltc_add_frames(expected, 1);
    ++ticks;
    if ((!ltc_same_time(expected, *time) || time->mCounter != static_cast<std::uint32_t>(ticks)) &&
        wrong++ == 0) {
      firstWrong = digits(*time) + " at tick " + std::to_string(ticks);
    }
  });
  const std::uint64_t due = format.ticksADay * hours / 24;
  clock().start();
  mHost.advance(due * format.tick);

  EXPECT_EQ(ticks, due);
  EXPECT_EQ(wrong, 0U) << firstWrong;
  const auto endHour = static_cast<std::int32_t>((23 + hours) % 24);
  EXPECT_TRUE(ltc_same_time(clock().time(), at(endHour, 30, 0, 0, format.type))) << now();
  clock().stop();
}

INSTANTIATE_TEST_SUITE_P(Formats, VLClockDay, testing::ValuesIn(kFormats),
                         [](const auto& param) { return std::to_string(param.param.type); });

}  // namespace
}  // namespace velor
