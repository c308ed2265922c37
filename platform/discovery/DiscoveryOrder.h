// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "platform/discovery/DiscoveryService.h"
#include "platform/host/Host.h"

namespace velor::discovery {

/// What a back end has been asked to do, from its beginning to its end.
struct DiscoveryOrder : std::enable_shared_from_this<DiscoveryOrder> {
  virtual ~DiscoveryOrder() = default;

  /// Runs the job on the main queue, unless the order has ended by then.
  template <class Job>
  void tell(host::Queue& main, Job job) {
    main.async([self = shared_from_this(), job = std::move(job)] {
      if (!self->ended.load()) {
        job();
      }
    });
  }

  std::atomic<bool> ended{false};
};

struct DiscoveryPublishOrder final : DiscoveryOrder {
  DiscoveryRecord record;  ///< of the back end's queue
  bool mayRename = true;
  DiscoveryService::PublishReply reply;
};

struct DiscoverySearchOrder final : DiscoveryOrder {
  std::string type;
  std::string domain;
  DiscoveryService::SearchReply reply;
};

struct DiscoveryResolveOrder final : DiscoveryOrder {
  DiscoveryKey key;
  DiscoveryService::ResolveReply reply;
};

}  // namespace velor::discovery
