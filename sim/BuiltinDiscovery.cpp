// SPDX-License-Identifier: MIT
#include "sim/BuiltinDiscovery.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "platform/discovery/DiscoveryTask.h"

namespace velor::discovery {

template <class Reply>
class BuiltinDiscovery::Task : public DiscoveryTask {
 protected:
  Task(BuiltinDiscovery& network, Reply reply)
      : DiscoveryTask(network.mQueue), mNetwork(network), mReply(std::move(reply)) {}

  BuiltinDiscovery& mNetwork;
  const Reply mReply;
};

class BuiltinDiscovery::Search final : public Task<SearchReply> {
 public:
  Search(BuiltinDiscovery& network, std::string type, std::string domain, SearchReply reply)
      : Task(network, std::move(reply)), mType(std::move(type)), mDomain(std::move(domain)) {}

  bool covers(const DiscoveryKey& key) const { return key.type == mType && key.domain == mDomain; }
  void tell(std::vector<DiscoveryFind> finds) { replyFinds(mReply, std::move(finds)); }

 private:
  void begin() override;
  void end() override { std::erase(mNetwork.mSearches, this); }

  const std::string mType;
  const std::string mDomain;
};

class BuiltinDiscovery::Resolution final : public Task<ResolveReply> {
 public:
  Resolution(BuiltinDiscovery& network, DiscoveryKey key, ResolveReply reply)
      : Task(network, std::move(reply)), mKey(std::move(key)) {}

  /// True once it has replied.
  bool answer();

 private:
  void begin() override {
    if (!answer()) {
      mNetwork.mResolutions.push_back(this);
    }
  }
  void end() override { std::erase(mNetwork.mResolutions, this); }

  const DiscoveryKey mKey;
};

class BuiltinDiscovery::Publication final : public Task<PublishReply> {
 public:
  Publication(BuiltinDiscovery& network, DiscoveryRecord record, PublishReply reply)
      : Task(network, std::move(reply)), mRecord(std::move(record)) {}

  const DiscoveryRecord& record() const { return mRecord; }
  bool isAnnounced() const { return mIsAnnounced; }
  /// With its current name.
  DiscoveryKey key() const { return {mName, mRecord.key.type, mRecord.key.domain}; }

  void probe() {
    mNetwork.mQueue.after(kProbing, [weak = weak_from_this(), attempt = ++mAttempt] {
      const auto self = std::static_pointer_cast<Publication>(weak.lock());
      if (self != nullptr && self->mAttempt == attempt) {
        self->announce();
      }
    });
  }

  void withdraw() {
    ++mAttempt;
    if (std::exchange(mIsAnnounced, false)) {
      tellSearches(false);
    }
  }

 private:
  void begin() override {
    mNetwork.mPublications.push_back(this);
    if (mNetwork.mRunning) {
      probe();
    }
  }
  void end() override {
    withdraw();
    std::erase(mNetwork.mPublications, this);
  }

  void announce() {
    mName = mRecord.key.name;
    for (int number = 2; mNetwork.find(key()) != nullptr; ++number) {
      mName = mRecord.key.name + " #" + std::to_string(number);
    }
    mIsAnnounced = true;
    reply([this, name = mName] { mReply(name); });
    tellSearches(true);
    std::erase_if(mNetwork.mResolutions, [](Resolution* each) { return each->answer(); });
  }

  void tellSearches(bool isThere) {
    for (Search* const each : mNetwork.mSearches) {
      if (each->covers(mRecord.key)) {
        each->tell({{mName, isThere}});
      }
    }
  }

  const DiscoveryRecord mRecord;
  std::string mName;
  bool mIsAnnounced = false;
  std::uint64_t mAttempt = 0;  // counts probes and withdrawals
};

void BuiltinDiscovery::Search::begin() {
  mNetwork.mSearches.push_back(this);
  std::vector<DiscoveryFind> finds;
  for (const Publication* const each : mNetwork.mPublications) {
    if (each->isAnnounced() && covers(each->key())) {
      finds.push_back({each->key().name, true});
    }
  }
  tell(std::move(finds));
}

bool BuiltinDiscovery::Resolution::answer() {
  const Publication* const publication = mNetwork.find(mKey);
  if (publication == nullptr) {
    return false;
  }
  const DiscoveryRecord& record = publication->record();
  reply([this, answer = DiscoveryAnswer{mNetwork.mHostName, record.port, record.txt}] {
    mReply(answer);
  });
  return true;
}

const BuiltinDiscovery::Publication* BuiltinDiscovery::find(const DiscoveryKey& key) const {
  const auto found = std::find_if(
      mPublications.begin(), mPublications.end(),
      [&key](const Publication* each) { return each->isAnnounced() && each->key() == key; });
  return found == mPublications.end() ? nullptr : *found;
}

void BuiltinDiscovery::setRunning(bool running) {
  mQueue.async([this, running] {
    if (std::exchange(mRunning, running) == running) {
      return;
    }
    for (Publication* const each : mPublications) {
      if (running) {
        each->probe();
      } else {
        each->withdraw();
      }
    }
  });
}

DiscoveryActivity BuiltinDiscovery::publishService(DiscoveryRecord record, PublishReply reply) {
  return DiscoveryTask::start(
      std::make_shared<Publication>(*this, std::move(record), std::move(reply)));
}

DiscoveryActivity BuiltinDiscovery::searchForServices(std::string type, std::string domain,
                                                      SearchReply reply) {
  return DiscoveryTask::start(
      std::make_shared<Search>(*this, std::move(type), std::move(domain), std::move(reply)));
}

DiscoveryActivity BuiltinDiscovery::resolveService(DiscoveryKey key, ResolveReply reply) {
  return DiscoveryTask::start(
      std::make_shared<Resolution>(*this, std::move(key), std::move(reply)));
}

}  // namespace velor::discovery
