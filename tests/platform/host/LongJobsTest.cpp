// SPDX-License-Identifier: MIT
#include "platform/host/LongJobs.h"

#include <gtest/gtest.h>

#include <memory>

#include "platform/host/SystemHost.h"

namespace velor::host {
namespace {

// The system's host alone: a thread of the simulated one cannot be left behind.
TEST(LongJobsTest, AJobWithoutAnEndHoldsUpNobodysEnd) {
  SystemHost host;
  struct Stuck {
    std::unique_ptr<Semaphore> gate = current().makeSemaphore();
    std::unique_ptr<Semaphore> ended = current().makeSemaphore();
  };
  // Goes with its thread, behind all that is done there for the job.
  struct Ending {
    std::shared_ptr<Stuck> stuck;
    ~Ending() { stuck->ended->signal(); }
  };
  const auto stuck = std::make_shared<Stuck>();
  bool told = false;
  {
    Queue queue("jobs");
    LongJobs jobs(queue);
    queue.sync([&] {
      jobs.add({[stuck] {
                  const thread_local Ending ending{stuck};
                  stuck->gate->wait();
                },
                {},
                [&told] { told = true; }});
    });
  }
  stuck->gate->signal();
  stuck->ended->wait();
  EXPECT_FALSE(told);
}

}  // namespace
}  // namespace velor::host
