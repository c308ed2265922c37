// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/discovery/DiscoveryService.h"
#include "platform/discovery/NSNetServiceBrowserDelegate.h"

namespace velor::discovery {

/// Searches the network for services of a type, and goes on telling of those that
/// come and go until it is stopped or ends.
///
/// Any thread may call any operation; it ends silently. The discovery service in
/// force must outlive it.
class NSNetServiceBrowser final : public std::enable_shared_from_this<NSNetServiceBrowser> {
 public:
  static std::shared_ptr<NSNetServiceBrowser> init();
  ~NSNetServiceBrowser();
  NSNetServiceBrowser(const NSNetServiceBrowser&) = delete;
  NSNetServiceBrowser& operator=(const NSNetServiceBrowser&) = delete;

  /// Held weakly.
  void setDelegate(std::weak_ptr<NSNetServiceBrowserDelegate> delegate);
  std::shared_ptr<NSNetServiceBrowserDelegate> delegate() const;

  /// `type` "_osc._udp.", `domain` "local"; a dot at the end may be missing. Fails
  /// while another search is under way.
  void searchForServicesOfType(const std::string& type, const std::string& domain);

  /// What was found is not told gone.
  void stop();

 private:
  NSNetServiceBrowser() = default;

  // On the main queue.
  void found(const DiscoveryFind& find, bool moreComing, std::uint64_t round);

  mutable std::mutex mMutex;
  // Under mMutex.
  std::weak_ptr<NSNetServiceBrowserDelegate> mDelegate;
  std::uint64_t mRound = 0;  // counts searches
  std::string mType;
  std::string mDomain;
  std::unique_ptr<DiscoveryActivity> mActivity;
  std::map<std::string, std::shared_ptr<NSNetService>> mServices;  // by name
};

}  // namespace velor::discovery
