// SPDX-License-Identifier: MIT
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/discovery/NSNetService.h"
#include "platform/discovery/NSNetServiceBrowser.h"
#include "platform/host/Host.h"

namespace velor::discovery {

/// Records all reports of services and browsers.
class DiscoveryWitness final : public NSNetServiceDelegate, public NSNetServiceBrowserDelegate {
 public:
  using ServiceRef = std::shared_ptr<NSNetService>;

  void netServiceDidPublish(const ServiceRef& service) override {
    note();
    published.push_back(service->name());
  }
  void netServiceDidNotPublish(const ServiceRef&, const NSNetServicesError& error) override {
    failed(error);
  }
  void netServiceDidResolveAddress(const ServiceRef& service) override {
    note();
    resolved.push_back(service);
  }
  void netServiceDidNotResolve(const ServiceRef&, const NSNetServicesError& error) override {
    failed(error);
  }
  void netServiceDidStop(const ServiceRef&) override {
    note();
    ++stopped;
  }
  void netServiceBrowserDidFindService(NSNetServiceBrowser&, const ServiceRef& service,
                                       bool moreComing) override {
    note();
    found.push_back(moreComing);
    present.push_back(service);
  }
  void netServiceBrowserDidRemoveService(NSNetServiceBrowser&, const ServiceRef& service,
                                         bool) override {
    note();
    // The same object: identity is by address.
    EXPECT_EQ(std::erase(present, service), 1U) << service->name();
    removed.push_back(service->name());
  }
  void netServiceBrowserDidNotSearch(NSNetServiceBrowser&,
                                     const NSNetServicesError& error) override {
    failed(error);
  }

  /// A search that reports to the witness.
  static std::shared_ptr<NSNetServiceBrowser> search(
      const std::shared_ptr<DiscoveryWitness>& witness) {
    auto browser = NSNetServiceBrowser::init();
    browser->setDelegate(witness);
    browser->searchForServicesOfType("_osc._udp.", "local");
    return browser;
  }

  /// Null when there is none.
  ServiceRef presentOfName(const std::string& name) const {
    for (const ServiceRef& each : present) {
      if (each->name() == name) {
        return each;
      }
    }
    return nullptr;
  }

  std::vector<std::string> published;
  std::vector<ServiceRef> resolved;
  std::vector<ServiceRef> present;
  std::vector<bool> found;  // moreComing of each
  std::vector<std::string> removed;
  std::vector<int> errors;
  int stopped = 0;

 private:
  void failed(const NSNetServicesError& error) {
    note();
    errors.push_back(error.code);
  }
  static void note() { EXPECT_TRUE(host::current().mainQueue().isCurrent()); }
};

}  // namespace velor::discovery
