// SPDX-License-Identifier: MIT
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/discovery/DiscoveryService.h"
#include "platform/discovery/NSNetServiceBrowserDelegate.h"

namespace velor::discovery {

/// Searches the network for services of a type, and reports those that come and go until
/// the browser ends.
///
/// Any thread may call any operation. The current discovery service must outlive it.
class NSNetServiceBrowser final : public std::enable_shared_from_this<NSNetServiceBrowser> {
 public:
  static std::shared_ptr<NSNetServiceBrowser> init();
  ~NSNetServiceBrowser();
  NSNetServiceBrowser(const NSNetServiceBrowser&) = delete;
  NSNetServiceBrowser& operator=(const NSNetServiceBrowser&) = delete;

  /// Held weakly.
  void setDelegate(std::weak_ptr<NSNetServiceBrowserDelegate> delegate);
  std::shared_ptr<NSNetServiceBrowserDelegate> delegate() const;

  /// `type`: "_osc._udp."; `domain`: "local" or empty. The dot at the end of either may be
  /// missing. Fails while another search is under way.
  void searchForServicesOfType(const std::string& type, const std::string& domain);

 private:
  NSNetServiceBrowser() = default;

  // On the main queue.
  void found(const DiscoveryFind& find, bool moreComing);

  mutable std::mutex mMutex;
  // Under mMutex.
  std::weak_ptr<NSNetServiceBrowserDelegate> mDelegate;
  std::string mType;
  std::string mDomain;
  DiscoveryActivity mActivity;
  std::map<std::string, std::shared_ptr<NSNetService>> mServices;  // by name
};

}  // namespace velor::discovery
