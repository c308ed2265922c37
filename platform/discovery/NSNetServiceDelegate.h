// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "platform/discovery/NSNetServicesError.h"

namespace velor::discovery {

class NSNetService;

/// Gets the results of publishing and resolving a service. Queue: main.
class NSNetServiceDelegate {
 public:
  virtual ~NSNetServiceDelegate() = default;

  /// Others can see the service, under the name that it has now. Comes again after each
  /// interruption.
  virtual void netServiceDidPublish(const std::shared_ptr<NSNetService>& service) {
    static_cast<void>(service);
  }
  virtual void netServiceDidNotPublish(const std::shared_ptr<NSNetService>& service,
                                       const NSNetServicesError& error) {
    static_cast<void>(service);
    static_cast<void>(error);
  }

  /// Host name, port and TXT record are known.
  virtual void netServiceDidResolveAddress(const std::shared_ptr<NSNetService>& service) {
    static_cast<void>(service);
  }
  virtual void netServiceDidNotResolve(const std::shared_ptr<NSNetService>& service,
                                       const NSNetServicesError& error) {
    static_cast<void>(service);
    static_cast<void>(error);
  }

  /// `stop` ended a publication or a resolution.
  virtual void netServiceDidStop(const std::shared_ptr<NSNetService>& service) {
    static_cast<void>(service);
  }
};

}  // namespace velor::discovery
