// SPDX-License-Identifier: MIT
#include "platform/discovery/NSNetServiceBrowser.h"

#include <utility>

#include "platform/discovery/NSNetService.h"
#include "platform/discovery/TellDelegateLater.h"

namespace velor::discovery {

std::shared_ptr<NSNetServiceBrowser> NSNetServiceBrowser::init() {
  return std::shared_ptr<NSNetServiceBrowser>(new NSNetServiceBrowser);
}

NSNetServiceBrowser::~NSNetServiceBrowser() = default;

void NSNetServiceBrowser::setDelegate(std::weak_ptr<NSNetServiceBrowserDelegate> delegate) {
  const std::lock_guard lock(mMutex);
  mDelegate = std::move(delegate);
}

std::shared_ptr<NSNetServiceBrowserDelegate> NSNetServiceBrowser::delegate() const {
  const std::lock_guard lock(mMutex);
  return mDelegate.lock();
}

void NSNetServiceBrowser::searchForServicesOfType(const std::string& type,
                                                  const std::string& domain) {
  std::string wanted = discoveryTextWithoutDot(type);
  std::string within = discoveryTextWithoutDot(domain);
  if (within.empty()) {
    within = "local";
  }
  const std::lock_guard lock(mMutex);
  if (mActivity != nullptr || !isDiscoveryType(wanted)) {
    NSNetServicesError error =
        mActivity != nullptr
            ? NSNetServicesError{NSNetServicesError::kActivityInProgress, "a search is under way"}
            : NSNetServicesError{NSNetServicesError::kBadArgument, type + " is no type of service"};
    tellDelegateLater(weak_from_this(),
                      [error = std::move(error)](auto& delegate, const auto& self) {
                        delegate.netServiceBrowserDidNotSearch(*self, error);
                      });
    return;
  }
  tellDelegateLater(weak_from_this(), [](auto& delegate, const auto& self) {
    delegate.netServiceBrowserWillSearch(*self);
  });
  mType = wanted;
  mDomain = within;
  mActivity = service().searchForServices(
      std::move(wanted), std::move(within),
      [weak = weak_from_this(), round = ++mRound](const DiscoveryFind& find, bool moreComing) {
        if (const auto self = weak.lock()) {
          self->found(find, moreComing, round);
        }
      });
}

void NSNetServiceBrowser::found(const DiscoveryFind& find, bool moreComing, std::uint64_t round) {
  std::unique_lock lock(mMutex);
  if (round != mRound || mActivity == nullptr) {
    return;
  }
  std::shared_ptr<NSNetService>& place = mServices[find.name];
  if (find.isThere) {
    place = NSNetService::initWithDomain(mDomain, mType, find.name);
  }
  const std::shared_ptr<NSNetService> netService = place;
  if (!find.isThere) {
    mServices.erase(find.name);
  }
  const auto hears = mDelegate.lock();
  lock.unlock();
  if (hears == nullptr || netService == nullptr) {
    return;
  }
  if (find.isThere) {
    hears->netServiceBrowserDidFindService(*this, netService, moreComing);
  } else {
    hears->netServiceBrowserDidRemoveService(*this, netService, moreComing);
  }
}

void NSNetServiceBrowser::stop() {
  std::unique_ptr<DiscoveryActivity> activity;
  const std::lock_guard lock(mMutex);
  if (mActivity != nullptr) {
    activity = std::move(mActivity);
    mServices.clear();
    tellDelegateLater(weak_from_this(), [](auto& delegate, const auto& self) {
      delegate.netServiceBrowserDidStopSearch(*self);
    });
  }
}

}  // namespace velor::discovery
