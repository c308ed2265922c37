// SPDX-License-Identifier: MIT
#pragma once

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-client/publish.h>

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/discovery/DiscoveryService.h"
#include "platform/discovery/avahi/AvahiLoop.h"

namespace velor::discovery {

/// Discovery by an Avahi daemon, which may be missing, die and come back, and so
/// may the system bus by which it is reached. It is first looked for when there is
/// something to do. What is found is told when it has been there for 1.5 s, so that
/// what has just said goodbye is not.
///
/// All calls to the library run on the queue "velor.avahi"; some of them wait for
/// the daemon's answer.
class AvahiDiscovery final : public DiscoveryService {
 public:
  AvahiDiscovery();
  /// Nothing is under way any more.
  ~AvahiDiscovery() override;

 private:
  // The library's callbacks hold their addresses.
  struct Publication {
    AvahiDiscovery* owner;
    PublishOrderRef order;
    std::string name;  // the one in force, or the next to try
    AvahiEntryGroup* group = nullptr;
    bool collided = false;  // another has the name
    bool failed = false;    // the daemon gave it up
    bool refused = false;   // told so, for good
  };
  struct Search {
    AvahiDiscovery* owner;
    SearchOrderRef order;
    AvahiServiceBrowser* browser = nullptr;
    bool failed = false;
    // Until all that the daemon knows already has come, so that it is told at once.
    bool holding = false;
    // Where each is seen: interface and protocol.
    std::map<std::string, std::set<std::pair<int, int>>> seen;
    std::vector<DiscoveryFind> untold;
    // Those that have not been there for kFarewell yet, and when they will: host time.
    std::map<std::string, std::uint64_t> fresh;
  };
  struct Resolution {
    AvahiDiscovery* owner;
    ResolveOrderRef order;
    AvahiServiceResolver* resolver = nullptr;
    // Of the address. The daemon gives one of a host, and peers tend to listen for IPv4.
    AvahiProtocol protocol = AVAHI_PROTO_INET;
    bool failed = false;
    bool isTold = false;
  };

  static constexpr std::uint64_t kNoLook = UINT64_MAX;

  host::Queue& queue() noexcept override { return mLoop; }
  void begin(const PublishOrderRef& order) override;
  void begin(const SearchOrderRef& order) override;
  void begin(const ResolveOrderRef& order) override;
  void end(const DiscoveryOrder& order) override;
  void txtChanged(const PublishOrder& order) override;

  // On mLoop. The library's callbacks note what has happened; `lookAgain` does what
  // follows from it, as a job, since objects must not go inside their callbacks.
  void lookAgainSoon();
  void lookAgainIn(std::uint64_t ns);
  void lookAgain();
  bool openClient();
  void closeClient();
  void publish(Publication& publication);
  bool nameIsTaken(Publication& publication);
  void search(Search& search);
  void resolve(Resolution& resolution);
  void withdraw(Publication& publication);
  static void noteGone(Search& search, const std::string& name);
  static void tellAllGone(Search& search);
  void tellFinds();

  static void onClient(AvahiClient* client, AvahiClientState state, void* self);
  static void onGroup(AvahiEntryGroup* group, AvahiEntryGroupState state, void* publication);
  static void onBrowser(AvahiServiceBrowser* browser, AvahiIfIndex interface,
                        AvahiProtocol protocol, AvahiBrowserEvent event, const char* name,
                        const char* type, const char* domain, AvahiLookupResultFlags flags,
                        void* search);
  static void onResolver(AvahiServiceResolver* resolver, AvahiIfIndex interface,
                         AvahiProtocol protocol, AvahiResolverEvent event, const char* name,
                         const char* type, const char* domain, const char* hostName,
                         const AvahiAddress* address, std::uint16_t port, AvahiStringList* txt,
                         AvahiLookupResultFlags flags, void* resolution);

  host::Host& mHost;
  // On mLoop.
  AvahiClient* mClient = nullptr;
  AvahiClientState mState = AVAHI_CLIENT_CONNECTING;
  bool mToldMissing = false;
  bool mLookPending = false;
  std::uint64_t mLookDue = kNoLook;  // host time
  std::list<Publication> mPublications;
  std::list<Search> mSearches;
  std::list<Resolution> mResolutions;
  AvahiLoop mLoop;  // behind the others: its thread uses them
};

}  // namespace velor::discovery
