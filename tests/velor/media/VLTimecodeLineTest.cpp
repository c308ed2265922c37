// SPDX-License-Identifier: MIT
#include "Velor/media/VLTimecodeLine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>

namespace velor {
namespace {

constexpr std::uint64_t kBlock = 80'000'000;
constexpr double kSpeed = 1.001;

double timecodeAt(std::uint64_t block) {
  return 5 + kSpeed * static_cast<double>(block * kBlock) * 1e-9;
}

TEST(VLTimecodeLine, ReportsThatComeLateOrEarlyGiveTheSpeedWithinSecondsAndAStrayOneNothing) {
  std::mt19937 random(1);
  std::normal_distribution<double> late(0, 200e3);  // ns
  VLTimecodeLine line;
  line.begin({5.0005, 1.0, 0});
  double worst = 0;
  for (std::uint64_t block = 1; block < 7500; ++block) {  // ten minutes
    const bool isStray = block % 100 == 0;
    const auto at = static_cast<std::uint64_t>(static_cast<double>(block * kBlock) + late(random));
    line.add(timecodeAt(block) - (isStray ? 0.0333 : 0), at);
    if (block > 60) {
      worst = std::max(worst, std::fabs(line.at(block * kBlock) - timecodeAt(block)));
    }
  }
  EXPECT_LT(worst, 0.3e-3);
  EXPECT_NEAR(line.add(timecodeAt(7500), 7500 * kBlock).rate, kSpeed, 2e-5);
}

TEST(VLTimecodeLine, ReportsThatStayElsewhereTakeTheLineThere) {
  VLTimecodeLine line;
  line.begin({5, kSpeed, 0});
  for (std::uint64_t block = 1; block < 4; ++block) {
    line.add(timecodeAt(block) + 0.04, block * kBlock);
    EXPECT_NEAR(line.at(block * kBlock), timecodeAt(block), 1e-9);
  }
  line.add(timecodeAt(4) + 0.04, 4 * kBlock);
  EXPECT_NEAR(line.at(4 * kBlock), timecodeAt(4) + 0.04, 1e-9);
  EXPECT_NEAR(line.at(14 * kBlock), timecodeAt(14) + 0.04, 1e-9);
}

}  // namespace
}  // namespace velor
