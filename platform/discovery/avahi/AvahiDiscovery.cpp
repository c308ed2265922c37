// SPDX-License-Identifier: MIT
#include "platform/discovery/avahi/AvahiDiscovery.h"

#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <system_error>

#include "platform/host/Log.h"

namespace velor::discovery {
namespace {

constexpr std::uint64_t kMs = 1'000'000;
// Between attempts at what has failed.
constexpr std::uint64_t kRetry = 1000 * kMs;
// What has said goodbye is kept by peers for a second more (RFC 6762, section 10.1) and
// is found there meanwhile: also our own last run, by one that is started at once.
constexpr std::uint64_t kFarewell = 1500 * kMs;
// Names tried before a publication waits for the next attempt.
constexpr int kMostNames = 100;

// A TXT record as the library's list.
class TXTList {
 public:
  explicit TXTList(const DiscoveryTXTData& data) {
    if (!data.empty() && avahi_string_list_parse(data.data(), data.size(), &mList) != 0) {
      mList = nullptr;  // out of memory: damaged data does not come here
    }
  }
  ~TXTList() { avahi_string_list_free(mList); }
  TXTList(const TXTList&) = delete;
  TXTList& operator=(const TXTList&) = delete;
  AvahiStringList* get() const noexcept { return mList; }

 private:
  AvahiStringList* mList = nullptr;
};

DiscoveryTXTData dataOf(AvahiStringList* list) {
  DiscoveryTXTData data(avahi_string_list_serialize(list, nullptr, 0));
  data.resize(avahi_string_list_serialize(list, data.data(), data.size()));
  return data;
}

// An address of one link alone needs the interface.
bool needsScope(const AvahiAddress& address) {
  const std::uint8_t* const bytes = address.data.ipv6.address;
  return address.proto == AVAHI_PROTO_INET6 && bytes[0] == 0xFE && (bytes[1] & 0xC0) == 0x80;
}

// As a socket takes it.
std::string textOf(const AvahiAddress& address, AvahiIfIndex interface) {
  std::array<char, AVAHI_ADDRESS_STR_MAX> text{};
  avahi_address_snprint(text.data(), text.size(), &address);
  std::array<char, IF_NAMESIZE> link{};
  if (!needsScope(address) ||
      if_indextoname(static_cast<unsigned>(interface), link.data()) == nullptr) {
    return text.data();
  }
  return std::string(text.data()) + "%" + link.data();
}

// Errors that no later attempt would mend.
bool isForGood(int error) {
  switch (error) {
    case AVAHI_ERR_INVALID_SERVICE_NAME:
    case AVAHI_ERR_INVALID_SERVICE_TYPE:
    case AVAHI_ERR_INVALID_DOMAIN_NAME:
    case AVAHI_ERR_INVALID_PORT:
    case AVAHI_ERR_INVALID_ARGUMENT:
    case AVAHI_ERR_INVALID_RECORD:
    case AVAHI_ERR_NOT_PERMITTED:
    case AVAHI_ERR_NOT_SUPPORTED:
      return true;
    default:
      return false;
  }
}

}  // namespace

AvahiDiscovery::AvahiDiscovery()
    : mHost(host::current()), mLoop("velor.avahi", [this] { tellFinds(); }) {}

AvahiDiscovery::~AvahiDiscovery() {
  mLoop.async([this] { closeClient(); });
  mLoop.endThread();
}

void AvahiDiscovery::begin(const PublishOrderRef& order) {
  Publication& publication = mPublications.emplace_back();
  publication.owner = this;
  publication.order = order;
  publication.name = order->record.key.name;
  lookAgainSoon();
}

void AvahiDiscovery::begin(const SearchOrderRef& order) {
  Search& search = mSearches.emplace_back();
  search.owner = this;
  search.order = order;
  lookAgainSoon();
}

void AvahiDiscovery::begin(const ResolveOrderRef& order) {
  Resolution& resolution = mResolutions.emplace_back();
  resolution.owner = this;
  resolution.order = order;
  lookAgainSoon();
}

void AvahiDiscovery::end(const DiscoveryOrder& order) {
  mPublications.remove_if([this, &order](Publication& each) {
    if (each.order.get() != &order) {
      return false;
    }
    withdraw(each);
    return true;
  });
  mSearches.remove_if([&order](Search& each) {
    if (each.order.get() != &order) {
      return false;
    }
    if (each.browser != nullptr) {
      avahi_service_browser_free(each.browser);
    }
    return true;
  });
  mResolutions.remove_if([&order](Resolution& each) {
    if (each.order.get() != &order) {
      return false;
    }
    if (each.resolver != nullptr) {
      avahi_service_resolver_free(each.resolver);
    }
    return true;
  });
}

void AvahiDiscovery::txtChanged(const PublishOrder& order) {
  const auto found =
      std::find_if(mPublications.begin(), mPublications.end(),
                   [&order](const Publication& each) { return each.order.get() == &order; });
  if (found == mPublications.end() || found->group == nullptr) {
    return;  // it goes out with the publication
  }
  const TXTList txt(order.record.txt);
  const int error = avahi_entry_group_update_service_txt_strlst(
      found->group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, static_cast<AvahiPublishFlags>(0),
      found->name.c_str(), order.record.key.type.c_str(), order.record.key.domain.c_str(),
      txt.get());
  if (error != 0) {
    withdraw(*found);  // and publish it anew
    lookAgainSoon();
  }
}

void AvahiDiscovery::lookAgainSoon() {
  if (!mLookPending) {
    mLookPending = true;
    mLoop.async([this] {
      mLookPending = false;
      lookAgain();
    });
  }
}

// One that is due earlier does for those behind it, so that they do not pile up.
void AvahiDiscovery::lookAgainIn(std::uint64_t ns) {
  const std::uint64_t due = mHost.AudioGetCurrentHostTime() + ns;
  if (mLookDue <= due) {
    return;
  }
  mLookDue = due;
  mLoop.after(ns, [this, due] {
    if (mLookDue == due) {
      mLookDue = kNoLook;
    }
    lookAgainSoon();
  });
}

void AvahiDiscovery::lookAgain() {
  if (mClient == nullptr) {
    const bool idle = mPublications.empty() && mSearches.empty() && mResolutions.empty();
    if (idle || !openClient()) {
      return;
    }
  }
  switch (mState) {
    case AVAHI_CLIENT_S_RUNNING:
      if (std::exchange(mToldMissing, false)) {
        VELOR_LOG_INFO("the Avahi daemon is there");
      }
      for (Publication& each : mPublications) {
        publish(each);
      }
      for (Search& each : mSearches) {
        search(each);
      }
      for (Resolution& each : mResolutions) {
        resolve(each);
      }
      break;
    case AVAHI_CLIENT_S_REGISTERING:
    case AVAHI_CLIENT_S_COLLISION:
      // The host looks for a name of its own, which the publications hold.
      for (Publication& each : mPublications) {
        withdraw(each);
      }
      break;
    case AVAHI_CLIENT_CONNECTING:
      if (!std::exchange(mToldMissing, true)) {
        VELOR_LOG_INFO("no Avahi daemon runs; services are published and found when one does");
      }
      break;
    case AVAHI_CLIENT_FAILURE:
      if (!std::exchange(mToldMissing, true)) {
        VELOR_LOG_INFO("the Avahi daemon has gone: %s",
                       avahi_strerror(avahi_client_errno(mClient)));
      }
      closeClient();
      lookAgainIn(kRetry / 4);
      break;
  }
}

bool AvahiDiscovery::openClient() {
  mState = AVAHI_CLIENT_CONNECTING;
  int error = 0;
  mClient =
      avahi_client_new(mLoop.poll(), AVAHI_CLIENT_NO_FAIL, &AvahiDiscovery::onClient, this, &error);
  if (mClient == nullptr) {
    if (!std::exchange(mToldMissing, true)) {
      VELOR_LOG_INFO("no way to an Avahi daemon: %s", avahi_strerror(error));
    }
    lookAgainIn(kRetry);
  }
  return mClient != nullptr;
}

void AvahiDiscovery::closeClient() {
  if (mClient == nullptr) {
    return;
  }
  // The client's objects go with it.
  avahi_client_free(std::exchange(mClient, nullptr));
  for (Publication& each : mPublications) {
    each.group = nullptr;
    each.collided = each.failed = false;
  }
  for (Search& each : mSearches) {
    each.browser = nullptr;
    each.failed = false;
    tellAllGone(each);
  }
  for (Resolution& each : mResolutions) {
    each.resolver = nullptr;
    each.failed = false;
  }
}

void AvahiDiscovery::onClient(AvahiClient*, AvahiClientState state, void* self) {
  auto& discovery = *static_cast<AvahiDiscovery*>(self);
  discovery.mState = state;
  discovery.lookAgainSoon();
}

// --- publications

void AvahiDiscovery::withdraw(Publication& publication) {
  if (publication.group != nullptr) {
    avahi_entry_group_free(std::exchange(publication.group, nullptr));
  }
  publication.collided = publication.failed = false;
}

// Takes the next name; false when the publication must not have another.
bool AvahiDiscovery::nameIsTaken(Publication& publication) {
  if (!publication.order->mayRename) {
    publication.refused = true;
    report(publication.order, {false, true, publication.name});
    return false;
  }
  char* const next = avahi_alternative_service_name(publication.name.c_str());
  publication.name = next;
  avahi_free(next);
  return true;
}

void AvahiDiscovery::publish(Publication& publication) {
  const bool collided = publication.collided;
  if (collided || publication.failed) {
    withdraw(publication);
    if (collided && !nameIsTaken(publication)) {
      return;
    }
  }
  if (publication.group != nullptr || publication.refused) {
    return;
  }
  publication.group = avahi_entry_group_new(mClient, &AvahiDiscovery::onGroup, &publication);
  int error = publication.group == nullptr ? avahi_client_errno(mClient) : AVAHI_ERR_COLLISION;
  const DiscoveryRecord& record = publication.order->record;
  const TXTList txt(record.txt);
  for (int tries = 0; publication.group != nullptr && tries < kMostNames; ++tries) {
    error = avahi_entry_group_add_service_strlst(
        publication.group, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, static_cast<AvahiPublishFlags>(0),
        publication.name.c_str(), record.key.type.c_str(), record.key.domain.c_str(), nullptr,
        record.port, txt.get());
    if (error != AVAHI_ERR_COLLISION) {
      break;
    }
    if (!nameIsTaken(publication)) {
      withdraw(publication);
      return;
    }
  }
  if (error == 0) {
    error = avahi_entry_group_commit(publication.group);
  }
  if (error == 0 || mState == AVAHI_CLIENT_FAILURE) {
    return;  // established, or to be made again with the next client
  }
  VELOR_LOG_WARNING("cannot publish %s: %s", publication.name.c_str(), avahi_strerror(error));
  withdraw(publication);
  if (isForGood(error)) {
    publication.refused = true;
    report(publication.order, {false, false, publication.name});
  } else {
    lookAgainIn(kRetry);
  }
}

void AvahiDiscovery::onGroup(AvahiEntryGroup*, AvahiEntryGroupState state, void* self) {
  auto& publication = *static_cast<Publication*>(self);
  switch (state) {
    case AVAHI_ENTRY_GROUP_ESTABLISHED:
      publication.owner->report(publication.order, {true, false, publication.name});
      break;
    case AVAHI_ENTRY_GROUP_COLLISION:
      publication.collided = true;
      publication.owner->lookAgainSoon();
      break;
    case AVAHI_ENTRY_GROUP_FAILURE:
      publication.failed = true;
      publication.owner->lookAgainIn(kRetry);
      break;
    case AVAHI_ENTRY_GROUP_UNCOMMITED:
    case AVAHI_ENTRY_GROUP_REGISTERING:
      break;
  }
}

// --- searches

void AvahiDiscovery::search(Search& search) {
  if (search.failed && search.browser != nullptr) {
    avahi_service_browser_free(std::exchange(search.browser, nullptr));
    search.failed = false;
    tellAllGone(search);
  }
  if (search.browser != nullptr) {
    return;
  }
  search.holding = true;
  search.browser = avahi_service_browser_new(
      mClient, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, search.order->type.c_str(),
      search.order->domain.c_str(), static_cast<AvahiLookupFlags>(0), &AvahiDiscovery::onBrowser,
      &search);
  if (search.browser == nullptr && mState != AVAHI_CLIENT_FAILURE) {
    VELOR_LOG_WARNING("cannot search for %s: %s", search.order->type.c_str(),
                      avahi_strerror(avahi_client_errno(mClient)));
    lookAgainIn(kRetry);
  }
}

void AvahiDiscovery::onBrowser(AvahiServiceBrowser*, AvahiIfIndex interface, AvahiProtocol protocol,
                               AvahiBrowserEvent event, const char* name, const char*, const char*,
                               AvahiLookupResultFlags, void* self) {
  auto& search = *static_cast<Search*>(self);
  switch (event) {
    case AVAHI_BROWSER_NEW: {
      auto& places = search.seen[name];
      if (places.empty()) {
        // What is there already is told together.
        search.fresh[name] = search.holding && !search.fresh.empty()
                                 ? search.fresh.begin()->second
                                 : search.owner->mHost.AudioGetCurrentHostTime() + kFarewell;
        search.owner->lookAgainIn(kFarewell);
      }
      places.emplace(interface, protocol);
      break;
    }
    case AVAHI_BROWSER_REMOVE: {
      const auto found = search.seen.find(name);
      if (found == search.seen.end()) {
        break;
      }
      found->second.erase({interface, protocol});
      if (found->second.empty()) {
        search.seen.erase(found);
        noteGone(search, name);
      }
      break;
    }
    case AVAHI_BROWSER_CACHE_EXHAUSTED:
    case AVAHI_BROWSER_ALL_FOR_NOW:
      search.holding = false;
      break;
    case AVAHI_BROWSER_FAILURE:
      search.failed = true;
      search.owner->lookAgainIn(kRetry);
      break;
  }
}

void AvahiDiscovery::noteGone(Search& search, const std::string& name) {
  if (search.fresh.erase(name) == 0) {
    search.untold.push_back({name, false});
  }
}

void AvahiDiscovery::tellAllGone(Search& search) {
  search.holding = false;
  for (const auto& [name, places] : search.seen) {
    noteGone(search, name);
  }
  search.seen.clear();
}

void AvahiDiscovery::tellFinds() {
  const std::uint64_t now = mHost.AudioGetCurrentHostTime();
  for (Search& each : mSearches) {
    for (auto fresh = each.fresh.begin(); fresh != each.fresh.end();) {
      if (fresh->second <= now) {
        each.untold.push_back({fresh->first, true});
        fresh = each.fresh.erase(fresh);
      } else {
        lookAgainIn(fresh->second - now);
        ++fresh;
      }
    }
    if (!each.holding && !each.untold.empty()) {
      report(each.order, std::exchange(each.untold, {}));
    }
  }
}

// --- resolutions

void AvahiDiscovery::resolve(Resolution& resolution) {
  if (resolution.failed && resolution.resolver != nullptr) {
    avahi_service_resolver_free(std::exchange(resolution.resolver, nullptr));
    resolution.failed = false;
    // A host without IPv4 has an address of the other protocol.
    resolution.protocol = AVAHI_PROTO_UNSPEC;
  }
  if (resolution.resolver != nullptr || resolution.isTold) {
    return;
  }
  const DiscoveryKey& key = resolution.order->key;
  resolution.resolver = avahi_service_resolver_new(
      mClient, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, key.name.c_str(), key.type.c_str(),
      key.domain.c_str(), resolution.protocol, static_cast<AvahiLookupFlags>(0),
      &AvahiDiscovery::onResolver, &resolution);
  if (resolution.resolver == nullptr && mState != AVAHI_CLIENT_FAILURE) {
    lookAgainIn(kRetry);
  }
}

void AvahiDiscovery::onResolver(AvahiServiceResolver*, AvahiIfIndex interface, AvahiProtocol,
                                AvahiResolverEvent event, const char*, const char*, const char*,
                                const char*, const AvahiAddress* address, std::uint16_t port,
                                AvahiStringList* txt, AvahiLookupResultFlags, void* self) {
  auto& resolution = *static_cast<Resolution*>(self);
  if (event == AVAHI_RESOLVER_FAILURE || address == nullptr) {
    // Not there (yet), the daemon says after 5 s.
    resolution.failed = true;
    resolution.owner->lookAgainIn(resolution.protocol == AVAHI_PROTO_INET ? 0 : kRetry);
  } else if (!std::exchange(resolution.isTold, true)) {  // the first counts
    resolution.owner->report(resolution.order, {textOf(*address, interface), port, dataOf(txt)});
  }
}

}  // namespace velor::discovery
