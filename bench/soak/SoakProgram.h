// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <vector>

#include "bench/soak/SoakTable.h"
#include "tests/support/VelorProcess.h"

namespace velor::test {

/// The program in a long run, with what it takes of the system.
class SoakProgram {
 public:
  SoakProgram(std::string name, std::vector<std::string> arguments,
              std::vector<std::string> environment);

  /// Call at the end of each stretch between two restarts of the server.
  void sample();

  struct Sample {
    double megabytes = 0;  ///< resident, of its own, without files and shared memory
    std::size_t descriptors = 0;
    std::size_t threads = 0;
  };
  const std::vector<Sample>& samples() const { return mSamples; }
  VelorProcess& process() { return mProcess; }
  /// Ends it. So many file panels were opened, each of which leaves Qt something to keep.
  void tell(SoakTable& table, int panels);

 private:
  /// Lines of its log and of its messages that no action of the run explains, with the
  /// numbers replaced.
  std::set<std::string> unexplainedLines() const;

  const std::string mName;
  VelorProcess mProcess;
  std::vector<Sample> mSamples;
};

}  // namespace velor::test
