// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/discovery/DiscoveryService.h"
#include "platform/host/Queue.h"

namespace velor::discovery {

/// Discovery within the process: a search finds the publications of the same object. On the
/// simulated host it is the network.
class BuiltinDiscovery final : public DiscoveryService {
 public:
  /// Time from a publication to its announcement, ns: on a network three probes go first,
  /// 250 ms apart (RFC 6762, section 8.1).
  static constexpr std::uint64_t kProbing = 750'000'000;

  /// All services resolve to `hostName`.
  explicit BuiltinDiscovery(std::string hostName = "localhost") : mHostName(std::move(hostName)) {}

  /// Stops and starts as a daemon does. Any thread.
  void setRunning(bool running);

  DiscoveryActivity publishService(DiscoveryRecord record, PublishReply reply) override;
  DiscoveryActivity searchForServices(std::string type, std::string domain,
                                      SearchReply reply) override;
  DiscoveryActivity resolveService(DiscoveryKey key, ResolveReply reply) override;

 private:
  template <class Reply>
  class Task;
  class Publication;
  class Search;
  class Resolution;

  // On mQueue.
  const Publication* find(const DiscoveryKey& key) const;

  const std::string mHostName;
  // On mQueue.
  bool mRunning = true;
  std::vector<Publication*> mPublications;
  std::vector<Search*> mSearches;
  std::vector<Resolution*> mResolutions;
  host::Queue mQueue{"velor.discovery"};
};

}  // namespace velor::discovery
