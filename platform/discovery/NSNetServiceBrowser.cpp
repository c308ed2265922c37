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
            : NSNetServicesError{NSNetServicesError::kBadArgument,
                                 "'" + type + "' is not a service type; expected _name._udp"};
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
      [weak = weak_from_this()](const DiscoveryFind& find, bool moreComing) {
        if (const auto self = weak.lock()) {
          self->found(find, moreComing);
        }
      });
}

void NSNetServiceBrowser::found(const DiscoveryFind& find, bool moreComing) {
  std::unique_lock lock(mMutex);
  std::shared_ptr<NSNetService> netService;
  if (find.isThere) {
    netService = mServices[find.name] = NSNetService::initWithDomain(mDomain, mType, find.name);
  } else if (auto gone = mServices.extract(find.name)) {
    netService = std::move(gone.mapped());
  }
  const auto receiver = mDelegate.lock();
  lock.unlock();
  if (receiver == nullptr || netService == nullptr) {
    return;
  }
  if (find.isThere) {
    receiver->netServiceBrowserDidFindService(*this, netService, moreComing);
  } else {
    receiver->netServiceBrowserDidRemoveService(*this, netService, moreComing);
  }
}

}  // namespace velor::discovery
