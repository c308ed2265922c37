// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "platform/discovery/DiscoveryTypes.h"
#include "platform/host/Host.h"

namespace velor::discovery {

/// The work of a back end for one publication, search or resolution. It begins once and
/// ends once, on the back end's queue.
class DiscoveryTask : public std::enable_shared_from_this<DiscoveryTask> {
 public:
  explicit DiscoveryTask(host::Queue& queue) : mQueue(queue) {}
  virtual ~DiscoveryTask() = default;
  DiscoveryTask(const DiscoveryTask&) = delete;
  DiscoveryTask& operator=(const DiscoveryTask&) = delete;

  /// Begins a task, which ends with the last copy of the result. Any thread.
  static DiscoveryActivity start(std::shared_ptr<DiscoveryTask> task) {
    task->mQueue.async([task] { task->begin(); });
    DiscoveryTask* const plain = task.get();
    return {plain,
            [task = std::move(task)](const void*) { task->mQueue.async([task] { task->end(); }); }};
  }

 protected:
  virtual void begin() = 0;
  virtual void end() = 0;

  /// Calls `call` on the main queue; the task lives until then.
  template <class Call>
  void reply(Call call) {
    mMain.async([self = shared_from_this(), call = std::move(call)] { call(); });
  }
  /// All finds of one call follow one another without a gap.
  template <class Reply>
  void replyFinds(const Reply& reply, std::vector<DiscoveryFind> finds) {
    mMain.async([self = shared_from_this(), &reply, finds = std::move(finds)] {
      for (std::size_t i = 0; i < finds.size(); ++i) {
        reply(finds[i], i + 1 < finds.size());
      }
    });
  }

 private:
  host::Queue& mQueue;
  host::Queue& mMain = host::current().mainQueue();
};

}  // namespace velor::discovery
