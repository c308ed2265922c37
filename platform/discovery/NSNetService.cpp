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
constexpr double kLongestTimeout = 1e9;  // seconds; anything longer never ends

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

// The strings of the record before the first damaged one, and whether none is damaged.
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
  mTXTRecordData = std::move(data);
  return true;
}

std::optional<NSNetServicesError> NSNetService::obstacle() const {
  if (mActivity != nullptr) {
    return NSNetServicesError{NSNetServicesError::kActivityInProgress,
                              "the service is already being published or resolved"};
  }
  if (mName.empty() || mName.size() > kMostNameBytes) {
    return NSNetServicesError{NSNetServicesError::kBadArgument,
                              "a service name must have 1 to 63 bytes"};
  }
  if (!isDiscoveryType(mType)) {
    return NSNetServicesError{NSNetServicesError::kBadArgument,
                              "'" + mType + "' is not a service type; expected _name._udp"};
  }
  return std::nullopt;
}

void NSNetService::publishWithOptions(std::uint32_t) {
  const std::lock_guard lock(mMutex);
  if (auto error = obstacle()) {
    tellDelegateLater(weak_from_this(),
                      [error = std::move(*error)](auto& delegate, const auto& self) {
                        delegate.netServiceDidNotPublish(self, error);
                      });
    return;
  }
  mActivity =
      service().publishService({{mName, mType, mDomain}, mPort, mTXTRecordData},
                               [weak = weak_from_this(), round = ++mRound](const auto& name) {
                                 if (const auto self = weak.lock()) {
                                   self->published(name, round);
                                 }
                               });
}

void NSNetService::published(const tl::expected<std::string, NSNetServicesError>& name,
                             std::uint64_t round) {
  std::unique_lock lock(mMutex);
  if (round != mRound || mActivity == nullptr) {
    return;
  }
  if (name) {
    mName = *name;
  } else {
    mActivity = nullptr;
  }
  const auto receiver = mDelegate.lock();
  lock.unlock();
  if (receiver == nullptr) {
    return;
  }
  if (name) {
    receiver->netServiceDidPublish(shared_from_this());
  } else {
    receiver->netServiceDidNotPublish(shared_from_this(), name.error());
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
  const auto end = [weak = weak_from_this(), round = ++mRound](const auto& answer) {
    if (const auto self = weak.lock()) {
      self->resolved(answer, round);
    }
  };
  mActivity = service().resolveService({mName, mType, mDomain}, end);
  if (seconds > 0 && seconds < kLongestTimeout) {
    const auto delay = static_cast<std::uint64_t>(std::llround(seconds * host::kNsPerSecond));
    host::current().mainQueue().after(delay, [end] {
      end(tl::unexpected(
          NSNetServicesError{NSNetServicesError::kTimeout, "no answer within the given time"}));
    });
  }
}

void NSNetService::resolved(const tl::expected<DiscoveryAnswer, NSNetServicesError>& answer,
                            std::uint64_t round) {
  std::unique_lock lock(mMutex);
  if (round != mRound || mActivity == nullptr) {
    return;
  }
  mActivity = nullptr;
  if (answer) {
    mHostName = answer->hostName;
    mPort = answer->port;
    mTXTRecordData = answer->txt;
  }
  const auto receiver = mDelegate.lock();
  lock.unlock();
  if (receiver == nullptr) {
    return;
  }
  if (answer) {
    receiver->netServiceDidResolveAddress(shared_from_this());
  } else {
    receiver->netServiceDidNotResolve(shared_from_this(), answer.error());
  }
}

void NSNetService::stop() {
  const std::lock_guard lock(mMutex);
  if (std::exchange(mActivity, nullptr) != nullptr) {
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
  std::map<std::string, bool> seen;  // keys in lower case
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
