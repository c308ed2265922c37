// SPDX-License-Identifier: MIT
#include "Velor/mtc/VLMTCAnalysis.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "kvtimecode/ltc_utils.h"

namespace velor {
namespace {

constexpr double kStop = 0.25;  // s without a quarter frame
constexpr double kWindow = 1;   // s
constexpr double kPerMillion = 1e6;
constexpr double kPiecesPerFrame = 4;
constexpr double kSlowSpacing = 1 / (24.0 * kPiecesPerFrame);  // s
constexpr double kNewSpacing = 0.1;
// At twice the speed. Quarter frames that come closer were late, and come in a bunch.
constexpr double kLeastSpacing = 1 / (60.0 * kPiecesPerFrame);
constexpr double kGoodJitter = 0.001;  // s, peak
constexpr double kFairJitter = 0.004;
constexpr double kFast = 200;  // ppm

constexpr int kPieceCount = kMTCPieces;

int modulo(int piece) {
  return (piece % kPieceCount + kPieceCount) % kPieceCount;
}

}  // namespace

void VLMTCAnalysis::add(const std::uint8_t* bytes, std::size_t count, std::uint64_t hostTime) {
  if (count == kMTCQuarterFrameBytes && bytes[0] == kMTCQuarterFrameStatus && bytes[1] < 0x80) {
    if (!mFirst) {
      mFirst = hostTime;
    }
    const double seconds = hostTime > *mFirst ? static_cast<double>(hostTime - *mFirst) * 1e-9 : 0;
    addQuarterFrame(bytes[1], std::max(seconds, mLastSeconds));
  } else if (count == kMTCFullFrameBytes &&
             std::equal(kMTCFullFrameHead.begin(), kMTCFullFrameHead.end(), bytes)) {
    ++mReport.fullFrames;
  }
}

void VLMTCAnalysis::addQuarterFrame(std::uint8_t data, double seconds) {
  const int piece = data >> 4U;
  const auto nibble = static_cast<std::uint8_t>(data & 0xFU);
  const double passed = seconds - mLastSeconds;
  ++mReport.quarterFrames;
  mReport.duration = seconds;
  if (mLastPiece < 0 || passed > kStop) {
    if (mLastPiece >= 0) {
      ++mReport.stops;
      addEvent({VLMTCReport::Kind::stop, mLastSeconds, 0, passed, {}, {}});
    }
    startRow(piece, nibble, seconds);
    return;
  }
  const int step = stepTo(piece, passed);
  mLastSeconds = seconds;
  if (step == 0) {
    ++mReport.outOfOrder;
    mGathered = 0;
    addEvent({VLMTCReport::Kind::outOfOrder, seconds, 0, 0, {}, {}});
    return;
  }
  if (step > 1) {
    mReport.missing += static_cast<std::uint64_t>(step - 1);
    mGathered = 0;
    addEvent(
        {VLMTCReport::Kind::missing, seconds, static_cast<std::uint64_t>(step - 1), 0, {}, {}});
  }
  mReport.reverse += mDirection < 0 ? 1 : 0;
  takeSpacing(seconds, passed, step);
  takePiece(piece, nibble, seconds);
  mLastPiece = piece;
}

void VLMTCAnalysis::startRow(int piece, std::uint8_t nibble, double seconds) {
  closeWindow();
  mPlaces.startRow();
  mNumber = 0;
  mPlaces.add(0, seconds);
  mWindow.push_back({0, seconds});
  mGathered = 0;
  mBehind = 0;
  mBlock.reset();
  mLastSeconds = seconds;
  mLastPiece = piece;
  takePiece(piece, nibble, seconds);
}

// Two steps back in a row are a sender that runs backwards.
int VLMTCAnalysis::stepTo(int piece, double passed) {
  const int step = modulo(mDirection * (piece - mLastPiece));
  const bool isBack = step == kPieceCount - 1;
  const double spacing = mSpacing > 0 ? mSpacing : kSlowSpacing;
  if (isBack && passed < 3 * spacing) {
    if (mMayTurn || mReport.quarterFrames == 2) {
      mDirection = -mDirection;
      mMayTurn = false;
      mGathered = 0;
      mBlock.reset();
      mLastPiece = piece;
      return 1;
    }
    mMayTurn = true;
    mLastPiece = piece;
    return 0;
  }
  mMayTurn = false;
  if (step == 0 && passed < spacing * kPieceCount / 2) {
    return 0;
  }
  // Whole rounds of eight are missing too when time passed for them, unless they were only late
  // and now come in a bunch. So the first one after the bunch counts them.
  const bool isBunch = passed < kLeastSpacing;
  const auto rounds =
      isBunch ? 0 : std::max(0, static_cast<int>(std::lround(mBehind / kPieceCount)));
  const int some = step == 0 ? kPieceCount : step;
  mBehind = (isBunch ? mBehind : 0) + passed / spacing - some;
  return some + kPieceCount * rounds;
}

void VLMTCAnalysis::takeSpacing(double seconds, double passed, int step) {
  const double each = passed / static_cast<double>(step);
  if (each > kLeastSpacing) {
    mSpacing = mSpacing > 0 ? mSpacing + kNewSpacing * (each - mSpacing) : each;
  }
  if (step == 1) {
    mReport.shortest = mReport.shortest > 0 ? std::min(mReport.shortest, passed) : passed;
    mReport.longest = std::max(mReport.longest, passed);
  }
  mNumber += static_cast<double>(step);
  if (mBehind < kPieceCount / 2.0) {  // otherwise its number is not known yet
    mPlaces.add(mNumber, seconds);
    mWindow.push_back({mNumber, seconds});
  }
  if (!mWindow.empty() && seconds - mWindow.front().seconds >= kWindow) {
    closeWindow();
  }
}

void VLMTCAnalysis::closeWindow() {
  KVLineFit line;
  for (const Arrival& each : mWindow) {
    line.add(each.number, each.seconds);
  }
  if (mWindow.size() > 3 && line.hasLength()) {
    VLMTCReport::Window window;
    window.begin = mWindow.front().seconds;
    window.end = mWindow.back().seconds;
    window.spacing = line.length();
    double squares = 0;
    for (const Arrival& each : mWindow) {
      const double away = each.seconds - line.at(each.number);
      squares += away * away;
      window.jitterPeak = std::max(window.jitterPeak, std::fabs(away));
    }
    const auto count = static_cast<double>(mWindow.size());
    window.jitter = std::sqrt(squares / (count - 2));
    mSquares += squares * count / (count - 2);
    mJitters += count;
    mReport.jitterPeak = std::max(mReport.jitterPeak, window.jitterPeak);
    mReport.windows.push_back(window);
  }
  mWindow.clear();
}

void VLMTCAnalysis::takePiece(int piece, std::uint8_t nibble, double seconds) {
  const int wanted = mDirection > 0 ? mGathered : kPieceCount - 1 - mGathered;
  mGathered = piece == wanted ? mGathered + 1 : piece == (mDirection > 0 ? 0 : kPieceCount - 1);
  if (mGathered == 0) {
    return;
  }
  mNibbles[static_cast<std::size_t>(piece)] = nibble;
  if (mGathered < kPieceCount) {
    return;
  }
  mGathered = 0;
  SMPTETime time;
  time.mFlags = kSMPTETimeValid;
  const std::uint8_t last = mNibbles[kMTCRatePiece];
  time.mType = kMTCTypeOfRateCode[last >> kMTCRatePieceRateShift & (kMTCRateCodes - 1)];
  mNibbles[kMTCRatePiece] = static_cast<std::uint8_t>(last & kMTCRatePieceHoursMask);
  for (std::size_t i = 0; i < kMTCPieces; ++i) {
    auto& field = time.*kMTCPieceLayout[i].field;
    field = static_cast<std::int16_t>(field | mNibbles[i] << kMTCPieceLayout[i].shift);
  }
  ++mReport.blocks;
  if (mBlock) {
    SMPTETime next = mDirection > 0 ? *mBlock : time;
    ltc_add_frames(next, kMTCFramesPerBlock);
    if (!ltc_same_time(next, mDirection > 0 ? time : *mBlock)) {
      ++mReport.blocksOutOfOrder;
      addEvent({VLMTCReport::Kind::jump, seconds, 0, 0, *mBlock, time});
    }
  } else if (!mReport.format) {
    mReport.first = time;
  }
  mReport.format = time.mType;
  mReport.last = time;
  mBlock = time;
}

void VLMTCAnalysis::addEvent(const VLMTCReport::Event& event) {
  if (mReport.events.size() < VLMTCReport::kListed) {
    mReport.events.push_back(event);
  }
}

VLMTCReport VLMTCAnalysis::report() const {
  VLMTCAnalysis all = *this;
  all.closeWindow();
  VLMTCReport report = all.mReport;
  report.jitter = all.mJitters > 0 ? std::sqrt(all.mSquares / all.mJitters) : 0;
  if (!mPlaces.hasLength()) {
    return report;
  }
  report.spacing = mPlaces.length();
  report.rate = 1 / (kPiecesPerFrame * report.spacing);
  report.uncertainty = mPlaces.uncertainty() / report.spacing * kPerMillion;
  if (report.format) {
    // Codes stand for the rates of film and video too.
    double best = -1;
    for (const std::uint32_t type :
         {kSMPTETimeType2398, kSMPTETimeType24, kSMPTETimeType25, kSMPTETimeType2997Drop,
          kSMPTETimeType2997, kSMPTETimeType30, kSMPTETimeType30Drop}) {
      const double deviation = (report.rate * ltc_seconds_per_frame(type) - 1) * kPerMillion;
      if (mtc_rate_code(type) == mtc_rate_code(*all.mReport.format) &&
          (best < 0 || std::fabs(deviation) < best)) {
        best = std::fabs(deviation);
        report.format = type;
        report.deviation = deviation;
      }
    }
  }
  return report;
}

std::string VLMTCReport::verdict() const {
  if (quarterFrames == 0) {
    return fullFrames > 0 ? "no quarter frames; only full-frame messages" : "no MTC";
  }
  const std::uint64_t faults = missing + outOfOrder + blocksOutOfOrder;
  std::array<char, 96> text{};
  std::snprintf(text.data(), text.size(), "%s; quarter frames come up to %.2f ms off their place",
                faults == 0 && jitterPeak < kGoodJitter   ? "good"
                : faults == 0 && jitterPeak < kFairJitter ? "fair"
                                                          : "bad",
                1000 * jitterPeak);
  std::string result = text.data();
  const auto count = [&result](std::uint64_t number, const char* what) {
    result += number > 0 ? "; " + std::to_string(number) + " " + what : "";
  };
  count(missing, "missing");
  count(outOfOrder, "out of order");
  count(blocksOutOfOrder, "blocks out of order");
  if (format && std::fabs(deviation) > kFast) {
    std::snprintf(text.data(), text.size(), "; runs %.0f ppm %s", std::fabs(deviation),
                  deviation > 0 ? "fast" : "slow");
    result += text.data();
  }
  return result;
}

}  // namespace velor
