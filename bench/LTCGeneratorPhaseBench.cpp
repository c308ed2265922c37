// SPDX-License-Identifier: MIT
// Where the frames of LTC are that leave a simulated device, as a table in Markdown.
// Its argument is the length of the long runs in hours, 24 unless told.
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/support/LTCRun.h"

namespace velor {
namespace {

constexpr std::uint64_t kMs = 1'000'000;
constexpr double kSettling = 10;  // s

void report(const std::string& what, const LTCScenario& scenario, double seconds) {
  LTCRun run(scenario);
  run.start();
  // The first two frames may be cut by a call that comes late.
  run.run(kSettling);
  const int torn = run.torn();
  const double worstAtFirst = run.worst;
  run.forgetErrors();
  run.run(seconds - kSettling);
  std::printf("| %s | %+.0f | %.0f | %" PRId64 " | %" PRId64
              " | %d | %.2f | %.2f | %.2f | %+.4f |\n",
              what.c_str(), scenario.ppm, seconds, run.frames, run.wrong, run.torn() - torn,
              worstAtFirst, run.worst, run.worstAtConnector, run.generator->deviation());
  std::fflush(stdout);
}

void reportStarts() {
  std::mt19937_64 random(3);
  LTCScenario scenario;
  LTCRun run(scenario);
  constexpr int kStarts = 200;
  for (int i = 0; i < kStarts; ++i) {
    run.host.advance(random() % (40 * kMs));
    run.start();
    run.run(0.6);
    run.stop();
    run.run(1);
  }
  std::printf("\n%d starts at random times: wrong frames %" PRId64
              ", farthest from its target %.2f samples\n",
              kStarts, run.wrong, run.worst);
}

// Jumps of the digits or of the user bits, on devices that read ahead.
void reportJumps() {
  std::mt19937 random(5);
  constexpr int kJumps = 200;
  std::printf("\n| jumps of digits or user bits | period | wrong | torn |\n|---|---|---|---|\n");
  for (const std::uint32_t period : {64U, 128U, 256U, 512U, 1024U, 2048U}) {
    LTCScenario scenario;
    scenario.period = period;
    scenario.latency = 2 * period;
    LTCRun run(scenario);
    run.start();
    run.run(kSettling);
    const int torn = run.torn();
    for (int i = 0; i < kJumps; ++i) {
      run.jump(static_cast<std::int32_t>(random() % 2'000'000),
               i % 2 == 0 ? scenario.userbits : static_cast<std::uint32_t>(random()));
      run.run(0.3 + 1e-3 * static_cast<double>(random() % 100));
    }
    std::printf("| %d | %" PRIu32 " | %" PRId64 " | %d |\n", kJumps, period, run.wrong,
                run.torn() - torn);
  }
}

int runAll(double hours) {
  std::printf(
      "| course | device, ppm | s | frames | wrong | torn | worst in the first 10 s | worst then "
      "| worst then, at the connector | deviation, %% |\n"
      "|---|---|---|---|---|---|---|---|---|---|\n");
  LTCScenario scenario;
  for (const double ppm : {0.0, 20.0, -20.0, 100.0, -100.0, 300.0, -300.0}) {
    scenario.ppm = ppm;
    report("exact", scenario, 600);
  }
  scenario = {};
  for (const std::uint32_t period : {64U, 256U, 1024U}) {
    scenario.period = period;
    for (const std::uint64_t jitter : {kMs / 2, kMs, 2 * kMs}) {
      scenario.jitter = jitter;
      report("jitter " + std::to_string(jitter / 1000) + " us, period " + std::to_string(period),
             scenario, 600);
    }
  }
  scenario = {};
  scenario.ppm = 100;
  for (const std::uint64_t late : {10U, 30U, 60U, 80U}) {
    scenario.lateness = late * kMs;
    report("calls late up to " + std::to_string(late) + " ms", scenario, 600);
  }
  scenario = {};
  scenario.speed = 1000 / 1001.0;
  scenario.type = kSMPTETimeType24;
  report("24 at 23.98", scenario, 600);
  for (const double ppm : {100.0, -100.0}) {
    scenario = {};
    scenario.ppm = ppm;
    report("exact", scenario, hours * 3600);
  }
  reportStarts();
  reportJumps();
  return 0;
}

}  // namespace
}  // namespace velor

int main(int argc, char** argv) {
  return velor::runAll(argc > 1 ? std::atof(argv[1]) : 24);
}
