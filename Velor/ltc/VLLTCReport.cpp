// SPDX-License-Identifier: MIT
#include "Velor/ltc/VLLTCReport.h"

#include <cmath>
#include <cstdio>

namespace velor {
namespace {

constexpr double kGoodMargin = 10;   // dB
constexpr double kFairMargin = 4;    // dB
constexpr double kGoodJitter = 0.1;  // peak, of a bit
constexpr double kFairJitter = 0.2;
constexpr double kFast = 200;  // ppm, more than clocks of audio devices are apart
constexpr double kClipped = 0.999;

std::string counted(std::uint64_t count, const char* one, const char* many) {
  return count == 0 ? "" : "; " + std::to_string(count) + " " + (count == 1 ? one : many);
}

}  // namespace

std::string VLLTCReport::verdict() const {
  if (frames == 0) {
    return peak > 0 ? "no LTC" : "silence";
  }
  const double share = bit > 0 ? jitterPeak / bit : 0;
  const std::uint64_t faults =
      count(Kind::dropOut) + count(Kind::splice) + count(Kind::repeat) + count(Kind::turn);
  const bool isGood = margin >= kGoodMargin && share < kGoodJitter && faults == 0;
  const bool isFair = margin >= kFairMargin && share < kFairJitter;
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%s; %.0f dB %s the limit",
                isGood   ? "good"
                : isFair ? "fair"
                         : "bad",
                std::fabs(margin), margin < 0 ? "below" : "above");
  std::string result = text.data();
  if (share >= kGoodJitter) {
    std::snprintf(text.data(), text.size(), "; edges jitter by up to %.0f %% of a bit",
                  100 * share);
    result += text.data();
  }
  result += counted(count(Kind::dropOut), "drop-out", "drop-outs");
  result += counted(count(Kind::splice), "splice", "splices");
  result += counted(count(Kind::repeat), "repeated frame", "repeated frames");
  result += counted(count(Kind::turn), "change of direction", "changes of direction");
  if (peak >= kClipped) {
    result += "; reaches full scale";
  }
  if (!sigmas) {
    result += "; not at the speed of any format";
  } else if (std::fabs(deviation) > kFast) {
    std::snprintf(text.data(), text.size(), "; runs %.0f ppm %s", std::fabs(deviation),
                  deviation > 0 ? "fast" : "slow");
    result += text.data();
  }
  return result;
}

}  // namespace velor
