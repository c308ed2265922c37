// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/discovery/DiscoveryActivity.h"
#include "platform/discovery/DiscoveryTypes.h"

namespace velor::discovery {

/// Tells others on the network of services, and finds those of others.
/// NSNetService and NSNetServiceBrowser are the way to use it.
///
/// Any thread may call any operation; none waits for the network or for anybody
/// else. Replies come on the main queue. The service must outlive what it has
/// under way.
///
/// What carries it (a daemon) may be missing, go and come back at any time, which
/// is no fault of an activity: publications are made again and searches begun
/// again, and what a search had found is told gone in between.
class DiscoveryService {
 public:
  /// How a publication stands. It is told each time that others can see it (again).
  struct Published {
    bool done = false;   ///< false: refused for good
    bool taken = false;  ///< refused since the name is another's
    std::string name;    ///< the one in force, which may be another than asked for
  };
  using PublishReply = std::function<void(const Published&)>;
  /// `moreComing`: the next call follows at once.
  using SearchReply = std::function<void(const DiscoveryFind&, bool moreComing)>;
  using ResolveReply = std::function<void(const DiscoveryAnswer&)>;

  DiscoveryService() = default;
  virtual ~DiscoveryService() = default;
  DiscoveryService(const DiscoveryService&) = delete;
  DiscoveryService& operator=(const DiscoveryService&) = delete;

  /// A name that is taken is replaced by one with a number ("Velor #2"), unless
  /// `mayRename` is false.
  virtual std::unique_ptr<DiscoveryActivity> publishService(DiscoveryRecord record, bool mayRename,
                                                            PublishReply reply) = 0;
  /// Tells of each service of the type that is there, comes or goes, whatever the
  /// number of interfaces on which it is seen.
  virtual std::unique_ptr<DiscoveryActivity> searchForServices(std::string type, std::string domain,
                                                               SearchReply reply) = 0;

  /// Replies once, as soon as the service can be reached; goes on trying until then.
  virtual std::unique_ptr<DiscoveryActivity> resolveService(DiscoveryKey key,
                                                            ResolveReply reply) = 0;
};

/// The service in force; the application chooses it once, a test for each case.
DiscoveryService& service() noexcept;
void setService(DiscoveryService* service) noexcept;

}  // namespace velor::discovery
