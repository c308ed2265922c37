// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "bench/soak/SoakTable.h"
#include "tests/support/JackPeer.h"
#include "tests/support/MTCStream.h"

namespace velor::test {

/// What clients that know nothing of the program heard of it in a long run, judged.
class SoakFigures {
 public:
  /// What was recorded between two restarts of the server.
  struct Heard {
    std::vector<std::string> names;  ///< of the MTC inputs of `recorder`; the clock's first
    std::string follower;            ///< the one of them that relays the clock's
    std::string ltc;                 ///< name of the LTC that `recorder` records
    const JackPeer* recorder = nullptr;
    const JackPeer* ear = nullptr;      ///< records a clip with a click on each second of the time
    std::uint64_t settled = 0;          ///< frame from which all is judged
    std::vector<std::uint64_t> stalls;  ///< frames at which the machine stood still
    int latency = 0;                    ///< samples from the recorded LTC to its connector
  };
  void judge(const Heard& heard);
  struct Piece {  ///< frames
    std::uint64_t begin;
    std::uint64_t end;
  };
  /// Judges what a client received that was there for some seconds. `stalled`: the machine
  /// stood still meanwhile, so that nothing is judged.
  void judgeVisit(const JackPeer& visitor, double seconds, bool stalled);

  /// Of a run of so many seconds at this period.
  void tell(SoakTable& table, double seconds, int period) const;

  /// Frames or blocks that came in order, and those that did not.
  struct Sequence {
    std::size_t count = 0;
    int faults = 0;
    std::string first;
  };
  std::map<std::string, Sequence> sequences;
  double judgedSeconds = 0;
  int gaps = 0;                     ///< times the server left cycles out or the machine stood still
  int visitsLeftOut = 0;            ///< visits at which that happened
  std::vector<double> steps;        ///< us by which a block of the clock is off the one before
  std::vector<double> phase;        ///< samples from LTC to the block that names its frame
  std::vector<double> relayed;      ///< samples from the follower's pieces to the clock's
  std::vector<double> clicks;       ///< samples from the click of a clip to the LTC of its time
  double unexplainedPhase = 0;      ///< samples beyond the steps of the clock
  double unexplainedRelay = 0;      ///< samples beyond those and what the server's time wandered
  std::vector<double> visitDelays;  ///< s from a port's appearance to its first frame of LTC

 private:
  void judgePiece(const Heard& heard, Piece piece);
  void judgeBlocks(const std::string& name, const Stream& stream);
  std::map<std::string, double> judgeLTC(const std::string& name, std::uint64_t first,
                                         const std::vector<float>& samples, int sampleRate,
                                         std::size_t opening = 0);
  void judgePhase(const std::vector<Block>& blocks, const std::map<std::string, double>& places,
                  int latency, double jitter);
  void judgeRelay(const JackPeer& recorder, const std::vector<Block>& sent,
                  const std::vector<Block>& relayedBlocks, double jitter);
  void judgeClicks(const JackPeer& ear, const std::map<std::string, double>& places);
};

}  // namespace velor::test
