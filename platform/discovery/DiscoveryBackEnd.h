// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/discovery/DiscoveryOrder.h"
#include "platform/discovery/DiscoveryService.h"
#include "platform/host/Queue.h"

namespace velor::discovery {

/// What all back ends share: orders come to the back end on its queue, and what it
/// tells of them goes to their owners on the main queue.
class DiscoveryBackEnd : public DiscoveryService {
 public:
  std::unique_ptr<DiscoveryActivity> publishService(DiscoveryRecord record, bool mayRename,
                                                    PublishReply reply) final;
  std::unique_ptr<DiscoveryActivity> searchForServices(std::string type, std::string domain,
                                                       SearchReply reply) final;
  std::unique_ptr<DiscoveryActivity> resolveService(DiscoveryKey key, ResolveReply reply) final;

 protected:
  using PublishOrderRef = std::shared_ptr<DiscoveryPublishOrder>;
  using SearchOrderRef = std::shared_ptr<DiscoverySearchOrder>;
  using ResolveOrderRef = std::shared_ptr<DiscoveryResolveOrder>;

  DiscoveryBackEnd() : mMain(host::current().mainQueue()) {}

  virtual host::Queue& queue() noexcept = 0;

  // --- on the queue; each order begins once and ends once ---

  virtual void begin(const PublishOrderRef& order) = 0;
  virtual void begin(const SearchOrderRef& order) = 0;
  virtual void begin(const ResolveOrderRef& order) = 0;
  virtual void end(const DiscoveryOrder& order) = 0;
  /// The record of the order has another TXT record.
  virtual void txtChanged(const DiscoveryPublishOrder& order) = 0;

  void tell(const PublishOrderRef& order, Published published);
  /// All of one call follow each other without a gap.
  void tell(const SearchOrderRef& order, std::vector<DiscoveryFind> finds);
  void tell(const ResolveOrderRef& order, DiscoveryAnswer answer);

 private:
  template <class Order>
  class Activity;
  template <class Order>
  std::unique_ptr<DiscoveryActivity> start(std::shared_ptr<Order> order);

  host::Queue& mMain;
};

}  // namespace velor::discovery
