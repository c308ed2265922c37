// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/discovery/DiscoveryService.h"

namespace velor::discovery {

/// Discovery within the process: who publishes here is found here. It stands in
/// where no daemon can be reached, and on the simulated host it is the network.
class BuiltinDiscovery final : public DiscoveryService {
 public:
  /// From a publication to its being seen, ns: three probes, 250 ms apart, go
  /// before it on a network (RFC 6762, section 8.1).
  static constexpr std::uint64_t kProbing = 750'000'000;

  /// `hostName` is what all services resolve to.
  explicit BuiltinDiscovery(std::string hostName = "localhost");
  /// Nothing is under way any more.
  ~BuiltinDiscovery() override;

  /// Goes and comes back as a daemon does. Any thread.
  void setRunning(bool running);

 private:
  struct Publication {
    PublishOrderRef order;
    std::string name;  // the one in force; empty before it is seen
    std::uint64_t attempt = 0;
  };

  host::Queue& queue() noexcept override { return mQueue; }
  void begin(const PublishOrderRef& order) override;
  void begin(const SearchOrderRef& order) override;
  void begin(const ResolveOrderRef& order) override;
  void end(const DiscoveryOrder& order) override;
  void txtChanged(const PublishOrder&) override {}  // it lies in the order

  // On mQueue.
  void probe(Publication& publication);
  void announce(std::uint64_t attempt);
  void withdraw(Publication& publication);
  void tellSearches(const DiscoveryKey& key, bool isThere);
  void answer(const ResolveOrderRef& order);
  const Publication* find(const DiscoveryKey& key) const;

  const std::string mHostName;
  // On mQueue.
  bool mRunning = true;
  std::uint64_t mLastAttempt = 0;
  std::vector<Publication> mPublications;
  std::vector<SearchOrderRef> mSearches;
  std::vector<ResolveOrderRef> mResolutions;
  host::Queue mQueue{"velor.discovery"};
};

}  // namespace velor::discovery
