// SPDX-License-Identifier: MIT
#include "platform/discovery/NSNetService.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

#include "platform/discovery/TellDelegateLater.h"
#include "platform/host/Host.h"

namespace velor::discovery {
namespace {

constexpr std::size_t kMostNameBytes = 63;
constexpr std::size_t kMostStringBytes = 255;
constexpr std::size_t kMostRecordBytes = 65535;
constexpr double kLongestTimeout = 1e9;  // seconds; what is more has no end either

bool isTXTKey(std::string_view key) {
  return !key.empty() && std::all_of(key.begin(), key.end(),
                                     [](char c) { return c >= 0x20 && c <= 0x7E && c != '='; });
}

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return text;
}

// The strings of the record up to the first that does not fit, and whether all did.
std::pair<std::vector<std::string_view>, bool> stringsOf(const DiscoveryTXTData& data) {
  std::vector<std::string_view> strings;
  std::size_t at = 0;
  while (at < data.size()) {
    const std::size_t size = data[at];
    if (size > data.size() - at - 1) {
      return {strings, false};
    }
    strings.emplace_back(reinterpret_cast<const char*>(data.data()) + at + 1, size);
    at += 1 + size;
  }
  return {strings, true};
}

}  // namespace

std::shared_ptr<NSNetService> NSNetService::initWithDomain(const std::string& domain,
                                                           const std::string& type,
                                                           const std::string& name,
                                                           std::uint16_t port) {
  std::string within = discoveryTextWithoutDot(domain);
  return std::shared_ptr<NSNetService>(new NSNetService(
      within.empty() ? "local" : std::move(within), discoveryTextWithoutDot(type), name, port));
}

NSNetService::NSNetService(std::string domain, std::string type, std::string name,
                           std::uint16_t port)
    : mDomain(std::move(domain)), mType(std::move(type)), mName(std::move(name)), mPort(port) {}

NSNetService::~NSNetService() = default;

void NSNetService::setDelegate(std::weak_ptr<NSNetServiceDelegate> delegate) {
  const std::lock_guard lock(mMutex);
  mDelegate = std::move(delegate);
}

std::shared_ptr<NSNetServiceDelegate> NSNetService::delegate() const {
  const std::lock_guard lock(mMutex);
  return mDelegate.lock();
}

std::string NSNetService::name() const {
  const std::lock_guard lock(mMutex);
  return mName;
}

std::uint16_t NSNetService::port() const {
  const std::lock_guard lock(mMutex);
  return mPort;
}

std::optional<std::string> NSNetService::hostName() const {
  const std::lock_guard lock(mMutex);
  return mHostName;
}

DiscoveryTXTData NSNetService::TXTRecordData() const {
  const std::lock_guard lock(mMutex);
  return mTXTRecordData;
}

std::string NSNetService::description() const {
  return type() + " " + name() + " in " + mDomain;
}

bool NSNetService::setTXTRecordData(DiscoveryTXTData data) {
  if (data.size() > kMostRecordBytes || !stringsOf(data).second) {
    return false;
  }
  const std::lock_guard lock(mMutex);
  mTXTRecordData = data;
  if (mDoing == Doing::publishing) {
    mActivity->setTXTRecordData(std::move(data));
  }
  return true;
}

std::optional<NSNetServicesError> NSNetService::obstacle() const {
  if (mDoing != Doing::nothing) {
    return NSNetServicesError{NSNetServicesError::kActivityInProgress,
                              "it is being published or resolved already"};
  }
  if (mName.empty() || mName.size() > kMostNameBytes || !isDiscoveryType(mType)) {
    return NSNetServicesError{NSNetServicesError::kBadArgument,
                              "its name or its type has no valid form"};
  }
  return std::nullopt;
}

void NSNetService::publishWithOptions(std::uint32_t options) {
  const std::lock_guard lock(mMutex);
  if (auto error = obstacle()) {
    tellDelegateLater(weak_from_this(),
                      [error = std::move(*error)](auto& delegate, const auto& self) {
                        delegate.netServiceDidNotPublish(self, error);
                      });
    return;
  }
  mDoing = Doing::publishing;
  mActivity = service().publishService(
      {{mName, mType, mDomain}, mPort, mTXTRecordData}, (options & kNoAutoRename) == 0,
      [weak = weak_from_this(), round = ++mRound](const DiscoveryService::Published& news) {
        if (const auto self = weak.lock()) {
          self->published(news, round);
        }
      });
}

void NSNetService::published(const DiscoveryService::Published& news, std::uint64_t round) {
  std::unique_ptr<DiscoveryActivity> ended;
  std::unique_lock lock(mMutex);
  if (round != mRound || mDoing != Doing::publishing) {
    return;
  }
  const auto hears = mDelegate.lock();
  if (news.done) {
    mName = news.name;
  } else {
    mDoing = Doing::nothing;
    ended = std::move(mActivity);
  }
  lock.unlock();
  if (hears == nullptr) {
    return;
  }
  if (news.done) {
    hears->netServiceDidPublish(shared_from_this());
  } else if (news.taken) {
    hears->netServiceDidNotPublish(shared_from_this(), {NSNetServicesError::kCollision,
                                                        "the name " + news.name + " is taken"});
  } else {
    hears->netServiceDidNotPublish(
        shared_from_this(), {NSNetServicesError::kUnknown, "the network refuses " + description()});
  }
}

void NSNetService::resolveWithTimeout(double seconds) {
  const std::lock_guard lock(mMutex);
  if (auto error = obstacle()) {
    tellDelegateLater(weak_from_this(),
                      [error = std::move(*error)](auto& delegate, const auto& self) {
                        delegate.netServiceDidNotResolve(self, error);
                      });
    return;
  }
  mDoing = Doing::resolving;
  const std::uint64_t round = ++mRound;
  mActivity = service().resolveService(
      {mName, mType, mDomain}, [weak = weak_from_this(), round](const DiscoveryAnswer& answer) {
        if (const auto self = weak.lock()) {
          self->resolutionEnded(&answer, round);
        }
      });
  if (seconds > 0 && seconds < kLongestTimeout) {
    mTimeout = std::make_unique<host::Timer>(host::current().mainQueue(),
                                             [weak = weak_from_this(), round] {
                                               if (const auto self = weak.lock()) {
                                                 self->resolutionEnded(nullptr, round);
                                               }
                                             });
    mTimeout->setDeadline(host::current().AudioGetCurrentHostTime() +
                          static_cast<std::uint64_t>(std::llround(seconds * host::kNsPerSecond)));
    mTimeout->resume();
  }
}

void NSNetService::resolutionEnded(const DiscoveryAnswer* answer, std::uint64_t round) {
  std::unique_ptr<DiscoveryActivity> activity;
  std::unique_ptr<host::Timer> timeout;
  std::unique_lock lock(mMutex);
  if (round != mRound || mDoing != Doing::resolving) {
    return;
  }
  mDoing = Doing::nothing;
  activity = std::move(mActivity);
  timeout = std::move(mTimeout);
  if (answer != nullptr) {
    mHostName = answer->hostName;
    mPort = answer->port;
    mTXTRecordData = answer->txt;
  }
  const auto hears = mDelegate.lock();
  lock.unlock();
  if (hears == nullptr) {
    return;
  }
  if (answer != nullptr) {
    hears->netServiceDidResolveAddress(shared_from_this());
  } else {
    hears->netServiceDidNotResolve(
        shared_from_this(), {NSNetServicesError::kTimeout, "no answer within the given time"});
  }
}

void NSNetService::stop() {
  std::unique_ptr<DiscoveryActivity> activity;
  std::unique_ptr<host::Timer> timeout;
  const std::lock_guard lock(mMutex);
  if (std::exchange(mDoing, Doing::nothing) != Doing::nothing) {
    activity = std::move(mActivity);
    timeout = std::move(mTimeout);
    tellDelegateLater(weak_from_this(),
                      [](auto& delegate, const auto& self) { delegate.netServiceDidStop(self); });
  }
}

DiscoveryTXTData NSNetService::dataFromTXTRecordDictionary(const TXTRecordDictionary& dictionary) {
  DiscoveryTXTData data;
  for (const auto& [key, value] : dictionary) {
    const std::size_t size = key.size() + (value ? 1 + value->size() : 0);
    if (!isTXTKey(key) || size > kMostStringBytes || data.size() + 1 + size > kMostRecordBytes) {
      continue;
    }
    data.push_back(static_cast<std::uint8_t>(size));
    data.insert(data.end(), key.begin(), key.end());
    if (value) {
      data.push_back('=');
      data.insert(data.end(), value->begin(), value->end());
    }
  }
  return data;
}

NSNetService::TXTRecordDictionary NSNetService::dictionaryFromTXTRecordData(
    const DiscoveryTXTData& data) {
  TXTRecordDictionary dictionary;
  std::map<std::string, bool> seen;  // by the key in lower case
  for (const std::string_view string : stringsOf(data).first) {
    const std::size_t sign = string.find('=');
    const std::string key(string.substr(0, sign));
    if (!isTXTKey(key) || !seen.emplace(lowerCase(key), true).second) {
      continue;
    }
    if (sign == std::string_view::npos) {
      dictionary.emplace(key, std::nullopt);
    } else {
      const std::string_view value = string.substr(sign + 1);
      dictionary.emplace(key, std::vector<std::uint8_t>(value.begin(), value.end()));
    }
  }
  return dictionary;
}

}  // namespace velor::discovery
