// SPDX-License-Identifier: MIT
#include "sim/BuiltinDiscovery.h"

#include <algorithm>
#include <utility>

namespace velor::discovery {

BuiltinDiscovery::BuiltinDiscovery(std::string hostName) : mHostName(std::move(hostName)) {}

BuiltinDiscovery::~BuiltinDiscovery() = default;

void BuiltinDiscovery::setRunning(bool running) {
  mQueue.async([this, running] {
    if (running == mRunning) {
      return;
    }
    mRunning = running;
    for (Publication& publication : mPublications) {
      if (running) {
        probe(publication);
      } else {
        withdraw(publication);
      }
    }
  });
}

void BuiltinDiscovery::begin(const PublishOrderRef& order) {
  Publication& publication = mPublications.emplace_back();
  publication.order = order;
  if (mRunning) {
    probe(publication);
  }
}

void BuiltinDiscovery::probe(Publication& publication) {
  publication.attempt = ++mLastAttempt;
  mQueue.after(kProbing, [this, attempt = publication.attempt] { announce(attempt); });
}

void BuiltinDiscovery::announce(std::uint64_t attempt) {
  const auto found =
      std::find_if(mPublications.begin(), mPublications.end(),
                   [attempt](const Publication& each) { return each.attempt == attempt; });
  if (found == mPublications.end()) {
    return;  // ended, withdrawn, or tried anew meanwhile
  }
  const PublishOrderRef order = found->order;
  DiscoveryKey key = order->record.key;
  for (int number = 2; find(key) != nullptr; ++number) {
    if (!order->mayRename) {
      report(order, {false, true, key.name});
      return;
    }
    key.name = order->record.key.name + " #" + std::to_string(number);
  }
  found->name = key.name;
  report(order, {true, false, key.name});
  tellSearches(key, true);
  std::vector<ResolveOrderRef> waiting;
  std::swap(waiting, mResolutions);
  for (const ResolveOrderRef& each : waiting) {
    answer(each);
  }
}

void BuiltinDiscovery::withdraw(Publication& publication) {
  publication.attempt = 0;
  if (!publication.name.empty()) {
    DiscoveryKey key = publication.order->record.key;
    key.name = std::exchange(publication.name, "");
    tellSearches(key, false);
  }
}

void BuiltinDiscovery::tellSearches(const DiscoveryKey& key, bool isThere) {
  for (const SearchOrderRef& each : mSearches) {
    if (each->type == key.type && each->domain == key.domain) {
      report(each, {{key.name, isThere}});
    }
  }
}

const BuiltinDiscovery::Publication* BuiltinDiscovery::find(const DiscoveryKey& key) const {
  const auto found =
      std::find_if(mPublications.begin(), mPublications.end(), [&key](const Publication& each) {
        const DiscoveryKey& own = each.order->record.key;
        return each.name == key.name && own.type == key.type && own.domain == key.domain;
      });
  return found == mPublications.end() ? nullptr : &*found;
}

void BuiltinDiscovery::begin(const SearchOrderRef& order) {
  mSearches.push_back(order);
  std::vector<DiscoveryFind> finds;
  for (const Publication& each : mPublications) {
    const DiscoveryKey& key = each.order->record.key;
    if (!each.name.empty() && key.type == order->type && key.domain == order->domain) {
      finds.push_back({each.name, true});
    }
  }
  report(order, std::move(finds));
}

void BuiltinDiscovery::begin(const ResolveOrderRef& order) {
  answer(order);
}

void BuiltinDiscovery::answer(const ResolveOrderRef& order) {
  if (const Publication* const publication = find(order->key)) {
    const DiscoveryRecord& record = publication->order->record;
    report(order, DiscoveryAnswer{mHostName, record.port, record.txt});
  } else {
    mResolutions.push_back(order);
  }
}

void BuiltinDiscovery::end(const DiscoveryOrder& order) {
  const auto isIt = [&order](const auto& each) { return each.get() == &order; };
  std::erase_if(mSearches, isIt);
  std::erase_if(mResolutions, isIt);
  const auto publication =
      std::find_if(mPublications.begin(), mPublications.end(),
                   [&order](const Publication& each) { return each.order.get() == &order; });
  if (publication != mPublications.end()) {
    withdraw(*publication);
    mPublications.erase(publication);
  }
}

}  // namespace velor::discovery
