// SPDX-License-Identifier: MIT
#include "platform/discovery/avahi/AvahiDiscovery.h"

#include <avahi-client/lookup.h>
#include <avahi-client/publish.h>
#include <avahi-common/alternative.h>
#include <avahi-common/error.h>
#include <avahi-common/malloc.h>
#include <net/if.h>

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <utility>

#include "platform/discovery/DiscoveryTask.h"
#include "platform/host/Log.h"

namespace velor::discovery {
namespace {

constexpr std::uint64_t kMs = 1'000'000;
// The library's value for any of them.
constexpr AvahiIfIndex kAnyInterface = -1;
constexpr AvahiProtocol kAnyProtocol = -1;
// Peers keep a service for another second after its goodbye (RFC 6762, section 10.1), also
// our own last run. A program that starts at once after its end would find itself there.
constexpr std::uint64_t kFarewell = 1500 * kMs;
// Services that come within this time are reported together.
constexpr std::uint64_t kTogether = 100 * kMs;

template <auto kFree>
struct Free {
  template <class Object>
  void operator()(Object* object) const {
    kFree(object);
  }
};
template <class Object, auto kFree>
using Owned = std::unique_ptr<Object, Free<kFree>>;

using TXTList = Owned<AvahiStringList, avahi_string_list_free>;

TXTList listOf(const DiscoveryTXTData& data) {
  AvahiStringList* list = nullptr;
  if (!data.empty()) {
    avahi_string_list_parse(data.data(), data.size(), &list);
  }
  return TXTList(list);
}

DiscoveryTXTData dataOf(AvahiStringList* list) {
  DiscoveryTXTData data(avahi_string_list_serialize(list, nullptr, 0));
  data.resize(avahi_string_list_serialize(list, data.data(), data.size()));
  return data;
}

// A link-local address is only complete with its interface.
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

// The daemon did not answer: it is going or gone, and the client's failure follows.
bool isLost(int error) {
  return error == AVAHI_ERR_DISCONNECTED || error == AVAHI_ERR_NO_DAEMON ||
         error == AVAHI_ERR_DBUS_ERROR || error == AVAHI_ERR_BAD_STATE;
}

}  // namespace

class AvahiDiscovery::Task : public DiscoveryTask {
 public:
  explicit Task(AvahiDiscovery& discovery)
      : DiscoveryTask(discovery.mLoop), mDiscovery(discovery) {}

  /// A daemon runs. Also called when the task has its object.
  virtual void resume(AvahiClient* client) = 0;
  /// The host's name changes; a publication must go until `resume`.
  virtual void pause() {}
  /// The client has freed the object, since the daemon has gone.
  virtual void lose() = 0;

 private:
  void begin() override { mDiscovery.add(*this); }
  void end() override {
    std::erase(mDiscovery.mTasks, this);
    stop();
  }
  /// Frees the object.
  virtual void stop() = 0;

  AvahiDiscovery& mDiscovery;
};

/// A task with the object that the library has for it while a daemon runs.
template <class Object, auto kFree>
class AvahiDiscovery::TaskWith : public Task {
 public:
  using Task::Task;
  void lose() override { static_cast<void>(mObject.release()); }

 protected:
  void stop() override { mObject.reset(); }

  Owned<Object, kFree> mObject;
};

class AvahiDiscovery::Publication final : public TaskWith<AvahiEntryGroup, avahi_entry_group_free> {
 public:
  Publication(AvahiDiscovery& discovery, DiscoveryRecord record, PublishReply reply)
      : TaskWith(discovery), mReply(std::move(reply)), mRecord(std::move(record)) {}

 private:
  void resume(AvahiClient* client) override {
    if (mObject != nullptr || mRefused) {
      return;
    }
    mObject.reset(avahi_entry_group_new(client, &Publication::onGroup, this));
    if (mObject == nullptr) {
      refuse(avahi_client_errno(client));
    } else {
      publish();
    }
  }

  void publish() {
    int error = addService();
    while (error == AVAHI_ERR_COLLISION) {
      takeNextName();
      error = addService();
    }
    if (error == 0) {
      error = avahi_entry_group_commit(mObject.get());
    }
    if (error != 0) {
      refuse(error);
    }
  }

  int addService() {
    const auto& [key, port, txt] = mRecord;
    return avahi_entry_group_add_service_strlst(
        mObject.get(), kAnyInterface, kAnyProtocol, static_cast<AvahiPublishFlags>(0),
        key.name.c_str(), key.type.c_str(), key.domain.c_str(), nullptr, port, listOf(txt).get());
  }

  void takeNextName() {
    char* const next = avahi_alternative_service_name(mRecord.key.name.c_str());
    mRecord.key.name = next;
    avahi_free(next);
  }

  void refuse(int error) {
    if (!isLost(error)) {
      stop();
      mRefused = true;
      reply([this, told = NSNetServicesError{
                       NSNetServicesError::kUnknown,
                       std::string("the Avahi daemon refuses it: ") + avahi_strerror(error)}] {
        mReply(tl::unexpected(told));
      });
    }
  }

  static void onGroup(AvahiEntryGroup* group, AvahiEntryGroupState state, void* publication) {
    auto& self = *static_cast<Publication*>(publication);
    switch (state) {
      case AVAHI_ENTRY_GROUP_ESTABLISHED:
        self.reply([&self, name = self.mRecord.key.name] { self.mReply(name); });
        break;
      case AVAHI_ENTRY_GROUP_COLLISION:
        self.takeNextName();
        avahi_entry_group_reset(group);
        self.publish();
        break;
      case AVAHI_ENTRY_GROUP_FAILURE:
        self.refuse(avahi_client_errno(avahi_entry_group_get_client(group)));
        break;
      case AVAHI_ENTRY_GROUP_UNCOMMITED:
      case AVAHI_ENTRY_GROUP_REGISTERING:
        break;
    }
  }

  void pause() override { stop(); }

  const PublishReply mReply;
  DiscoveryRecord mRecord;  // with the current name, or the next to try
  bool mRefused = false;
};

class AvahiDiscovery::Search final
    : public TaskWith<AvahiServiceBrowser, avahi_service_browser_free> {
 public:
  Search(AvahiDiscovery& discovery, std::string type, std::string domain, SearchReply reply)
      : TaskWith(discovery),
        mReply(std::move(reply)),
        mType(std::move(type)),
        mDomain(std::move(domain)),
        mLoop(discovery.mLoop) {}

 private:
  struct Sighting {
    std::set<std::pair<int, int>> places;  // interface and protocol
    std::uint64_t batch = 0;               // as mBatch was when it came
    bool isTold = false;
  };

  void resume(AvahiClient* client) override {
    if (mObject == nullptr) {
      mObject.reset(avahi_service_browser_new(client, kAnyInterface, kAnyProtocol, mType.c_str(),
                                              mDomain.c_str(), static_cast<AvahiLookupFlags>(0),
                                              &Search::onBrowser, this));
      if (mObject == nullptr) {
        noteFailure(client);
      }
    }
  }

  static void onBrowser(AvahiServiceBrowser* browser, AvahiIfIndex interface,
                        AvahiProtocol protocol, AvahiBrowserEvent event, const char* name,
                        const char*, const char*, AvahiLookupResultFlags, void* search) {
    auto& self = *static_cast<Search*>(search);
    switch (event) {
      case AVAHI_BROWSER_NEW:
        self.noteThere(name, {interface, protocol});
        break;
      case AVAHI_BROWSER_REMOVE:
        self.noteGone(name, {interface, protocol});
        break;
      case AVAHI_BROWSER_FAILURE:
        self.noteFailure(avahi_service_browser_get_client(browser));
        break;
      case AVAHI_BROWSER_CACHE_EXHAUSTED:
      case AVAHI_BROWSER_ALL_FOR_NOW:
        break;
    }
  }

  void noteThere(const std::string& name, std::pair<int, int> place) {
    Sighting& sighting = mSeen[name];
    if (sighting.places.empty()) {
      const std::uint64_t now = host::current().AudioGetCurrentHostTime();
      if (now - mBatch > kTogether) {
        mBatch = now;
        mLoop.after(kFarewell, [weak = weak_from_this(), now] {
          if (const auto self = weak.lock()) {
            static_cast<Search&>(*self).tell(now);
          }
        });
      }
      sighting.batch = mBatch;
    }
    sighting.places.insert(place);
  }

  void tell(std::uint64_t batch) {
    std::vector<DiscoveryFind> finds;
    for (auto& [name, sighting] : mSeen) {
      if (sighting.batch == batch) {
        sighting.isTold = true;
        finds.push_back({name, true});
      }
    }
    replyFinds(mReply, std::move(finds));
  }

  void noteGone(const std::string& name, std::pair<int, int> place) {
    const auto found = mSeen.find(name);
    if (found == mSeen.end()) {
      return;
    }
    found->second.places.erase(place);
    if (found->second.places.empty()) {
      if (found->second.isTold) {
        replyFinds(mReply, {{name, false}});
      }
      mSeen.erase(found);
    }
  }

  void noteFailure(AvahiClient* client) {
    if (const int error = avahi_client_errno(client); !isLost(error)) {
      VELOR_LOG_WARNING("cannot search for %s: %s", mType.c_str(), avahi_strerror(error));
    }
  }

  void lose() override {
    TaskWith::lose();
    std::vector<DiscoveryFind> gone;
    for (const auto& [name, sighting] : std::exchange(mSeen, {})) {
      if (sighting.isTold) {
        gone.push_back({name, false});
      }
    }
    replyFinds(mReply, std::move(gone));
  }

  const SearchReply mReply;
  const std::string mType;
  const std::string mDomain;
  host::Queue& mLoop;
  std::map<std::string, Sighting> mSeen;  // by name
  std::uint64_t mBatch = 0;               // host time at which the last batch began
};

class AvahiDiscovery::Resolution final
    : public TaskWith<AvahiServiceResolver, avahi_service_resolver_free> {
 public:
  Resolution(AvahiDiscovery& discovery, DiscoveryKey key, ResolveReply reply)
      : TaskWith(discovery), mReply(std::move(reply)), mKey(std::move(key)) {}

 private:
  void resume(AvahiClient* client) override {
    if (mObject == nullptr && !mIsTold) {
      mObject.reset(avahi_service_resolver_new(
          client, kAnyInterface, kAnyProtocol, mKey.name.c_str(), mKey.type.c_str(),
          mKey.domain.c_str(), mProtocol, static_cast<AvahiLookupFlags>(0), &Resolution::onResolver,
          this));
    }
  }

  static void onResolver(AvahiServiceResolver* resolver, AvahiIfIndex interface, AvahiProtocol,
                         AvahiResolverEvent event, const char*, const char*, const char*,
                         const char*, const AvahiAddress* address, std::uint16_t port,
                         AvahiStringList* txt, AvahiLookupResultFlags, void* resolution) {
    auto& self = *static_cast<Resolution*>(resolution);
    AvahiClient* const client = avahi_service_resolver_get_client(resolver);
    if (event == AVAHI_RESOLVER_FOUND) {
      if (!std::exchange(self.mIsTold, true)) {  // one interface after another answers
        self.reply([&self, answer = DiscoveryAnswer{textOf(*address, interface), port,
                                                    dataOf(txt)}] { self.mReply(answer); });
      }
    } else if (avahi_client_errno(client) == AVAHI_ERR_TIMEOUT) {
      // The daemon gives up after 5 s. The service may still come, or have no IPv4 address.
      self.stop();
      self.mProtocol = kAnyProtocol;
      self.resume(client);
    }
  }

  const ResolveReply mReply;
  const DiscoveryKey mKey;
  // Of the address. The daemon gives one per host, and peers tend to listen for IPv4.
  AvahiProtocol mProtocol = AVAHI_PROTO_INET;
  bool mIsTold = false;
};

AvahiDiscovery::~AvahiDiscovery() {
  mLoop.async([this] {
    close();
    mBusWatch = nullptr;
  });
  mLoop.endThread();
}

DiscoveryActivity AvahiDiscovery::publishService(DiscoveryRecord record, PublishReply reply) {
  return Task::start(std::make_shared<Publication>(*this, std::move(record), std::move(reply)));
}

DiscoveryActivity AvahiDiscovery::searchForServices(std::string type, std::string domain,
                                                    SearchReply reply) {
  return Task::start(
      std::make_shared<Search>(*this, std::move(type), std::move(domain), std::move(reply)));
}

DiscoveryActivity AvahiDiscovery::resolveService(DiscoveryKey key, ResolveReply reply) {
  return Task::start(std::make_shared<Resolution>(*this, std::move(key), std::move(reply)));
}

void AvahiDiscovery::add(Task& task) {
  mTasks.push_back(&task);
  if (mClient == nullptr) {
    open();
  } else if (avahi_client_get_state(mClient) == AVAHI_CLIENT_S_RUNNING) {
    task.resume(mClient);
  }
}

// --- the client: without one there is no bus, as it waits for a daemon by itself

void AvahiDiscovery::open() {
  if (mBusWatch == nullptr) {
    mBusWatch = std::make_unique<SystemBusWatch>(mLoop.poll(), [this] {
      if (mClient == nullptr) {
        open();
      }
    });
  }
  int error = 0;
  mClient =
      avahi_client_new(mLoop.poll(), AVAHI_CLIENT_NO_FAIL, &AvahiDiscovery::onClient, this, &error);
  if (mClient == nullptr) {
    noteMissing(avahi_strerror(error));
  }
}

void AvahiDiscovery::close() {
  if (mClient == nullptr) {
    return;
  }
  avahi_client_free(std::exchange(mClient, nullptr));
  for (Task* const each : mTasks) {
    each->lose();
  }
}

void AvahiDiscovery::noteMissing(const std::string& why) {
  if (!std::exchange(mToldMissing, true)) {
    VELOR_LOG_INFO("no Avahi daemon (%s); services are published and found once one runs",
                   why.c_str());
  }
}

void AvahiDiscovery::onClient(AvahiClient* client, AvahiClientState state, void* discovery) {
  auto& self = *static_cast<AvahiDiscovery*>(discovery);
  switch (state) {
    case AVAHI_CLIENT_S_RUNNING:
      if (std::exchange(self.mToldMissing, false)) {
        VELOR_LOG_INFO("the Avahi daemon runs");
      }
      for (Task* const each : self.mTasks) {
        each->resume(client);
      }
      break;
    case AVAHI_CLIENT_S_REGISTERING:
    case AVAHI_CLIENT_S_COLLISION:
      for (Task* const each : self.mTasks) {
        each->pause();
      }
      break;
    case AVAHI_CLIENT_CONNECTING:
      self.noteMissing("not started");
      break;
    case AVAHI_CLIENT_FAILURE:
      self.noteMissing(avahi_strerror(avahi_client_errno(client)));
      // As a job: a client must not end within its callback.
      self.mLoop.async([&self] {
        self.close();
        self.open();
      });
      break;
  }
}

}  // namespace velor::discovery
