// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>
#include <tl/expected.hpp>

#include "platform/discovery/DiscoveryTypes.h"
#include "platform/discovery/NSNetServicesError.h"

namespace velor::discovery {

/// Publishes services on the network, and finds the services of others. Programs use it
/// through NSNetService and NSNetServiceBrowser.
///
/// Any thread may call any operation; none waits for the network. Replies come on the main
/// queue; one may come after the activity has ended. The service must outlive its activities.
///
/// The daemon that does the work may be missing, die and return at any time. No activity
/// fails by that: publications and searches start again when it returns, and a search
/// reports everything gone in between.
class DiscoveryService {
 public:
  /// Gets the current name each time others can see the publication (again), and the
  /// error that ends it.
  using PublishReply = std::function<void(const tl::expected<std::string, NSNetServicesError>&)>;
  /// `moreComing`: the next call follows at once.
  using SearchReply = std::function<void(const DiscoveryFind&, bool moreComing)>;
  using ResolveReply = std::function<void(const DiscoveryAnswer&)>;

  virtual ~DiscoveryService() = default;
  DiscoveryService(const DiscoveryService&) = delete;
  DiscoveryService& operator=(const DiscoveryService&) = delete;

  /// A name that is taken gets a number: "Velor #2".
  virtual DiscoveryActivity publishService(DiscoveryRecord record, PublishReply reply) = 0;
  /// Reports each service of the type once, however many interfaces it is seen on.
  virtual DiscoveryActivity searchForServices(std::string type, std::string domain,
                                              SearchReply reply) = 0;
  /// Replies once, as soon as the service can be reached; keeps trying until then.
  virtual DiscoveryActivity resolveService(DiscoveryKey key, ResolveReply reply) = 0;

 protected:
  DiscoveryService() = default;
};

/// The current service; the application chooses it once, a test for each case.
DiscoveryService& service() noexcept;
void setService(DiscoveryService* service) noexcept;

}  // namespace velor::discovery
