// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "platform/discovery/NSNetServicesError.h"

namespace velor::discovery {

class NSNetService;
class NSNetServiceBrowser;

/// Gets the reports of a search. Queue: main.
class NSNetServiceBrowserDelegate {
 public:
  virtual ~NSNetServiceBrowserDelegate() = default;

  virtual void netServiceBrowserWillSearch(NSNetServiceBrowser& browser) {
    static_cast<void>(browser);
  }
  virtual void netServiceBrowserDidNotSearch(NSNetServiceBrowser& browser,
                                             const NSNetServicesError& error) {
    static_cast<void>(browser);
    static_cast<void>(error);
  }

  /// `moreComing`: another call follows at once, so that a display may wait for the last.
  /// A service that goes is the object that came; one that returns is a new object.
  virtual void netServiceBrowserDidFindService(NSNetServiceBrowser& browser,
                                               const std::shared_ptr<NSNetService>& service,
                                               bool moreComing) = 0;
  virtual void netServiceBrowserDidRemoveService(NSNetServiceBrowser& browser,
                                                 const std::shared_ptr<NSNetService>& service,
                                                 bool moreComing) = 0;
};

}  // namespace velor::discovery
