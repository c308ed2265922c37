// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/discovery/DiscoveryTypes.h"
#include "platform/host/Host.h"
#include "platform/host/Queue.h"

namespace velor::discovery {

class DiscoveryService;

/// What a back end is asked to do, from its beginning to its end.
struct DiscoveryOrder {
  virtual ~DiscoveryOrder() = default;
  std::atomic<bool> ended{false};
};

/// A publication, a search or a resolution that is under way; it ends with this, on any
/// thread. On the main thread, its reply is not called any more then.
class DiscoveryActivity {
 public:
  DiscoveryActivity(DiscoveryService& service, std::shared_ptr<DiscoveryOrder> order)
      : mService(service), mOrder(std::move(order)) {}
  ~DiscoveryActivity();
  DiscoveryActivity(const DiscoveryActivity&) = delete;
  DiscoveryActivity& operator=(const DiscoveryActivity&) = delete;

  /// Gives a publication another TXT record while it stands. For publications alone.
  void setTXTRecordData(DiscoveryTXTData txt);

 private:
  DiscoveryService& mService;
  const std::shared_ptr<DiscoveryOrder> mOrder;
};

/// Publishes services on the network, and finds those of others. NSNetService and
/// NSNetServiceBrowser are the way to use it. Orders reach the back end on its queue; its
/// reports reach their owners on the main queue.
///
/// Any thread may call any operation; none waits for the network or for anybody
/// else. The service must outlive what it has under way.
///
/// What carries it (a daemon) may be missing, go and come back at any time, which
/// is not a fault of an activity: publications are made again and searches begun
/// again, and what a search had found is reported gone in between.
class DiscoveryService {
 public:
  /// How a publication stands. Reported each time that others can see it (again).
  struct Published {
    bool done = false;   ///< false: refused for good
    bool taken = false;  ///< refused since the name is another's
    std::string name;    ///< the current one, which may be another than asked for
  };
  using PublishReply = std::function<void(const Published&)>;
  /// `moreComing`: the next call follows at once.
  using SearchReply = std::function<void(const DiscoveryFind&, bool moreComing)>;
  using ResolveReply = std::function<void(const DiscoveryAnswer&)>;

  virtual ~DiscoveryService() = default;
  DiscoveryService(const DiscoveryService&) = delete;
  DiscoveryService& operator=(const DiscoveryService&) = delete;

  /// A name that is taken is replaced by one with a number ("Velor #2"), unless
  /// `mayRename` is false.
  std::unique_ptr<DiscoveryActivity> publishService(DiscoveryRecord record, bool mayRename,
                                                    PublishReply reply);
  /// Reports each service of the type that is there, comes or goes, whatever the
  /// number of interfaces on which it is seen.
  std::unique_ptr<DiscoveryActivity> searchForServices(std::string type, std::string domain,
                                                       SearchReply reply);
  /// Replies once, as soon as the service can be reached; goes on trying until then.
  std::unique_ptr<DiscoveryActivity> resolveService(DiscoveryKey key, ResolveReply reply);

 protected:
  struct PublishOrder final : DiscoveryOrder {
    DiscoveryRecord record;  ///< of the back end's queue
    bool mayRename = true;
    PublishReply reply;
  };
  struct SearchOrder final : DiscoveryOrder {
    std::string type;
    std::string domain;
    SearchReply reply;
  };
  struct ResolveOrder final : DiscoveryOrder {
    DiscoveryKey key;
    ResolveReply reply;
  };
  using PublishOrderRef = std::shared_ptr<PublishOrder>;
  using SearchOrderRef = std::shared_ptr<SearchOrder>;
  using ResolveOrderRef = std::shared_ptr<ResolveOrder>;

  DiscoveryService() : mMain(host::current().mainQueue()) {}

  virtual host::Queue& queue() noexcept = 0;

  // --- on the queue; each order begins once and ends once ---

  virtual void begin(const PublishOrderRef& order) = 0;
  virtual void begin(const SearchOrderRef& order) = 0;
  virtual void begin(const ResolveOrderRef& order) = 0;
  virtual void end(const DiscoveryOrder& order) = 0;
  /// The record of the order has another TXT record.
  virtual void txtChanged(const PublishOrder& order) = 0;

  void report(const PublishOrderRef& order, Published published);
  /// All of one call follow each other without a gap.
  void report(const SearchOrderRef& order, std::vector<DiscoveryFind> finds);
  void report(const ResolveOrderRef& order, DiscoveryAnswer answer);

 private:
  friend class DiscoveryActivity;
  template <class Order>
  std::unique_ptr<DiscoveryActivity> start(std::shared_ptr<Order> order);

  host::Queue& mMain;
};

/// The service in effect; the application chooses it once, a test for each case.
DiscoveryService& service() noexcept;
void setService(DiscoveryService* service) noexcept;

}  // namespace velor::discovery
