// SPDX-License-Identifier: MIT
#include "Velor/program/VLSession.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace velor {
namespace {

TEST(VLSession, TheStepsOfARunComeInAnOrderThatKeepsItsPromises) {
  struct Order {
    const char* earlier;
    const char* later;
    const char* why;
  };
  const Order orders[] = {
      {"list", "launch", "a list neither loads nor saves a state"},
      {"catch signals", "report last run", "a reader of stderr that has gone ends nothing"},
      {"find devices", "launch", "nothing starts when a named port is missing"},
      {"launch", "report last run", "the launch finds what the last run left"},
      {"report last run", "check document", "no later start reports it"},
      {"check document", "recover", "what is recovered replaces the document"},
      {"recover", "apply clock options", "options change what was restored"},
      {"recover", "apply devices", "options add to the devices that were restored"},
      {"apply OSC options", "run", "a command that is due finds its host allowed"},
      {"apply clock options", "apply devices", "a wrong time ends the start before LTC plays"},
      {"apply clock options", "open clips", "their start is of the clock's format"},
      {"open clips", "wait for ports", "the first block finds their input"},
      {"apply devices", "wait for ports", "their ports are those that must be open"},
      {"show status", "run", "the first frame is shown"},
      {"wait for ports", "run", "the first block finds its port open"},
      {"run", "end", "the state is saved at the end"},
  };
  const std::vector<std::string> steps = VLSessionSteps();
  for (const Order& order : orders) {
    const auto earlier = std::find(steps.begin(), steps.end(), order.earlier);
    const auto later = std::find(steps.begin(), steps.end(), order.later);
    ASSERT_TRUE(earlier != steps.end() && later != steps.end()) << order.earlier << order.later;
    EXPECT_LT(earlier, later) << order.why;
  }
}

}  // namespace
}  // namespace velor
