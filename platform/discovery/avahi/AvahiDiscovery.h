// SPDX-License-Identifier: MIT
#pragma once

#include <avahi-client/client.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/discovery/DiscoveryService.h"
#include "platform/discovery/avahi/AvahiLoop.h"
#include "platform/discovery/avahi/SystemBusWatch.h"

namespace velor::discovery {

/// Discovery by an Avahi daemon. Daemon and system bus may be missing, die and return.
/// Connects when it gets the first activity. A search reports a service once it has been
/// there for 1.5 s, so that it reports none that has just said goodbye.
///
/// All calls to the library run on the queue "velor.avahi"; some of them wait for the
/// daemon's answer.
class AvahiDiscovery final : public DiscoveryService {
 public:
  AvahiDiscovery() = default;
  /// All activities have ended.
  ~AvahiDiscovery() override;

  DiscoveryActivity publishService(DiscoveryRecord record, PublishReply reply) override;
  DiscoveryActivity searchForServices(std::string type, std::string domain,
                                      SearchReply reply) override;
  DiscoveryActivity resolveService(DiscoveryKey key, ResolveReply reply) override;

 private:
  class Task;
  template <class Object, auto kFree>
  class TaskWith;
  class Publication;
  class Search;
  class Resolution;

  // On mLoop.
  void add(Task& task);
  void open();
  void close();
  void noteMissing(const std::string& why);
  static void onClient(AvahiClient* client, AvahiClientState state, void* self);

  // On mLoop.
  AvahiClient* mClient = nullptr;
  std::vector<Task*> mTasks;
  bool mToldMissing = false;
  std::unique_ptr<SystemBusWatch> mBusWatch;
  AvahiLoop mLoop{"velor.avahi"};  // last: its thread uses the others
};

}  // namespace velor::discovery
